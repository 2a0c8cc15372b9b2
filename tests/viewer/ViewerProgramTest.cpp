// The desktop program as a user starts it, under a virtual display: a network's surface is drawn in
// the viewer, and without a display it says what to do instead.
#include "../support/TestHost.h"

#include <QImage>
#include <QTemporaryDir>

#include <cstdlib>

namespace {

int runShell(const QString& command)
{
    const int status = std::system(command.toLocal8Bit().constData());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(ViewerProgram, DrawsTheNetworksSurfaceAndSaysWhenThereIsNoDisplay)
{
    QTemporaryDir dir;
    const QString at = dir.path();
    EXPECT_EQ(runShell("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM " VXVIEWER_PROGRAM " 2>" + at +
                       "/err.txt"),
              1);
    QFile err(at + "/err.txt");
    ASSERT_TRUE(err.open(QIODevice::ReadOnly));
    EXPECT_TRUE(err.readAll().contains("no display to open a window on; run networks with vxhost, or start "
                                       "vxviewer under xvfb-run"));

    if (runShell("command -v xvfb-run >/dev/null") != 0)
        GTEST_SKIP() << "xvfb-run is missing (apt-get install xvfb)";
    QFile network(at + "/net.tcl");
    ASSERT_TRUE(network.open(QIODevice::WriteOnly));
    network.write("create VxTestSphere ball\nball radius setValue 2\nball doIt hit\nball fire\n");
    network.close();
    const int status = runShell("cd " + at +
                                " && VXHOST_PACKAGE_PATH=" VXTEST_PACKAGE_DIR
                                " xvfb-run -a -s '-screen 0 1280x900x24' " VXVIEWER_PROGRAM
                                " net.tcl --screenshot shot.png >out.txt 2>&1");
    ASSERT_EQ(status, 0);
    const QImage shot(at + "/shot.png");
    ASSERT_FALSE(shot.isNull());
    // The sphere, lit grey-white, in the middle of the window where the viewer is; the background
    // there is dark.
    int lit = 0;
    for (int y = shot.height() / 4; y < shot.height() / 2; ++y)
        for (int x = shot.width() / 4; x < 3 * shot.width() / 4; ++x) lit += qGray(shot.pixel(x, y)) > 90;
    EXPECT_GT(lit, 500);
}
