#pragma once
#include <QHash>
#include <QString>

#include <tcl.h>

class VxObject;

// The host's script interpreter: a Tcl 8.6 interpreter in which every object of the project is a
// command. It keeps what a running script declared: its compatibility version, and whether it is
// a saved network being loaded.
class VxInterpreter
{
public:
    // The version of this host; scripts that declare none are taken to be written for it.
    static constexpr int CURRENT_VERSION = 1000;

    VxInterpreter();
    ~VxInterpreter();
    VxInterpreter(const VxInterpreter&) = delete;
    VxInterpreter& operator=(const VxInterpreter&) = delete;

    Tcl_Interp* getTclInterp() const { return m_interp; }

    // Evaluates a script; returns TCL_OK or TCL_ERROR, the result (or error text) in *result.
    int eval(const QString& script, QString* result = nullptr);
    // Runs a script file. A saved network (first line "# vxhost network") is run with
    // networkIsLoading() true. The compatibility version declared inside lasts until its end.
    int evalFile(const QString& path, QString* result = nullptr);

    bool networkIsLoading() const { return m_loading > 0; }
    int getCompatibilityVersion() const { return m_compatibilityVersion; }
    void setCompatibilityVersion(int version) { m_compatibilityVersion = version; }
    bool isDeprecationWarningAllowed() const { return m_deprecationWarnings; }
    void setDeprecationWarningAllowed(bool on) { m_deprecationWarnings = on; }

    // A command of the host. Every host command runs behind one guard: an exception it throws
    // becomes its error result ("NAME: text"), as it does for object commands, instead of ending
    // the process.
    void addCommand(const char* name, Tcl_CmdProc* proc);

    // Makes the object a command named by its label, or deletes exactly that command, whatever it
    // is called by now. The object follows renames of its command (its label becomes the new
    // name); deleting the command otherwise (rename NAME "", a proc of that name) removes the
    // object from the pool, as closing a window drops what it shows: an object that no script can
    // reach would still be saved in networks and kept alive.
    void addObjectCommand(VxObject* object);
    void removeObjectCommand(VxObject* object);
    // Whether the name is a command of the interpreter, other than the command of except.
    bool hasCommand(const QString& name, const VxObject* except = nullptr) const;

    // Object commands of modules: cmdCheck tells whether the command word is that command and
    // records its usage for cmdHelp; cmdHelp sets the usage of a command as the result and prints it.
    bool cmdCheck(const QString& word, const QString& command, const QString& usage);
    void cmdHelp(Tcl_Interp* interp, const char* command, bool print, int argc, char** argv);

    // Runs update() and compute() of every module with pending changes, in project order, until
    // none is left (a computation may touch modules downstream). The host does so whenever a
    // command line or script has finished, as an interactive host does when it becomes idle.
    void processPendingModules();

private:
    friend struct VxInterpreterCommands;
    static void objectCommandDeleted(ClientData object);
    static void objectCommandRenamed(ClientData object, Tcl_Interp* interp, const char* oldName,
                                     const char* newName, int flags);

    Tcl_Interp* m_interp;
    // Tcl's own rename, which the host's rename checks object names for, then calls.
    Tcl_CmdInfo m_tclRename{};
    int m_loading = 0;
    int m_compatibilityVersion = CURRENT_VERSION;
    bool m_deprecationWarnings = true;
    QHash<QString, QString> m_usage;
};

// Sets the interpreter's result from a printf format.
void Tcl_VaSetResult(Tcl_Interp* interp, const char* format, ...) __attribute__((format(printf, 2, 3)));
