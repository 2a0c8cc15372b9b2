// The whole window in this process, as a user drives it: a module's slider field changed with the
// keyboard recomputes it, the viewer shows the result, and a saved network has the change. Under a
// virtual display: without one, the test runs itself again under xvfb-run.
#include "../support/TestHost.h"

#include <app/VxHostSession.h>
#include <viewer/VxMainWindow.h>
#include <vx/VxExtractionReport.h>

#include <Inventor/Qt/SoQt.h>

#include <QApplication>
#include <QDir>
#include <QGLWidget>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>

using vxtest::tcl;

namespace {

// Without a display a test runs itself again under xvfb-run, and that run's verdict is its own.
#define VX_UNDER_XVFB()                                                                                      \
    if (!std::getenv("DISPLAY")) {                                                                           \
        if (std::system("command -v xvfb-run >/dev/null") != 0) GTEST_SKIP() << "xvfb-run is missing";       \
        EXPECT_EQ(rerunUnderXvfb(), 0) << "the run under xvfb-run failed";                                   \
        return;                                                                                              \
    }

int rerunUnderXvfb()
{
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const int status = std::system(("xvfb-run -a -s '-screen 0 1280x900x24' " + self + " --gtest_filter=" +
                                    test->test_suite_name() + "." + test->name() + " >/dev/null")
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void initSoQt()
{
    static int argc = 1;
    static char name[] = "test";
    static char* argv[] = {name, nullptr};
    SoQt::init(argc, argv, "test");
}

// A ball in nx x 100 x 90 nodes of uint8, its value growing with the distance from the centre.
QString writeBall(const QString& dir, int nx)
{
    QByteArray volume = QString("NRRD0004\ntype: uchar\ndimension: 3\nsizes: %1 100 90\nencoding: raw\n\n")
                            .arg(nx)
                            .toLatin1();
    for (int k = 0; k < 90; ++k)
        for (int j = 0; j < 100; ++j)
            for (int i = 0; i < nx; ++i)
                volume.append(
                    char(std::min(255.0, std::hypot(std::hypot(i - nx / 2.0, j - 50.0), k - 45.0) * 3)));
    QFile file(dir + "/ball.nrrd");
    if (!file.open(QIODevice::WriteOnly) || file.write(volume) != volume.size()) return QString();
    return file.fileName();
}

// Calls act once, from the window's event handling, as soon as its status shows an extraction.
void whenExtracting(VxMainWindow& window, const std::function<void()>& act)
{
    auto* poll = new QTimer(&window);
    QObject::connect(poll, &QTimer::timeout, [&window, poll, act] {
        if (!window.statusBar()->currentMessage().startsWith("Extracting")) return;
        poll->stop();
        poll->deleteLater();
        act();
    });
    poll->start(0);
}

} // namespace

TEST(Window, AWidgetChangeRecomputesShowsAndSaves)
{
    VX_UNDER_XVFB();
    qputenv("VXHOST_PACKAGE_PATH", VXTEST_PACKAGE_DIR);
    initSoQt();
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
    VX_UNDER_XVFB();
    // A ball in 260 x 100 x 90 nodes: more than the module extracts at full resolution while
    // dragging, and long enough along x to be halved there.
    QTemporaryDir dir;
    const int n = 260;
    const QString ball = writeBall(dir.path(), n);
    ASSERT_FALSE(ball.isEmpty());
    initSoQt();
    VxHostSession host;
    host.loadPackages();
    VxMainWindow window(host);
    window.setQuiet(true);
    window.show();
    for (const QStringList& words :
         {QStringList{"load", ball, "ball"}, QStringList{"preferences", "simplifiedRendering", "1"},
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

// On a volume opened at start-up: the live viewer draws a slice made right away, with nothing else
// in the scene to draw again later (its first frame came before the window was ready, and stayed
// black). Stop, pressed while an extraction shows, interrupts it, for that run only. Closing the
// window during an extraction stops it and the rest of the script that started it: its export,
// which writes the surface when the window stays open, writes nothing, not even a temporary file.
TEST(Window, DrawsASliceAtOnceAndStopsExtractionsOnStopAndClosing)
{
    VX_UNDER_XVFB();
    QTemporaryDir dir;
    ASSERT_TRUE(QDir::setCurrent(dir.path()) && !writeBall(dir.path(), 200).isEmpty());
    initSoQt();
    VxHostSession host;
    host.loadPackages();
    VxMainWindow window(host);
    window.show();
    ASSERT_TRUE(
        window.run({"eval", "load ball.nrrd ball; create VxOrthoSlice s; s data connect ball; s fire"}));
    window.viewAll();
    // The slice's grey ramp rises to white at its corners; the background is dark grey.
    auto bright = [gl = window.findChild<QGLWidget*>()] {
        const QImage frame = gl->grabFrameBuffer();
        int n = 0;
        for (int y = 0; y < frame.height(); y += 4)
            for (int x = 0; x < frame.width(); x += 4) n += qGray(frame.pixel(x, y)) > 120;
        return n;
    };
    EXPECT_TRUE(QTest::qWaitFor([&] { return bright() > 500; }, 5000)) << bright() << " bright pixels";

    ASSERT_TRUE(window.run({"eval", "create VxIsosurface head; head data connect ball"}));
    auto* head = dynamic_cast<VxExtractionReport*>(host.find("head"));
    for (QPushButton* stop : window.findChildren<QPushButton*>())
        if (stop->text() == "Stop")
            whenExtracting(window, [stop] { QTest::mouseClick(stop, Qt::LeftButton); });
    ASSERT_TRUE(window.run({"head", "doIt", "hit"})); // the module extracts once the command is done
    EXPECT_EQ(head->lastFailure(), "interrupted");
    EXPECT_EQ(tcl("head getNumTriangles"), "0");
    EXPECT_FALSE(window.findChild<QProgressBar*>()->isVisible());
    const QString script = "head doIt hit; head fire; head exportData ply out.ply";
    ASSERT_TRUE(window.run({"eval", script}));
    EXPECT_EQ(head->lastFailure(), "");
    ASSERT_TRUE(QFile::remove("out.ply"));

    ASSERT_TRUE(window.run({"head", "threshold", "setValue", "50"}));
    whenExtracting(window, [&] { window.close(); });
    EXPECT_FALSE(window.run({"eval", script}));
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(head->lastFailure(), "interrupted");
    EXPECT_EQ(QDir().entryList(QDir::Files), QStringList{"ball.nrrd"});
    EXPECT_FALSE(window.run({"head", "fire"})) << "nothing runs once the window is closed";
    tcl("remove -all");
}
