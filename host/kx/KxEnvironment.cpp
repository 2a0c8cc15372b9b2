#include <kx/KxEnvironment.h>

#include <QByteArray>

namespace {

// An empty name or one with '=' names no variable (getenv would match a prefix of "NAME=VALUE").
bool isValidName(const QString& name)
{
    return !name.isEmpty() && !name.contains(QLatin1Char('='));
}

} // namespace

// Qt's accessors take the lock that Qt's own setters take, unlike a bare getenv.
bool KxEnvironment::exists(const QString& name, bool nonEmpty)
{
    if (!isValidName(name)) return false;
    const QByteArray key = name.toLocal8Bit();
    return nonEmpty ? !qEnvironmentVariableIsEmpty(key.constData())
                    : qEnvironmentVariableIsSet(key.constData());
}

QString KxEnvironment::value(const QString& name, const QString& defaultValue)
{
    if (!isValidName(name)) return defaultValue;
    return qEnvironmentVariable(name.toLocal8Bit().constData(), defaultValue);
}
