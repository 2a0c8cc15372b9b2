#include "PortScript.h"

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPortDeprecatedSubstitute.h>
#include <vx/VxPortToggleList.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace {

using OptionsPort = VxPortDeprecatedSubstitute<VxPortToggleList, VxPortToggleList, 920, 1100>;

const char* const g_warningStart = "WARNING: You are using a deprecated port. Please see Section "
                                   "\"Versioning of Script Objects and backward "
                                   "compatibility\" for compatibility details.\n";

// Each test starts from a host that allows deprecation warnings, declares version 919 and has no
// RUNNING_TEST in its environment (ctest may set it); all of that is put back afterwards.
class DeprecatedPortTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (const char* v = getenv("RUNNING_TEST")) m_runningTest = std::string(v);
        unsetenv("RUNNING_TEST");
        m_message = VxApplication::instance()->message();
        m_interpreter = VxApplication::instance()->interpreter();
        m_message->setConsole(nullptr);
        m_message->clearRecords();
        m_interpreter->setCompatibilityVersion(919);
        m_interpreter->setDeprecationWarningAllowed(true);
    }
    void TearDown() override
    {
        if (m_runningTest) setenv("RUNNING_TEST", m_runningTest->c_str(), 1);
        m_interpreter->setCompatibilityVersion(VxInterpreter::CURRENT_VERSION);
        m_interpreter->setDeprecationWarningAllowed(true);
        m_message->setConsole(stdout);
        m_message->clearRecords();
    }
    int run(const std::string& line) { return m_script.run(m_owner, line); }

    std::optional<std::string> m_runningTest;
    VxMessage* m_message = nullptr;
    VxInterpreter* m_interpreter = nullptr;
    vxtest::PortOwner m_owner{"Isosurface"};
    vxtest::PortScript m_script{VxApplication::instance()->interpreter()->getTclInterp()};
};

// The old port is hidden, unlisted and unsaved; untouching the owner clears both.
TEST_F(DeprecatedPortTest, OldPortIsHiddenUnlistedUnsavedAndUntouchedWithTheNewOne)
{
    OptionsPort options(&m_owner, "Options", "options");
    EXPECT_EQ(m_owner.getAllPorts().size(), 1);
    EXPECT_EQ(m_owner.findPort("options"), &options);
    EXPECT_GT(options.getDeprecatedPort().getHideMask(), 0);
    EXPECT_EQ(options.getNum(), 1);
    EXPECT_EQ(options.getDeprecatedPort().getNum(), 1);
    EXPECT_EQ(options.getDeprecatedPort().getName().toStdString(), "options");

    options.getDeprecatedPort().setNum(2);
    options.getDeprecatedPort().setValue(1, true);
    options.setValue(0, true);
    ASSERT_TRUE(options.getDeprecatedPort().isItemNew(1));
    char* text = nullptr;
    size_t size = 0;
    FILE* fp = open_memstream(&text, &size);
    m_owner.savePorts(fp);
    fclose(fp);
    EXPECT_STREQ(text, "\"Isosurface\" options setValue 0 1\n");
    free(text);

    m_owner.untouchAllPorts();
    EXPECT_FALSE(options.isNew());
    EXPECT_FALSE(options.isItemNew(0));
    EXPECT_FALSE(options.getDeprecatedPort().isNew());
    EXPECT_FALSE(options.getDeprecatedPort().isItemNew(1));
}

TEST_F(DeprecatedPortTest, VersionChoosesThePort)
{
    OptionsPort options(&m_owner, "Options", "options");
    options.getDeprecatedPort().setNum(2);

    m_interpreter->setCompatibilityVersion(920);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    EXPECT_TRUE(options.getValue(0));
    EXPECT_FALSE(options.getDeprecatedPort().getValue(0));
    EXPECT_TRUE(m_message->lines().isEmpty()) << "the current port warns of nothing";

    m_interpreter->setCompatibilityVersion(919);
    ASSERT_EQ(run("options setValue 1 1"), TCL_OK) << m_script.result();
    EXPECT_TRUE(options.getDeprecatedPort().getValue(1));
    EXPECT_TRUE(options.getDeprecatedPort().isItemNew(1));
    // The new port has one toggle only.
    m_interpreter->setCompatibilityVersion(920);
    EXPECT_EQ(run("options setValue 1 1"), TCL_ERROR);
    EXPECT_EQ(m_script.result(), "\"Isosurface\" port \"options\": index 1 is out of range 0..0");
}

TEST_F(DeprecatedPortTest, WarnsOnceWithTheExactText)
{
    OptionsPort options(&m_owner, "Options", "options");
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    ASSERT_EQ(m_message->lines().size(), 1);
    EXPECT_EQ(m_message->lines()[0].toStdString(),
              std::string(g_warningStart) +
                  "Port \"options\" from module \"Isosurface\" has been modified in the current version.\n"
                  "Please see \"Isosurface\" documentation for a recent port list. ");
    EXPECT_TRUE(options.isWarningShown());

    // Each port warns once of its own.
    OptionsPort other(&m_owner, "Other", "other");
    ASSERT_EQ(run("other setValue 0 1"), TCL_OK);
    EXPECT_EQ(m_message->lines().size(), 2);
}

TEST_F(DeprecatedPortTest, RenamedPortSaysWhatReplacedIt)
{
    OptionsPort options(&m_owner, "Options", "options", "flags");
    EXPECT_EQ(
        options.deprecatedWarningMessage().toStdString(),
        "Port \"flags\" from module \"Isosurface\" has been replaced by port \"options\" in the current "
        "version.");
    ASSERT_EQ(run("flags setValue 0 1"), TCL_OK) << "old scripts reach the port by its old name";
    EXPECT_TRUE(options.getDeprecatedPort().getValue(0));
    ASSERT_EQ(m_message->lines().size(), 1);
    EXPECT_NE(m_message->lines()[0].indexOf("replaced by port \"options\""), -1);
}

TEST_F(DeprecatedPortTest, SilentUnderTestsOrWhenNotAllowed)
{
    OptionsPort options(&m_owner, "Options", "options");
    setenv("RUNNING_TEST", "", 1);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    EXPECT_TRUE(options.getDeprecatedPort().getValue(0)) << "commands still reach the old port";
    EXPECT_TRUE(m_message->lines().isEmpty());
    EXPECT_FALSE(options.isWarningShown());

    unsetenv("RUNNING_TEST");
    m_interpreter->setDeprecationWarningAllowed(false);
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    EXPECT_FALSE(options.getDeprecatedPort().getValue(0));
    EXPECT_TRUE(m_message->lines().isEmpty());

    // The warning was not used up: it comes when allowed again.
    m_interpreter->setDeprecationWarningAllowed(true);
    ASSERT_EQ(run("options getValue 0"), TCL_OK);
    EXPECT_EQ(m_message->lines().size(), 1);
}

TEST_F(DeprecatedPortTest, SetPinIsIgnored)
{
    OptionsPort options(&m_owner, "Options", "options");
    options.getDeprecatedPort().untouch();
    EXPECT_EQ(run("options setPin 1"), TCL_OK);
    EXPECT_EQ(m_script.result(), "");
    EXPECT_FALSE(options.getDeprecatedPort().isNew());
    EXPECT_EQ(run("options frobnicate"), TCL_ERROR) << "other verbs are the old port's to judge";

    m_interpreter->setCompatibilityVersion(920);
    EXPECT_EQ(run("options setPin 1"), TCL_ERROR) << "the current port knows no setPin";
}

} // namespace
