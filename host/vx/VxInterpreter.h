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

    // Makes the object a command named by its label (or removes that command).
    void addObjectCommand(VxObject* object);
    void removeObjectCommand(VxObject* object);

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
    Tcl_Interp* m_interp;
    int m_loading = 0;
    int m_compatibilityVersion = CURRENT_VERSION;
    bool m_deprecationWarnings = true;
    QHash<QString, QString> m_usage;
};

// Sets the interpreter's result from a printf format.
void Tcl_VaSetResult(Tcl_Interp* interp, const char* format, ...) __attribute__((format(printf, 2, 3)));
