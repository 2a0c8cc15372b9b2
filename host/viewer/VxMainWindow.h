#pragma once
#include <QMainWindow>
#include <QStringList>

#include <atomic>

class QLineEdit;
class QMenu;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class SoQtExaminerViewer;
class VxHostSession;
class VxPortPanel;
struct Tcl_Trace_;

// The desktop face of the host: the 3-D viewer of the host's scene, the project (objects in creation
// order, with what each is connected to), the selected object's ports, and a console with the host's
// messages and a command line. Everything a widget does is a script command of the host's, so the
// console shows it and a saved network replays it.
class VxMainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit VxMainWindow(VxHostSession& host);
    ~VxMainWindow() override;

    // A data file (any format the readers take) or a network (.tcl); false after an error, which the
    // console shows.
    bool open(const QString& path);
    // The whole window as a PNG, the viewer's picture included.
    bool screenshot(const QString& path);
    // Runs a script command; its result or error goes to the console.
    bool run(const QStringList& words);
    // Points the camera along an axis ("+x", "-y", ...) and shows everything; false for another word.
    bool lookAlong(const QString& axis);
    // Shows everything the scene draws.
    void viewAll();
    // No message boxes: for runs without a user (screenshots, tests).
    void setQuiet(bool quiet) { m_quiet = quiet; }

    // For the progress interface: whether Stop was pressed since the work began.
    std::atomic<bool> stopRequested{false};
    void showWork(const QString& text, float value, bool working);
    // Once the window is closed, work still running stops and no command runs any more.
    bool isClosing() const { return m_closing; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void say(const QString& line, int kind);
    void refreshProject();
    void runCommandLine();
    void openDialog();
    void saveNetworkDialog();
    void loadNetworkDialog();
    void exportDialog();
    void snapshotDialog();
    void rememberRecent(const QString& path);

    VxHostSession& m_host;
    SoQtExaminerViewer* m_viewer = nullptr;
    QListWidget* m_project = nullptr;
    VxPortPanel* m_panel = nullptr;
    QPlainTextEdit* m_console = nullptr;
    QLineEdit* m_commandLine = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_stop = nullptr;
    QStringList m_history;
    int m_historyAt = 0;
    bool m_quiet = false;
    struct ScriptRunning;
    bool m_closing = false;
    int m_scriptsRunning = 0;        // nested: progress handles the window's events during long work
    Tcl_Trace_* m_refusal = nullptr; // the trace that stops the scripts under way at closing
    QMenu* m_recent = nullptr;
    QStringList m_shownObjects;
};
