#include "VxMainWindow.h"
#include "VxPortPanel.h"

#include <app/VxHostSession.h>
#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <oiv/OivSceneBox.h>
#include <oiv/SoOffscreenEGLRenderer.h>
#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPreferences.h>

#include <Inventor/Qt/SoQt.h>
#include <Inventor/Qt/viewers/SoQtExaminerViewer.h>
#include <Inventor/nodes/SoOrthographicCamera.h>
#include <Inventor/nodes/SoPerspectiveCamera.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QApplication>
#include <QCloseEvent>
#include <QCompleter>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QGLWidget>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QStatusBar>
#include <QStringListModel>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

namespace {

// The host's progress in the window: a bar and a Stop button in the status bar. Long work on the
// window's thread keeps the window alive by handling its events between steps.
class WindowProgress : public KxProgressInterface
{
public:
    explicit WindowProgress(VxMainWindow* window) : m_window(window) {}
    // Phases nest (a module's extraction holds the engine's): Stop holds for the outermost one.
    void startWorking(const QString& text) override
    {
        if (m_depth++ == 0) m_window->stopRequested = false;
        m_text = text;
        show(0.f, true);
    }
    void stopWorking() override
    {
        if (m_depth > 0 && --m_depth == 0) show(1.f, false);
    }
    void setProgressValue(float value) override
    {
        m_value = value;
        show(value, true);
    }
    float getProgressValue() const override { return m_value; }
    void setProgressInfo(const QString& text) override { m_text = text; }
    bool wasInterrupted() override { return m_window->stopRequested || m_window->isClosing(); }

private:
    void show(float value, bool working)
    {
        if (QThread::currentThread() != qApp->thread()) return;
        m_window->showWork(m_text, value, working);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    VxMainWindow* m_window;
    QString m_text;
    float m_value = 0.f;
    int m_depth = 0;
};

// The command line: Up and Down walk the history.
class CommandLine : public QLineEdit
{
public:
    std::function<void(int)> walk;

protected:
    void keyPressEvent(QKeyEvent* e) override
    {
        if (walk && (e->key() == Qt::Key_Up || e->key() == Qt::Key_Down))
            walk(e->key() == Qt::Key_Up ? -1 : 1);
        else
            QLineEdit::keyPressEvent(e);
    }
};

// Refuses every command: the scripts under way when the window closed end at their next one.
int refuseCommand(ClientData, Tcl_Interp* interp, int, const char*, Tcl_Command, int, Tcl_Obj* const*)
{
    Tcl_SetObjResult(interp, Tcl_NewStringObj("the window was closed", -1));
    return TCL_ERROR;
}

} // namespace

// Counts the scripts under way while it lives; the last one to end lets commands run again.
struct VxMainWindow::ScriptRunning
{
    explicit ScriptRunning(VxMainWindow& window) : m_window(window) { ++window.m_scriptsRunning; }
    ~ScriptRunning()
    {
        if (--m_window.m_scriptsRunning > 0 || !m_window.m_refusal) return;
        Tcl_DeleteTrace(VxApplication::instance()->interpreter()->getTclInterp(), m_window.m_refusal);
        m_window.m_refusal = nullptr;
    }
    VxMainWindow& m_window;
};

VxMainWindow::VxMainWindow(VxHostSession& host) : m_host(host)
{
    setWindowTitle("vxviewer");
    resize(1280, 800);
    auto* center = new QWidget;
    setCentralWidget(center);
    auto* centerLayout = new QVBoxLayout(center);
    centerLayout->setContentsMargins(0, 0, 0, 0);
    m_viewer = new SoQtExaminerViewer(center);
    centerLayout->addWidget(m_viewer->getWidget());
    m_viewer->setSceneGraph(VxApplication::instance()->getSceneRoot());
    m_viewer->setBackgroundColor(SbColor(0.12f, 0.12f, 0.14f));

    m_project = new QListWidget;
    auto* projectDock = new QDockWidget(tr("Project"), this);
    projectDock->setObjectName("project");
    projectDock->setWidget(m_project);
    addDockWidget(Qt::LeftDockWidgetArea, projectDock);

    m_panel = new VxPortPanel([this](const QStringList& words) { run(words); });
    auto* scroll = new QScrollArea;
    scroll->setWidget(m_panel);
    scroll->setWidgetResizable(true);
    auto* portsDock = new QDockWidget(tr("Ports"), this);
    portsDock->setObjectName("ports");
    portsDock->setWidget(scroll);
    addDockWidget(Qt::RightDockWidgetArea, portsDock);
    connect(m_project, &QListWidget::currentTextChanged, [this](const QString& item) {
        m_panel->setObject(VxApplication::instance()->objectPool()->findObject(item.section(' ', 0, 0)));
    });

    auto* consoleBox = new QWidget;
    auto* consoleLayout = new QVBoxLayout(consoleBox);
    m_console = new QPlainTextEdit;
    m_console->setReadOnly(true);
    m_console->setMaximumBlockCount(5000);
    auto* line = new CommandLine;
    line->walk = [this, line](int step) {
        if (m_history.isEmpty()) return;
        m_historyAt = qBound(0, m_historyAt + step, m_history.size());
        line->setText(m_historyAt < m_history.size() ? m_history[m_historyAt] : QString());
    };
    m_commandLine = line;
    m_commandLine->setPlaceholderText(tr("Tcl command (Up/Down: history)"));
    m_commandLine->setCompleter(new QCompleter(new QStringListModel(this), this));
    connect(m_commandLine, &QLineEdit::returnPressed, this, &VxMainWindow::runCommandLine);
    consoleLayout->addWidget(m_console);
    consoleLayout->addWidget(m_commandLine);
    auto* consoleDock = new QDockWidget(tr("Console"), this);
    consoleDock->setObjectName("console");
    consoleDock->setWidget(consoleBox);
    addDockWidget(Qt::BottomDockWidgetArea, consoleDock);
    resizeDocks({projectDock, portsDock}, {200, 420}, Qt::Horizontal);
    resizeDocks({consoleDock}, {180}, Qt::Vertical);

    m_progress = new QProgressBar;
    m_progress->setRange(0, 1000);
    m_progress->setVisible(false);
    m_stop = new QPushButton(tr("Stop"));
    m_stop->setVisible(false);
    connect(m_stop, &QPushButton::clicked, [this] { stopRequested = true; });
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_stop);
    VxApplication::instance()->setProgress(std::make_unique<WindowProgress>(this));

    VxMessage* messages = VxApplication::instance()->message();
    messages->setConsole(nullptr);
    messages->setErrorConsole(nullptr);
    messages->setListener([this](const QString& text, int kind) { say(text, kind); });

    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Open Data..."), this, &VxMainWindow::openDialog, QKeySequence::Open);
    file->addAction(tr("&Load Network..."), this, &VxMainWindow::loadNetworkDialog);
    m_recent = file->addMenu(tr("&Recent Files"));
    for (const QString& recent : QSettings("vxiso", "vxviewer").value("recent").toStringList())
        m_recent->addAction(recent, [this, recent] { open(recent); });
    file->addAction(tr("&Save Network..."), this, &VxMainWindow::saveNetworkDialog, QKeySequence::Save);
    file->addAction(tr("&Export Geometry..."), this, &VxMainWindow::exportDialog);
    file->addAction(tr("S&napshot..."), this, &VxMainWindow::snapshotDialog);
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);
    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(tr("View &All"), [this] { viewAll(); });
    view->addSeparator();
    for (const char* axis : {"+x", "-x", "+y", "-y", "+z", "-z"})
        view->addAction(tr("Look along %1").arg(axis), [this, axis] { lookAlong(axis); });
    view->addSeparator();
    QAction* perspective = view->addAction(tr("&Perspective"));
    perspective->setCheckable(true);
    perspective->setChecked(true);
    connect(perspective, &QAction::toggled, [this](bool on) {
        m_viewer->setCameraType(on ? SoPerspectiveCamera::getClassTypeId()
                                   : SoOrthographicCamera::getClassTypeId());
    });
    QMenu* prefs = menuBar()->addMenu(tr("&Preferences"));
    QAction* simplified = prefs->addAction(tr("Simplified rendering while dragging"));
    simplified->setCheckable(true);
    simplified->setChecked(VxApplication::instance()->getPreferences().simplifiedRenderingDuringInteraction);
    connect(simplified, &QAction::toggled, [this](bool on) {
        run({"preferences", "simplifiedRendering", on ? "1" : "0"});
    });

    // The window as the user left it last time.
    const QSettings settings("vxiso", "vxviewer");
    restoreGeometry(settings.value("geometry").toByteArray());
    restoreState(settings.value("docks").toByteArray());

    // Networks written for vxhost read their arguments; a window gives none.
    VxApplication::instance()->interpreter()->eval("set argc 0; set argv {}; set argv0 vxviewer");

    // Objects come and go through scripts too: the project follows.
    auto* poll = new QTimer(this);
    connect(poll, &QTimer::timeout, this, &VxMainWindow::refreshProject);
    poll->start(300);
    refreshProject();
}

VxMainWindow::~VxMainWindow()
{
    VxApplication::instance()->message()->setListener(nullptr);
    // The host outlives the window: its work reports to no window from now on.
    struct Unseen : KxProgressInterface
    {
        void setProgressValue(float) override {}
    };
    VxApplication::instance()->setProgress(std::make_unique<Unseen>());
    // The viewer is no Qt object, so its widget's parent would not delete it, and its pending
    // redraw would later run on a widget that is gone.
    delete m_viewer;
}

void VxMainWindow::say(const QString& line, int kind)
{
    const QString html = line.toHtmlEscaped();
    m_console->appendHtml(kind == 2   ? "<span style='color:#d03030'>" + html + "</span>"
                          : kind == 1 ? "<span style='color:#c08000'>" + html + "</span>"
                                      : html);
}

void VxMainWindow::showWork(const QString& text, float value, bool working)
{
    m_progress->setVisible(working);
    m_stop->setVisible(working);
    m_progress->setValue(int(value * 1000));
    statusBar()->showMessage(working ? text : QString());
}

bool VxMainWindow::run(const QStringList& words)
{
    if (m_closing) return false;
    const ScriptRunning running(*this);
    try {
        const QString result = m_host.run(words, words.value(0));
        if (!result.isEmpty()) say(result, 0);
        refreshProject();
        return true;
    } catch (const KxException& e) {
        say(e.text(), 2);
        return false;
    }
}

void VxMainWindow::runCommandLine()
{
    const QString command = m_commandLine->text().trimmed();
    if (command.isEmpty() || m_closing) return;
    m_history.append(command);
    m_historyAt = m_history.size();
    say("> " + command, 0);
    QString result;
    int code;
    {
        const ScriptRunning running(*this);
        code = VxApplication::instance()->interpreter()->eval(command, &result);
    }
    if (!result.isEmpty()) say(result, code == 0 ? 0 : 2);
    m_commandLine->clear();
    refreshProject();
    m_panel->refresh();
}

void VxMainWindow::refreshProject()
{
    QStringList shown;
    for (VxObject* o : VxApplication::instance()->objectPool()->getObjects()) {
        QString item = o->getName();
        QStringList sources;
        for (VxPort* p : o->getAllPorts())
            if (auto* c = dynamic_cast<VxConnection*>(p))
                if (c->getSource()) sources << c->getSource()->getName();
        if (!sources.isEmpty()) item += "  <- " + sources.join(", ");
        shown << item;
    }
    if (shown == m_shownObjects) return;
    m_shownObjects = shown;
    const QString current =
        m_project->currentItem() ? m_project->currentItem()->text().section(' ', 0, 0) : QString();
    m_project->clear();
    m_project->addItems(shown);
    for (int i = 0; i < m_project->count(); ++i)
        if (m_project->item(i)->text().section(' ', 0, 0) == current) m_project->setCurrentRow(i);
    QStringList names;
    for (const QString& s : shown) names << s.section(' ', 0, 0);
    static_cast<QStringListModel*>(m_commandLine->completer()->model())->setStringList(names);
}

bool VxMainWindow::open(const QString& path)
{
    const bool network = QFileInfo(path).suffix().compare("tcl", Qt::CaseInsensitive) == 0;
    const bool ok = run({network ? "loadNetwork" : "load", path});
    viewAll();
    // The newest object is the one a user wants to see the ports of.
    if (m_project->count() > 0) m_project->setCurrentRow(m_project->count() - 1);
    if (!ok && isVisible() && !m_quiet)
        QMessageBox::warning(this, tr("Open"), tr("%1 could not be opened; the console says why.").arg(path));
    if (ok) rememberRecent(path);
    return ok;
}

void VxMainWindow::rememberRecent(const QString& path)
{
    QSettings settings("vxiso", "vxviewer");
    QStringList recent = settings.value("recent").toStringList();
    recent.removeAll(QFileInfo(path).absoluteFilePath());
    recent.prepend(QFileInfo(path).absoluteFilePath());
    while (recent.size() > 8) recent.removeLast();
    settings.setValue("recent", recent);
    m_recent->clear();
    for (const QString& file : recent) m_recent->addAction(file, [this, file] { open(file); });
}

void VxMainWindow::openDialog()
{
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Open Data"), QString(),
                                     tr("Data (*.nii *.nii.gz *.hdr *.img *.nrrd *.nhdr *.mha "
                                        "*.mhd *.vtk *.vtu *.msh *.vxblocks *.iv);;All (*)"));
    if (!path.isEmpty()) open(path);
}

void VxMainWindow::loadNetworkDialog()
{
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Load Network"), QString(), tr("Networks (*.tcl)"));
    if (!path.isEmpty()) run({"loadNetwork", path});
}

void VxMainWindow::saveNetworkDialog()
{
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Save Network"), QString(), tr("Networks (*.tcl)"));
    if (!path.isEmpty()) run({"saveNetwork", path});
}

void VxMainWindow::exportDialog()
{
    VxObject* object = m_panel->object();
    if (!object) return say(tr("Select a module in the project first."), 1);
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Export Geometry"), QString(),
                                     tr("Meshes (*.ply *.stl *.off *.obj *.vtk *.iv);;Lines (*.vtk *.iv)"));
    if (!path.isEmpty()) run({object->getName(), "exportData", QFileInfo(path).suffix().toLower(), path});
}

void VxMainWindow::snapshotDialog()
{
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Snapshot"), QString(), tr("Pictures (*.png)"));
    if (!path.isEmpty() && !screenshot(path)) say(tr("cannot write %1").arg(path), 2);
}

bool VxMainWindow::screenshot(const QString& path)
{
    QImage window = grab().toImage();
    // A window grab leaves an OpenGL widget's area empty: the viewer's scene is drawn again
    // off-screen through its own camera, with the widget's context let go for the while.
    QWidget* gl = m_viewer->getGLWidget();
    if (auto* context = qobject_cast<QGLWidget*>(gl)) context->doneCurrent();
    SoOffscreenEGLRenderer renderer(gl->width(), gl->height());
    renderer.setBackgroundColor(m_viewer->getBackgroundColor());
    if (renderer.render(m_viewer->getSceneManager()->getSceneGraph())) {
        QPainter painter(&window);
        painter.drawImage(gl->mapTo(this, QPoint(0, 0)), renderer.getImage());
    } else {
        say(renderer.errorString(), 1);
    }
    return window.save(path, "PNG");
}

void VxMainWindow::viewAll()
{
    // Fitted to what is drawn: the viewer's own fit takes Open Inventor's box, which turned labels
    // blow up.
    SoCamera* camera = m_viewer->getCamera();
    const SbBox3f box = oivShapesBox(VxApplication::instance()->getSceneRoot());
    if (!camera || box.isEmpty()) return m_viewer->viewAll();
    camera->viewBoundingBox(box, m_viewer->getViewportRegion().getViewportAspectRatio(), 1.0f);
}

bool VxMainWindow::lookAlong(const QString& axis)
{
    const int which = QString("xyz").indexOf(axis.right(1));
    if (axis.size() != 2 || (axis[0] != '+' && axis[0] != '-') || which < 0) return false;
    SbVec3f direction(0, 0, 0);
    direction[which] = axis[0] == '+' ? 1.f : -1.f;
    // z up for views along x and y (a head in RAS coordinates stands upright), y up along z.
    const SbVec3f up = which == 2 ? SbVec3f(0, 1, 0) : SbVec3f(0, 0, 1);
    SoCamera* camera = m_viewer->getCamera();
    if (!camera) return false;
    // The camera looks along its -z and has its y up.
    SbRotation turn(SbVec3f(0, 0, -1), direction);
    SbVec3f turnedUp;
    turn.multVec(SbVec3f(0, 1, 0), turnedUp);
    camera->orientation = turn * SbRotation(turnedUp, up);
    viewAll();
    return true;
}

void VxMainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    // The viewer's first frame can come before the window system has the window ready (under a
    // virtual display it then stays black until the scene changes again): draw once more shortly
    // after.
    QTimer::singleShot(100, this, [this] { m_viewer->scheduleRedraw(); });
}

void VxMainWindow::closeEvent(QCloseEvent* event)
{
    // Work still running stops at its next check and a failed extraction keeps no part of its
    // result. A script still running (a network being loaded) ends before its next command: what
    // it meant to do with the result, an export above all, must not run on the old one.
    m_closing = true;
    if (m_scriptsRunning > 0 && !m_refusal)
        m_refusal = Tcl_CreateObjTrace(VxApplication::instance()->interpreter()->getTclInterp(), 0, 0,
                                       refuseCommand, nullptr, nullptr);
    QSettings settings("vxiso", "vxviewer");
    settings.setValue("geometry", saveGeometry());
    settings.setValue("docks", saveState());
    event->accept();
}
