#pragma once
#include <QString>

#include <cstddef>
#include <exception>
#include <new>
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

// Work stopped because its progress sink reported an interruption (Ctrl-C).
class KxInterrupted : public KxException
{
public:
    KxInterrupted() : KxException("interrupted") {}
};

// Memory that could not be had, with its size, so that a message can say how much was asked for.
// Still a std::bad_alloc for code that catches only that. Building it allocates nothing.
class KxOutOfMemory : public std::bad_alloc
{
public:
    explicit KxOutOfMemory(std::size_t bytes);
    // Memory for something that has no size to give ("could not start a thread").
    explicit KxOutOfMemory(const char* couldNot);
    std::size_t bytes() const { return m_bytes; }
    // "out of memory: could not get 1.9 GiB (2040109465 bytes)"
    const char* what() const noexcept override { return m_text; }

private:
    std::size_t m_bytes;
    char m_text[96];
};
