#include <vx/VxMessage.h>

#include <kx/KxString.h>

#include <cstdarg>

void VxMessage::printf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const QString text = KxString::vprintf(format, args);
    va_end(args);
    printf(text);
}

void VxMessage::printf(const QString& text)
{
    QString line = text.endsWith('\n') ? text.left(text.size() - 1) : text;
    m_lines.append(line);
    if (m_listener) m_listener(line, 0);
    if (m_console) {
        fprintf(m_console, "%s\n", line.toUtf8().constData());
        fflush(m_console);
    }
}

int VxMessage::error(const QString& text, const char*, const char*, const char*, int defaultButton, int)
{
    m_errors.append(text);
    if (m_listener) m_listener(text, 2);
    if (m_errorConsole) {
        fprintf(m_errorConsole, "Error: %s\n", text.toUtf8().constData());
        fflush(m_errorConsole);
    }
    return defaultButton;
}

void VxMessage::warning(const QString& text)
{
    m_lines.append("Warning: " + text);
    if (m_listener) m_listener("Warning: " + text, 1);
    if (m_errorConsole) {
        fprintf(m_errorConsole, "Warning: %s\n", text.toUtf8().constData());
        fflush(m_errorConsole);
    }
}
