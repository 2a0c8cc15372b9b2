// vxhost: the scriptable host. Every object of the project is a Tcl command.
//   vxhost                      an interactive Tcl shell
//   vxhost script.tcl [args]    runs a script (a saved network loads and recomputes)
//   vxhost -e 'commands'        runs commands and prints their result
#include "VxHostSession.h"
#include <kx/KxMemory.h>

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#ifdef VXHOST_HAVE_READLINE
#include <readline/history.h>
#include <readline/readline.h>
#endif

namespace {

const char* kUsage =
    "usage: vxhost [options] [SCRIPT [ARGS...]]\n"
    "\n"
    "Runs SCRIPT (a Tcl script or a saved network), or the commands given with -e, or else an\n"
    "interactive shell. Package libraries are loaded from the folder of this program and the\n"
    "folders of VXHOST_PACKAGE_PATH (colon-separated).\n"
    "\n"
    "options:\n"
    "  -e COMMANDS      run the commands (after SCRIPT, if one is given) and print their result;\n"
    "                   several -e run in order\n"
    "  --no-packages    start without loading any package\n"
    "  -h, --help       this text\n"
    "\n"
    "Commands: create CLASS ?NAME?, remove NAME..., all ?-type CLASS?, load ?-labels? FILE ?NAME?,\n"
    "NAME PORT VERB ..., NAME fire, saveNetwork FILE, loadNetwork FILE, compatibilityVersion ?N?,\n"
    "typeinfo ?CLASS?, packages, preferences, exit. See the README for the conventions.\n"
    "\n"
    "Exit status: 0, or 1 when a script or command failed or a module reported an error.\n";

// The session of main, for Tcl's exit and the packages command.
VxHostSession* g_session = nullptr;

void exitProc(ClientData code)
{
    g_session->releaseFromScript();
    std::fflush(stdout);
    _exit(int(reinterpret_cast<intptr_t>(code)));
}

int packagesCommand(ClientData, Tcl_Interp* interp, int argc, const char**)
{
    if (argc != 1) {
        Tcl_SetResult(interp, const_cast<char*>("usage: packages"), TCL_STATIC);
        return TCL_ERROR;
    }
    Tcl_Obj* list = Tcl_NewListObj(0, nullptr);
    for (const VxPackageManager::Package& p : g_session->packages()) {
        Tcl_Obj* entry[3] = {Tcl_NewStringObj(p.name.toUtf8().constData(), -1),
                             Tcl_NewStringObj(p.version.toUtf8().constData(), -1),
                             Tcl_NewStringObj(p.path.toUtf8().constData(), -1)};
        Tcl_ListObjAppendElement(interp, list, Tcl_NewListObj(3, entry));
    }
    Tcl_SetObjResult(interp, list);
    return TCL_OK;
}

// The error and where it happened, as Tcl tells it.
QString errorInfo(VxInterpreter* vi)
{
    const char* info = Tcl_GetVar(vi->getTclInterp(), "errorInfo", TCL_GLOBAL_ONLY);
    return QString::fromUtf8(info ? info : Tcl_GetStringResult(vi->getTclInterp()));
}

int interactive(VxInterpreter* vi)
{
    std::string command;
    bool tty = isatty(STDIN_FILENO);
    for (;;) {
        const char* prompt = command.empty() ? "vxhost> " : "> ";
        std::string line;
#ifdef VXHOST_HAVE_READLINE
        if (tty) {
            char* text = readline(prompt);
            if (!text) break;
            line = text;
            if (*text) add_history(text);
            free(text);
        } else
#endif
        {
            if (tty) {
                std::fputs(prompt, stdout);
                std::fflush(stdout);
            }
            char buf[4096];
            if (!std::fgets(buf, sizeof buf, stdin)) break;
            line = buf;
            if (!line.empty() && line.back() == '\n') line.pop_back();
        }
        command += line;
        command += '\n';
        if (!Tcl_CommandComplete(command.c_str())) continue;
        QString result;
        int code = vi->eval(QString::fromStdString(command), &result);
        command.clear();
        if (code == TCL_OK) {
            if (!result.isEmpty()) std::printf("%s\n", result.toUtf8().constData());
        } else {
            std::fprintf(stderr, "error: %s\n", result.toUtf8().constData());
        }
        std::fflush(stdout);
    }
    if (tty) std::fputs("\n", stdout);
    return 0;
}

// What the command line asks for; the first word that is no option is the script, the rest its
// arguments.
struct Invocation
{
    std::vector<std::string> commands;
    bool loadPackages = true;
    int script = 0; // argv index of the script, argc when there is none
};

// Returns -1 when the run goes on, else the exit status (help, or a wrong command line).
int parse(int argc, char** argv, Invocation& run)
{
    int i = 1;
    for (; i < argc; ++i) {
        if (!strcmp(argv[i], "-h") || !strcmp(argv[i], "--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (!strcmp(argv[i], "-e")) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxhost: error: -e needs the commands to run\n%s", kUsage);
                return 2;
            }
            run.commands.emplace_back(argv[++i]);
        } else if (!strcmp(argv[i], "--no-packages")) {
            run.loadPackages = false;
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            std::fprintf(stderr, "vxhost: error: unknown option \"%s\"\n%s", argv[i], kUsage);
            return 2;
        } else {
            break;
        }
    }
    run.script = i;
    return -1;
}

// Scripts see their arguments as Tcl's own shell passes them.
void passArguments(Tcl_Interp* interp, int argc, char** argv, const Invocation& run)
{
    const char* script = run.script < argc ? argv[run.script] : nullptr;
    const int first = script ? run.script + 1 : run.script;
    Tcl_Obj* args = Tcl_NewListObj(0, nullptr);
    for (int k = first; k < argc; ++k) Tcl_ListObjAppendElement(interp, args, Tcl_NewStringObj(argv[k], -1));
    Tcl_SetVar2Ex(interp, "argv", nullptr, args, TCL_GLOBAL_ONLY);
    Tcl_SetVar2Ex(interp, "argc", nullptr, Tcl_NewIntObj(argc - first), TCL_GLOBAL_ONLY);
    Tcl_SetVar2Ex(interp, "argv0", nullptr, Tcl_NewStringObj(script ? script : argv[0], -1), TCL_GLOBAL_ONLY);
    Tcl_SetVar2Ex(interp, "tcl_interactive", nullptr,
                  Tcl_NewIntObj(!script && run.commands.empty() && isatty(0)), TCL_GLOBAL_ONLY);
}

// The script, then the commands; the first failure ends the run with 1. Modules report their
// failures as messages, not as script errors; they fail the run too.
int runBatch(VxInterpreter* vi, const char* script, const std::vector<std::string>& commands)
{
    VxMessage* message = VxApplication::instance()->message();
    const int errorsBefore = message->errors().size();
    int status = 0;
    if (script) {
        QString result;
        if (vi->evalFile(QString::fromUtf8(script), &result) != TCL_OK) {
            std::fprintf(stderr, "vxhost: error in %s: %s\n", script, errorInfo(vi).toUtf8().constData());
            status = 1;
        }
    }
    for (std::size_t k = 0; status == 0 && k < commands.size(); ++k) {
        QString result;
        if (vi->eval(QString::fromStdString(commands[k]), &result) != TCL_OK) {
            std::fprintf(stderr, "vxhost: error: %s\n", result.toUtf8().constData());
            status = 1;
        } else if (!result.isEmpty()) {
            std::printf("%s\n", result.toUtf8().constData());
        }
    }
    if (status == 0 && message->errors().size() > errorsBefore) status = 1;
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    kxReturnLargeBlocksToSystem();
    QCoreApplication qapp(argc, argv);
    Invocation run;
    if (const int status = parse(argc, argv, run); status >= 0) return status;

    VxHostSession session;
    g_session = &session;
    VxInterpreter* vi = VxApplication::instance()->interpreter();
    Tcl_SetExitProc(exitProc);
    if (run.loadPackages) session.loadPackages();
    vi->addCommand("packages", packagesCommand);
    passArguments(vi->getTclInterp(), argc, argv, run);

    const char* script = run.script < argc ? argv[run.script] : nullptr;
    int status = runBatch(vi, script, run.commands);
    if (!script && run.commands.empty()) status = interactive(vi);
    std::fflush(stdout);
    return status;
}
