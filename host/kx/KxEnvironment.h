#pragma once
#include <QString>

// Environment variables of the process.
class KxEnvironment
{
public:
    // Whether the variable is set; with nonEmpty, also that its value is not empty.
    static bool exists(const QString& name, bool nonEmpty = false);
    // The variable's value (decoded from the local 8-bit encoding), or defaultValue when it is unset.
    static QString value(const QString& name, const QString& defaultValue = QString());
};
