#include <kx/KxString.h>

#include <clocale>
#include <string>

#include <gtest/gtest.h>

TEST(KxString, FormatsLikePrintfAtAnyLength)
{
    EXPECT_EQ(KxString::printf("Isosurface contains %lu triangles (%2.2f%% less)", 12ul, 33.3333f),
              QString("Isosurface contains 12 triangles (33.33% less)"));
    EXPECT_EQ(KxString::printf("\"%s\" doIt hit\n", "Isosurface"), QString("\"Isosurface\" doIt hit\n"));
    EXPECT_EQ(KxString::printf("[%5d|%-4s|%03x|%*d|%zu]", -42, "ab", 10, 4, 7, std::size_t(9)),
              QString("[  -42|ab  |00a|   7|9]"));
    EXPECT_EQ(KxString::printf("%s", "Gr\u00f6\u00dfe"), QString::fromUtf8("Gr\u00f6\u00dfe"));

    const std::string longText(100000, 'x');
    const QString s = KxString::printf("<%s>%d", longText.c_str(), 5);
    ASSERT_EQ(s.size(), 100003);
    EXPECT_TRUE(s.endsWith(">5"));
}

TEST(KxString, DecimalPointIgnoresTheLocale)
{
    // QCoreApplication installs the environment's locale; messages must read the same everywhere.
    const std::string old = std::setlocale(LC_NUMERIC, nullptr);
    const bool comma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") || std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    EXPECT_EQ(KxString::printf("%.2f", 2.5), QString("2.50"));
    std::setlocale(LC_NUMERIC, old.c_str());
    if (!comma) GTEST_SKIP() << "no locale with a decimal comma installed; checked under the C locale only";
}
