// The command's option table: the help is made from it, so it must list every option it parses.
#include <app/VxisoOptions.h>

#include <gtest/gtest.h>

#include <regex>

TEST(VxisoOptions, HelpListsEveryOption)
{
    const std::string help = vxisoHelp();
    const std::vector<std::string> names = vxisoOptionNames();
    ASSERT_GT(names.size(), 20u);
    for (const std::string& name : names)
        EXPECT_TRUE(std::regex_search(help, std::regex("\n  (-[-a-z]+, )?" + name + "[ ,\n]"))) << name;
}
