#pragma once
#include <vx/VxPackageManager.h>

#include <QList>
#include <QString>
#include <QStringList>

class VxObject;

// The host as its programs run it: the application with a progress bar on the terminal and the
// file formats, and the packages it loaded. It ends in the one order that works: objects before the
// packages whose code they run. One per process, made after the QCoreApplication.
class VxHostSession
{
public:
    VxHostSession();
    ~VxHostSession();
    VxHostSession(const VxHostSession&) = delete;
    VxHostSession& operator=(const VxHostSession&) = delete;

    // Every package library of the default folders; one that does not load gets a warning.
    void loadPackages();
    // The one library (e.g. "libvxiso.so") from the first default folder that holds it; throws
    // KxException when none does or it does not load.
    void loadPackage(const QString& library);
    const QList<VxPackageManager::Package>& packages() const { return m_packages.packages(); }

    // Objects, then packages, from inside a running script (Tcl's exit): the interpreter cannot be
    // deleted under its own command, and the process ends right after.
    void releaseFromScript();

    // The object under the name, as `load` would give it.
    void add(VxObject* object, const QString& name);
    VxObject* find(const QString& name) const;

    // One command of the host's language; the words are quoted as Tcl needs. A failure throws
    // KxException saying what was being done (what, in the user's terms) and why, never the
    // command itself: the object, port or command the error starts with are names of this
    // program's own script.
    QString run(const QStringList& words, const QString& what);

private:
    VxPackageManager m_packages;
};
