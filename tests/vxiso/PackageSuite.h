#pragma once
// A test suite that drives the package's modules through scripts: the package is loaded once for
// the suite, and each test starts from an empty object pool and no recorded messages.
#include "../support/TestHost.h"

#include <vx/VxApplication.h>
#include <vx/VxPackageManager.h>

#include <kx/KxProgressInterface.h>

#include <memory>

class PackageSuite : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        packages = new VxPackageManager;
        QString why;
        ASSERT_TRUE(packages->load(VXISO_PACKAGE, &why)) << why;
        vxtest::messages()->setConsole(nullptr);
        vxtest::messages()->setErrorConsole(nullptr);
    }
    static void TearDownTestSuite()
    {
        // Objects run the package's code: they go before it.
        VxApplication::destroy();
        delete packages;
        packages = nullptr;
    }
    void SetUp() override
    {
        vxtest::tcl("remove -all");
        vxtest::messages()->clearRecords();
    }
    // The host's progress replaced by one that reports an interruption while stop is set, as the
    // viewer's Stop button does.
    struct Stoppable : KxProgressInterface
    {
        bool stop = false;
        void setProgressValue(float) override {}
        bool wasInterrupted() override { return stop; }
    };
    static Stoppable* installStoppable()
    {
        auto* progress = new Stoppable;
        VxApplication::instance()->setProgress(std::unique_ptr<KxProgressInterface>(progress));
        return progress;
    }
    static inline VxPackageManager* packages = nullptr;
};
