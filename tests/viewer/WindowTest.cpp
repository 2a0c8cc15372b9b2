// The whole window in this process, as a user drives it: a module's slider field changed with the
// keyboard recomputes it, the viewer shows the result, and a saved network has the change. Under a
// virtual display: without one, the test runs itself again under xvfb-run.
#include "../support/TestHost.h"

#include <app/VxHostSession.h>
#include <viewer/VxMainWindow.h>
#include <vx/VxExtractionReport.h>

#include <Inventor/Qt/SoQt.h>

#include <QApplication>
#include <QLineEdit>
#include <QSlider>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

using vxtest::tcl;

TEST(Window, AWidgetChangeRecomputesShowsAndSaves)
{
    if (!std::getenv("DISPLAY")) {
        if (std::system("command -v xvfb-run >/dev/null") != 0) GTEST_SKIP() << "xvfb-run is missing";
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const int status =
            std::system(("xvfb-run -a -s '-screen 0 1280x900x24' " + self +
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
        EXPECT_FALSE(window.open(dir.path() + "/none.nii"))
            << "a file that fails to load is an error, not a crash";
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

// Dragging a tracking slider: with simplified rendering on, the isosurface module extracts from a
// down-sampled copy while the slider moves and from the whole volume when it is let go.
TEST(Window, DraggingTheThresholdExtractsCoarseThenFull)
{
    if (!std::getenv("DISPLAY")) {
        if (std::system("command -v xvfb-run >/dev/null") != 0) GTEST_SKIP() << "xvfb-run is missing";
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const int status =
            std::system(("xvfb-run -a " + self +
                         " --gtest_filter=Window.DraggingTheThresholdExtractsCoarseThenFull >/dev/null")
                            .c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the run under xvfb-run failed";
        return;
    }
    // A ball in 260 x 100 x 90 nodes: more than the module extracts at full resolution while
    // dragging, and long enough along x to be halved there.
    QTemporaryDir dir;
    const int n = 260;
    QByteArray volume("NRRD0004\ntype: uchar\ndimension: 3\nsizes: 260 100 90\nencoding: raw\n\n");
    for (int k = 0; k < 90; ++k)
        for (int j = 0; j < 100; ++j)
            for (int i = 0; i < n; ++i)
                volume.append(
                    char(std::min(255.0, std::hypot(std::hypot(i - 130.0, j - 50.0), k - 45.0) * 3)));
    QFile file(dir.path() + "/ball.nrrd");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(volume) == volume.size());
    file.close();
    static int argc = 1;
    static char name[] = "test";
    static char* argv[] = {name, nullptr};
    SoQt::init(argc, argv, "test");
    VxHostSession host;
    host.loadPackages();
    VxMainWindow window(host);
    window.setQuiet(true);
    window.show();
    for (const QStringList& words :
         {QStringList{"load", file.fileName(), "ball"},
          QStringList{"preferences", "simplifiedRendering", "1"},
          QStringList{"create", "VxIsosurface", "head"}, QStringList{"head", "data", "connect", "ball"},
          QStringList{"head", "doIt", "snap", "0", "1"}})
        ASSERT_TRUE(window.run(words)) << words.join(' ').toStdString();
    window.open(dir.path() + "/none.nrrd"); // fails, and shows the newest object's ports: head
    QTest::qWait(50);
    QSlider* threshold = nullptr;
    for (QSlider* s : window.findChildren<QSlider*>())
        if (!threshold && s->isVisible() && s->orientation() == Qt::Horizontal) threshold = s;
    ASSERT_TRUE(threshold);
    auto nodes = [&] {
        return dynamic_cast<VxExtractionReport*>(host.find("head"))->lastExtraction().nodes.nx;
    };
    threshold->setSliderDown(true);
    threshold->setSliderPosition(300);
    EXPECT_LT(nodes(), n) << "while dragging: the down-sampled copy";
    threshold->setSliderDown(false);
    EXPECT_EQ(nodes(), n) << "let go: the whole volume";
    tcl("remove -all");
}
