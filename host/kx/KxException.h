#pragma once
#include <QString>

#include <exception>
#include <string>

// The framework's exception: carries a user-readable text.
class KxException : public std::exception
{
public:
    explicit KxException(const QString& text) : m_text(text), m_utf8(text.toStdString()) {}
    explicit KxException(const char* text) : KxException(QString::fromUtf8(text)) {}
    const QString& text() const { return m_text; }
    const char* what() const noexcept override { return m_utf8.c_str(); }

private:
    QString m_text;
    std::string m_utf8;
};
