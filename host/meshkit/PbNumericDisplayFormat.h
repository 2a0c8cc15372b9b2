#pragma once
#include <string>

namespace meshkit {

// How a number is written in a label, e.g. the value of a contour line.
//
// The number shown is value / 10^tenPower, so that a caption elsewhere can say "x 10^P" once
// instead of every label carrying the exponent. Then, by type:
//   FLOAT    fixed point with numDecimals decimals ("1.23"); an exact tie rounds to even, as
//            printf's "%.*f" does ("2" for 2.5 with no decimals);
//   INTEGER  rounded to the nearest integer, halves away from zero ("-3" for -2.5);
//   AUTO     numDecimals significant digits, or 6 when numDecimals is 0, trailing zeros dropped, in
//            exponent form only when the exponent is below -4 or not below the number of digits
//            ("1234.57", "1.2e+03", "1e-07"), as printf's "%.*g" writes it.
// A result that reads as zero is written without a minus sign ("-0.00" becomes "0.00"): a label
// "-0" next to "0" would suggest two different lines. A value that is not finite, or whose shown
// number is not, gives an empty string: no label.
//
// The text never depends on the process locale: the decimal separator is always '.'.
//
// Setters clamp: numDecimals to 0..15, tenPower to -30..30, and a type outside FormatType becomes
// AUTO, so that a format read from a file or a script is always usable.
class PbNumericDisplayFormat
{
public:
    enum FormatType
    {
        AUTO = 0,
        FLOAT = 1,
        INTEGER = 2
    };

    PbNumericDisplayFormat(FormatType type = AUTO, int numDecimals = 0, int tenPower = 0);

    void setFormatType(FormatType type);
    FormatType getFormatType() const { return m_type; }

    void setNumDecimals(int numDecimals);
    int getNumDecimals() const { return m_numDecimals; }

    void setTenPower(int tenPower);
    int getTenPower() const { return m_tenPower; }

    std::string format(double value) const;

    bool operator==(const PbNumericDisplayFormat& o) const
    {
        return m_type == o.m_type && m_numDecimals == o.m_numDecimals && m_tenPower == o.m_tenPower;
    }
    bool operator!=(const PbNumericDisplayFormat& o) const { return !(*this == o); }

    static constexpr int MAX_DECIMALS = 15;
    static constexpr int MAX_TEN_POWER = 30;

private:
    FormatType m_type = AUTO;
    int m_numDecimals = 0;
    int m_tenPower = 0;
};

} // namespace meshkit
