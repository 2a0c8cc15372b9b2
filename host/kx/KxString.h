#pragma once
#include <QString>

#include <cstdarg>

// printf-style formatting into a QString of any length. "%s" takes UTF-8 text. The result does not
// depend on the C locale (the decimal point is always '.'), so messages and saved networks read the
// same on every machine; note that "%ls" takes UTF-16 (ushort) text, not wchar_t.
class KxString
{
public:
    static QString printf(const char* format, ...) __attribute__((__format__(__printf__, 1, 2)));
    static QString vprintf(const char* format, va_list args) __attribute__((__format__(__printf__, 1, 0)));
};
