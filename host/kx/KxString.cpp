#include <kx/KxString.h>

QString KxString::printf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    QString s = vprintf(format, args);
    va_end(args);
    return s;
}

QString KxString::vprintf(const char* format, va_list args)
{
    // Qt's formatter rather than vsnprintf: vsnprintf follows the locale that QCoreApplication
    // installs from the environment and would write decimal commas on some machines.
    return QString::vasprintf(format, args);
}
