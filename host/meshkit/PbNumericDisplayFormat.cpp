#include <meshkit/PbNumericDisplayFormat.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace meshkit {

namespace {
// 10^|p| is exact in a double up to 10^22; dividing by it (or multiplying for negative powers)
// rounds once, so 1234.5678 at power 3 shows as 1.2345678 and not as a neighbour of it.
double scaled(double value, int tenPower)
{
    if (tenPower == 0) return value;
    const double p = std::pow(10.0, std::abs(tenPower));
    return tenPower > 0 ? value / p : value * p;
}

// True when the text has no non-zero digit in its mantissa, i.e. it reads as zero.
bool readsAsZero(const std::string& s)
{
    for (char c : s) {
        if (c == 'e') break;
        if (c >= '1' && c <= '9') return false;
    }
    return true;
}
} // namespace

PbNumericDisplayFormat::PbNumericDisplayFormat(FormatType type, int numDecimals, int tenPower)
{
    setFormatType(type);
    setNumDecimals(numDecimals);
    setTenPower(tenPower);
}

void PbNumericDisplayFormat::setFormatType(FormatType type)
{
    m_type = type == FLOAT || type == INTEGER ? type : AUTO;
}

void PbNumericDisplayFormat::setNumDecimals(int numDecimals)
{
    m_numDecimals = std::clamp(numDecimals, 0, MAX_DECIMALS);
}

void PbNumericDisplayFormat::setTenPower(int tenPower)
{
    m_tenPower = std::clamp(tenPower, -MAX_TEN_POWER, MAX_TEN_POWER);
}

std::string PbNumericDisplayFormat::format(double value) const
{
    double v = scaled(value, m_tenPower);
    if (!std::isfinite(v)) return {};
    // std::to_chars ignores the locale. The largest double in fixed form with 15 decimals takes
    // 309 + 1 + 15 characters and a sign.
    char buf[400];
    std::to_chars_result r;
    switch (m_type) {
    case FLOAT:
        r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, m_numDecimals);
        break;
    case INTEGER:
        v = std::round(v);
        r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 0);
        break;
    default:
        r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general,
                          m_numDecimals > 0 ? m_numDecimals : 6);
        break;
    }
    if (r.ec != std::errc()) return {};
    std::string s(buf, r.ptr);
    if (!s.empty() && s[0] == '-' && readsAsZero(s)) s.erase(0, 1);
    return s;
}

} // namespace meshkit
