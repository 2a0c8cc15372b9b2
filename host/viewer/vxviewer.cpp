// vxviewer: the host as a desktop program, e.g.
//   vxviewer brain.nii.gz network.tcl
//   vxviewer network.tcl --view -y --screenshot window.png     (for documentation and tests)
#include "VxMainWindow.h"
#include <kx/KxMemory.h>

#include <app/VxHostSession.h>

#include <Inventor/Qt/SoQt.h>

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool haveDisplay()
{
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY") || std::getenv("QT_QPA_PLATFORM");
}

} // namespace

int main(int argc, char** argv)
{
    kxReturnLargeBlocksToSystem();
    if (!haveDisplay()) {
        std::fprintf(stderr, "vxviewer: error: no display to open a window on; run networks with vxhost, or "
                             "start vxviewer under xvfb-run\n");
        return 1;
    }
    QStringList files;
    QString screenshot, view;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--screenshot")) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxviewer: error: --screenshot needs a file name\n");
                return 2;
            }
            screenshot = QString::fromLocal8Bit(argv[++i]);
        } else if (!std::strcmp(argv[i], "--view")) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxviewer: error: --view needs an axis: +x, -x, +y, -y, +z or -z\n");
                return 2;
            }
            view = QString::fromLocal8Bit(argv[++i]);
        } else {
            files << QString::fromLocal8Bit(argv[i]);
        }
    }
    SoQt::init(argc, argv, "vxviewer");
    int status = 0;
    {
        // The host before the window, the window gone before the host: its objects run the packages'
        // code.
        VxHostSession host;
        host.loadPackages();
        VxMainWindow window(host);
        window.setQuiet(!screenshot.isEmpty());
        window.show();
        // Closing the window while the files open stops their work and leaves the rest unopened;
        // the event loop is then skipped, as the quit that closing sends came before it.
        for (const QString& file : files)
            if (!window.isClosing() && !window.open(file)) status = 1;
        if (window.isClosing()) return status;
        if (!view.isEmpty() && !window.lookAlong(view)) {
            std::fprintf(stderr, "vxviewer: error: --view %s is not an axis: +x, -x, +y, -y, +z or -z\n",
                         qPrintable(view));
            return 2;
        }
        if (!screenshot.isEmpty()) {
            // Once the window is drawn and the networks' modules have computed.
            QTimer::singleShot(500, [&] {
                if (!window.screenshot(screenshot)) {
                    std::fprintf(stderr, "vxviewer: error: cannot write %s\n", qPrintable(screenshot));
                    status = 1;
                }
                qApp->quit();
            });
        }
        qApp->exec();
    }
    return status;
}
