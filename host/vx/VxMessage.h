#pragma once
#include <QString>
#include <QStringList>

#include <cstdio>
#include <functional>

// The console: modules print their results here. Without a window, errors go to stderr; every
// line is also kept, so scripts and tests can see what was said.
class VxMessage
{
public:
    // Appends a line (a line break is added when the text has none).
    void printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void printf(const QString& text);
    // A modal error. Without a window the text goes to stderr, prefixed with "Error: ", and the
    // default button counts as pressed; returns that button's index.
    int error(const QString& text, const char* button0 = "OK", const char* button1 = nullptr,
              const char* button2 = nullptr, int defaultButton = 0, int escapeButton = -1);
    // A warning: to stderr, prefixed with "Warning: ".
    void warning(const QString& text);

    const QStringList& lines() const { return m_lines; }
    const QStringList& errors() const { return m_errors; }
    void clearRecords()
    {
        m_lines.clear();
        m_errors.clear();
    }
    // Where console lines go (stdout by default; null keeps them only in the record).
    void setConsole(FILE* fp) { m_console = fp; }
    // Where errors and warnings go (stderr by default; null keeps them only in the record), for a
    // tool that reports failures in a voice of its own.
    void setErrorConsole(FILE* fp) { m_errorConsole = fp; }
    // A window's console: told of every line as it is said (kind 0 a line, 1 a warning, 2 an error).
    using Listener = std::function<void(const QString& line, int kind)>;
    void setListener(Listener listener) { m_listener = std::move(listener); }

private:
    QStringList m_lines;
    QStringList m_errors;
    FILE* m_console = stdout;
    FILE* m_errorConsole = stderr;
    Listener m_listener;
};
