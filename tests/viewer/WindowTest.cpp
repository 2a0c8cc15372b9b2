// The whole window in this process, as a user drives it: a module's slider field changed with the
// keyboard recomputes it, the viewer shows the result, and a saved network has the change. Under a
// virtual display: without one, the test runs itself again under xvfb-run.
#include "../support/TestHost.h"

#include <app/VxHostSession.h>
#include <viewer/VxMainWindow.h>

#include <Inventor/Qt/SoQt.h>

#include <QApplication>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>
#include <filesystem>

using vxtest::tcl;

TEST(Window, AWidgetChangeRecomputesShowsAndSaves)
{
    if (!std::getenv("DISPLAY")) {
        if (std::system("command -v xvfb-run >/dev/null") != 0) GTEST_SKIP() << "xvfb-run is missing";
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const int status = std::system(("xvfb-run -a -s '-screen 0 1280x900x24' " + self +
                                        " --gtest_filter=Window.AWidgetChangeRecomputesShowsAndSaves >/dev/null")
                                           .c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the run under xvfb-run failed";
        return;
    }
    qputenv("VXHOST_PACKAGE_PATH", VXTEST_PACKAGE_DIR);
    static int argc = 1;
    static char name[] = "test";
    static char* argv[] = {name, nullptr};
    SoQt::init(argc, argv, "test");
    QTemporaryDir dir;
    {
        VxHostSession host;
        host.loadPackages();
        VxMainWindow window(host);
        window.setQuiet(true);
        window.show();
        ASSERT_TRUE(window.run({"create", "VxTestSphere", "ball"}));
        ASSERT_TRUE(window.run({"ball", "doIt", "hit"}));
        EXPECT_FALSE(window.open(dir.path() + "/none.nii")) << "a file that fails to load is an error, not a crash";
        QTest::qWait(100);

        // The panel shows the newest object: the radius's text field is the first field.
        QLineEdit* radius = nullptr;
        for (QLineEdit* field : window.findChildren<QLineEdit*>())
            if (field->text() == "1" && !radius) radius = field;
        ASSERT_TRUE(radius);
        radius->selectAll();
        QTest::keyClicks(radius, "3");
        QTest::keyClick(radius, Qt::Key_Return);
        QTest::qWait(100);
        EXPECT_EQ(tcl("ball radius getValue"), "3");

        window.viewAll();
        ASSERT_TRUE(window.screenshot(dir.path() + "/shot.png"));
        const QImage shot(dir.path() + "/shot.png");
        int lit = 0;
        for (int y = shot.height() / 4; y < shot.height() / 2; ++y)
            for (int x = shot.width() / 4; x < 3 * shot.width() / 4; ++x) lit += qGray(shot.pixel(x, y)) > 90;
        EXPECT_GT(lit, 500);
        ASSERT_TRUE(window.run({"saveNetwork", dir.path() + "/n.tcl"}));
        tcl("remove -all");
    }
    QFile saved(dir.path() + "/n.tcl");
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(saved.readAll().contains("radius setValue 3"));
}
