// Label texts for contour values: each type, decimals and power of ten, negative zero, clamping,
// and independence from the process locale.
#include <meshkit/PbNumericDisplayFormat.h>

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cmath>
#include <string>

namespace {

using meshkit::PbNumericDisplayFormat;
using F = PbNumericDisplayFormat;

struct Row
{
    double value;
    int tenPower;
    // AUTO, FLOAT, INTEGER, each with 0 and then 2 decimals.
    std::array<const char*, 6> texts;
};

TEST(NumericFormat, TypesDecimalsAndPowersOfTen)
{
    const Row rows[] = {
        {0.0, 0, {"0", "0", "0", "0.00", "0", "0"}},
        {0.0, 3, {"0", "0", "0", "0.00", "0", "0"}},
        {-0.5, 0, {"-0.5", "-0.5", "0", "-0.50", "-1", "-1"}},
        {-0.5, 3, {"-0.0005", "-0.0005", "0", "0.00", "0", "0"}},
        {1234.5678, 0, {"1234.57", "1.2e+03", "1235", "1234.57", "1235", "1235"}},
        {1234.5678, 3, {"1.23457", "1.2", "1", "1.23", "1", "1"}},
        {1234.5678, -2, {"123457", "1.2e+05", "123457", "123456.78", "123457", "123457"}},
        {1e-7, 0, {"1e-07", "1e-07", "0", "0.00", "0", "0"}},
        {1e-7, 3, {"1e-10", "1e-10", "0", "0.00", "0", "0"}},
        {3e9, 0, {"3e+09", "3e+09", "3000000000", "3000000000.00", "3000000000", "3000000000"}},
        {3e9, 3, {"3e+06", "3e+06", "3000000", "3000000.00", "3000000", "3000000"}},
        {NAN, 0, {"", "", "", "", "", ""}},
        {NAN, 3, {"", "", "", "", "", ""}},
    };
    const F::FormatType types[] = {F::AUTO, F::FLOAT, F::INTEGER};
    for (const Row& row : rows)
        for (int i = 0; i < 6; ++i) {
            const F f(types[i / 2], i % 2 ? 2 : 0, row.tenPower);
            EXPECT_EQ(f.format(row.value), row.texts[i])
                << row.value << " type " << types[i / 2] << " decimals " << f.getNumDecimals() << " power "
                << row.tenPower;
        }
}

TEST(NumericFormat, SignsRoundingAndWhatGivesNoLabel)
{
    EXPECT_EQ(F(F::INTEGER).format(2.5), "3") << "halves go away from zero";
    EXPECT_EQ(F(F::INTEGER).format(-2.5), "-3");
    EXPECT_EQ(F(F::AUTO).format(-0.0), "0");
    EXPECT_EQ(F(F::FLOAT, 2).format(-0.004), "0.00");
    EXPECT_EQ(F(F::AUTO).format(-1e-300), "-1e-300") << "a tiny negative value is not zero";
    EXPECT_EQ(F(F::FLOAT, 1).format(-0.06), "-0.1");
    EXPECT_EQ(F(F::AUTO, 15).format(0.1), "0.1");
    EXPECT_EQ(F(F::FLOAT).format(INFINITY), "");
    EXPECT_EQ(F(F::AUTO, 0, -30).format(1e300), "") << "the shown number overflows";
    EXPECT_EQ(F(F::FLOAT, 15).format(-1.7976931348623157e308).size(), 1 + 309 + 1 + 15u);
}

TEST(NumericFormat, SettersClampAndEqualityComparesAllFields)
{
    F f(F::FormatType(7), 99, -100);
    EXPECT_EQ(f.getFormatType(), F::AUTO);
    EXPECT_EQ(f.getNumDecimals(), 15);
    EXPECT_EQ(f.getTenPower(), -30);
    f.setFormatType(F::INTEGER);
    f.setFormatType(F::FormatType(-1));
    EXPECT_EQ(f.getFormatType(), F::AUTO);
    f.setNumDecimals(-4);
    f.setTenPower(31);
    EXPECT_EQ(f, F(F::AUTO, 0, 30));
    EXPECT_NE(f, F(F::FLOAT, 0, 30));
    EXPECT_NE(f, F(F::AUTO, 1, 30));
    EXPECT_NE(f, F(F::AUTO, 0, 29));
}

TEST(NumericFormat, DecimalPointIgnoresTheLocale)
{
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    const char* comma = nullptr;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "nl_NL.UTF-8"})
        if (std::setlocale(LC_NUMERIC, name)) {
            comma = name;
            break;
        }
    if (!comma) GTEST_SKIP() << "no locale with a decimal comma is installed";
    const std::string auto2 = F(F::AUTO, 3).format(1.25), float2 = F(F::FLOAT, 2).format(-1.5);
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(auto2, "1.25") << comma;
    EXPECT_EQ(float2, "-1.50") << comma;
}

} // namespace
