#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxModule.h>
#include <vx/VxNetwork.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPreferences.h>

#include <kx/KxException.h>
#include <kx/KxString.h>
#include <oiv/SoOffscreenEGLRenderer.h>

#include <Inventor/nodes/SoSeparator.h>

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <cstdarg>
#include <cstring>

namespace {

VxApplication* app()
{
    return VxApplication::instance();
}

int fail(Tcl_Interp* interp, const QString& text)
{
    vxscript::setResult(interp, text);
    return TCL_ERROR;
}

// The text of the exception being handled; call it only inside a catch block.
QString exceptionText()
{
    try {
        throw;
    } catch (const KxException& e) {
        return e.text();
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return "an exception of unknown type";
    }
}

// The one boundary between Tcl and the host's C++: what a command throws becomes its error.
template <class Run> int guarded(Tcl_Interp* interp, const QString& who, Run&& run)
{
    try {
        return run();
    } catch (...) {
        return fail(interp, QString("%1: %2").arg(who, exceptionText()));
    }
}

int objectCommand(ClientData data, Tcl_Interp* interp, int argc, const char** argv)
{
    auto* object = static_cast<VxObject*>(data);
    // The command may remove the object; keep it alive until the command returns.
    object->ref();
    const int code = guarded(interp, QString("\"%1\"").arg(object->getName()),
                             [&] { return object->parse(interp, argc, const_cast<char**>(argv)); });
    object->unref();
    return code;
}

struct HostCommand
{
    Tcl_CmdProc* proc;
};

int hostCommand(ClientData data, Tcl_Interp* interp, int argc, const char** argv)
{
    Tcl_CmdProc* proc = static_cast<HostCommand*>(data)->proc;
    return guarded(interp, QString::fromUtf8(argv[0]), [&] { return proc(nullptr, interp, argc, argv); });
}

// The label an object takes from its command's name: names in the global namespace without "::".
QString labelOfCommandName(const char* name)
{
    const QString label = QString::fromUtf8(name);
    return label.startsWith("::") ? label.mid(2) : label;
}

// Tcl's rename, refused where an object would take a name that it may not have.
int renameCommand(ClientData data, Tcl_Interp* interp, int objc, Tcl_Obj* const objv[])
{
    const auto* tclRename = static_cast<const Tcl_CmdInfo*>(data);
    Tcl_CmdInfo info;
    const Tcl_Command command = objc == 3 ? Tcl_GetCommandFromObj(interp, objv[1]) : nullptr;
    const char* newName = objc == 3 ? Tcl_GetString(objv[2]) : "";
    if (command && *newName && Tcl_GetCommandInfoFromToken(command, &info) && info.proc == objectCommand) {
        QString why;
        if (!app()->objectPool()->mayTakeName(labelOfCommandName(newName),
                                              static_cast<VxObject*>(info.clientData), &why))
            return fail(interp, "rename: " + why);
    }
    return tclRename->objProc(tclRename->objClientData, interp, objc, objv);
}

} // namespace

// The host's top-level commands.
struct VxInterpreterCommands
{
    static int create(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        if (argc < 2 || argc > 3) return fail(interp, "usage: create CLASS ?NAME?");
        const KxTypeInfo* type = KxTypeInfo::fromName(argv[1]);
        if (!type)
            return fail(interp,
                        QString("create: unknown class \"%1\" (typeinfo lists the classes)").arg(argv[1]));
        if (!type->isDerivedFrom(VxObject::getClassTypeId()) || !type->canCreate())
            return fail(interp,
                        QString("create: class \"%1\" cannot be created (it is abstract or not an object)")
                            .arg(argv[1]));
        VxObjectPool* pool = app()->objectPool();
        QString name = QString::fromUtf8(argc == 3 ? argv[2] : argv[1]), why;
        if (argc == 3 && !pool->mayTakeName(name, nullptr, &why)) return fail(interp, "create: " + why);
        if (argc == 2) name = pool->makeUniqueLabel(name);
        KxTypedObject* typed = type->createInstance();
        auto* object = dynamic_cast<VxObject*>(typed);
        if (!object) {
            delete typed;
            return fail(interp, QString("create: class \"%1\" made no object").arg(argv[1]));
        }
        object->setLabel(name);
        pool->addObject(object);
        vxscript::setResult(interp, object->getName());
        return TCL_OK;
    }

    static int remove(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        if (argc < 2) return fail(interp, "usage: remove NAME... | remove -all");
        VxObjectPool* pool = app()->objectPool();
        if (argc == 2 && !strcmp(argv[1], "-all")) {
            pool->removeAll();
            return TCL_OK;
        }
        for (int i = 1; i < argc; ++i)
            if (!pool->findObject(QString::fromUtf8(argv[i])))
                return fail(interp, QString("remove: there is no object \"%1\"").arg(argv[i]));
        for (int i = 1; i < argc; ++i) pool->removeObject(pool->findObject(QString::fromUtf8(argv[i])));
        return TCL_OK;
    }

    static int all(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        const KxTypeInfo* type = nullptr;
        if (argc == 3 && !strcmp(argv[1], "-type")) {
            type = KxTypeInfo::fromName(argv[2]);
            if (!type) return fail(interp, QString("all: unknown class \"%1\"").arg(argv[2]));
        } else if (argc != 1) {
            return fail(interp, "usage: all ?-type CLASS?");
        }
        QStringList names;
        for (VxObject* o : app()->objectPool()->getObjects(type)) names << o->getName();
        vxscript::setResult(interp, vxscript::join(names));
        return TCL_OK;
    }

    static int load(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        int i = 1;
        bool labels = false;
        if (i < argc && !strcmp(argv[i], "-labels")) {
            labels = true;
            ++i;
        }
        if (argc - i < 1 || argc - i > 2) return fail(interp, "usage: load ?-labels? FILE ?NAME?");
        QString path = QString::fromUtf8(argv[i]);
        QString name = argc - i == 2 ? QString::fromUtf8(argv[i + 1]) : QString();
        VxObjectPool* pool = app()->objectPool();
        QString why;
        if (!name.isEmpty() && !pool->mayTakeName(name, nullptr, &why)) return fail(interp, "load: " + why);
        if (!app()->loader()) return fail(interp, "load: this host reads no file formats");
        VxObject* object = app()->loader()(path, labels, &why);
        if (!object) return fail(interp, why.isEmpty() ? QString("load: cannot read \"%1\"").arg(path) : why);
        if (name.isEmpty()) name = pool->makeUniqueLabel(QFileInfo(path).fileName());
        object->setLabel(name);
        pool->addObject(object);
        QStringList words{"load"};
        if (labels) words << "-labels";
        object->setLoadCommand(vxscript::join(words << QFileInfo(path).absoluteFilePath()));
        vxscript::setResult(interp, object->getName());
        return TCL_OK;
    }

    static int saveNetwork(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        if (argc != 2) return fail(interp, "usage: saveNetwork FILE");
        // Modules catch up first, as they would before a user could press save: a module whose
        // ports changed since it ran must not be saved as computed.
        app()->interpreter()->processPendingModules();
        QString why;
        if (!VxNetwork::save(QString::fromUtf8(argv[1]), &why)) return fail(interp, why);
        return TCL_OK;
    }

    static int loadNetwork(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        if (argc != 2) return fail(interp, "usage: loadNetwork FILE");
        VxInterpreter* vi = app()->interpreter();
        ++vi->m_loading;
        QString result;
        int code = vi->evalFile(QString::fromUtf8(argv[1]), &result);
        --vi->m_loading;
        vi->processPendingModules();
        vxscript::setResult(interp, result);
        return code;
    }

    static int compatibilityVersion(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        VxInterpreter* vi = app()->interpreter();
        if (argc == 2) {
            int v;
            if (Tcl_GetInt(nullptr, argv[1], &v) != TCL_OK || v <= 0)
                return fail(interp,
                            QString("compatibilityVersion: \"%1\" is not a positive integer").arg(argv[1]));
            vi->setCompatibilityVersion(v);
        } else if (argc != 1) {
            return fail(interp, "usage: compatibilityVersion ?VERSION?");
        }
        vxscript::setResult(interp, QString::number(vi->getCompatibilityVersion()));
        return TCL_OK;
    }

    static int typeinfo(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        // One line a type: the type, then its parents up to the root.
        auto chain = [](const KxTypeInfo* t) {
            QStringList names;
            for (; t; t = t->getParent()) names << QString::fromUtf8(t->getName());
            return vxscript::join(names);
        };
        if (argc == 2) {
            const KxTypeInfo* t = KxTypeInfo::fromName(argv[1]);
            if (!t) return fail(interp, QString("typeinfo: unknown class \"%1\"").arg(argv[1]));
            vxscript::setResult(interp, chain(t));
            return TCL_OK;
        }
        if (argc != 1) return fail(interp, "usage: typeinfo ?CLASS?");
        QStringList lines;
        for (const KxTypeInfo* t : KxTypeInfo::allTypes()) lines << chain(t);
        vxscript::setResult(interp, lines.join('\n'));
        return TCL_OK;
    }

    // snapshot FILE ?-size W H? ?-view DX DY DZ? ?-up UX UY UZ?: the scene as a PNG picture, through a
    // camera that shows all of it.
    static int snapshot(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        const char* usage = "usage: snapshot FILE ?-size WIDTH HEIGHT? ?-view DX DY DZ? ?-up UX UY UZ?";
        if (argc < 2 || argv[1][0] == '-') return fail(interp, usage);
        int size[2] = {800, 600};
        double view[3] = {0, 0, -1}, up[3] = {0, 1, 0};
        for (int i = 2; i < argc;) {
            const bool isSize = !strcmp(argv[i], "-size");
            double* vector = !strcmp(argv[i], "-view") ? view : !strcmp(argv[i], "-up") ? up : nullptr;
            const int words = isSize ? 2 : 3;
            if ((!isSize && !vector) || i + words >= argc) return fail(interp, usage);
            for (int k = 0; k < words; ++k) {
                const char* word = argv[i + 1 + k];
                if (isSize ? Tcl_GetInt(nullptr, word, &size[k]) != TCL_OK || size[k] < 16 || size[k] > 8192
                           : Tcl_GetDouble(nullptr, word, &vector[k]) != TCL_OK || !std::isfinite(vector[k]))
                    return fail(interp,
                                QString("snapshot: %1 \"%2\" is not %3")
                                    .arg(argv[i], word, isSize ? "a size of 16 to 8192 pixels" : "a number"));
            }
            i += 1 + words;
        }
        QString why;
        if (!SoOffscreenEGLRenderer::isAvailable(&why))
            return fail(interp, "snapshot: no off-screen rendering on this machine: " + why);
        SoOffscreenEGLRenderer renderer(size[0], size[1]);
        renderer.setBackgroundColor(SbColor(0.12f, 0.12f, 0.14f));
        renderer.setViewUp(SbVec3f(float(up[0]), float(up[1]), float(up[2])));
        if (!renderer.renderViewAll(app()->getSceneRoot(),
                                    SbVec3f(float(view[0]), float(view[1]), float(view[2]))))
            return fail(interp, "snapshot: " + renderer.errorString());
        if (!renderer.writePNG(QString::fromUtf8(argv[1]), &why)) return fail(interp, "snapshot: " + why);
        return TCL_OK;
    }

    static int preferences(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        VxPreferences prefs = app()->getPreferences();
        if (argc == 1) {
            vxscript::setResult(
                interp, QString("simplifiedRendering %1").arg(prefs.simplifiedRenderingDuringInteraction));
            return TCL_OK;
        }
        if (strcmp(argv[1], "simplifiedRendering") != 0)
            return fail(
                interp,
                QString("preferences: unknown preference \"%1\"; known: simplifiedRendering").arg(argv[1]));
        if (argc == 3) {
            int on;
            if (Tcl_GetBoolean(nullptr, argv[2], &on) != TCL_OK)
                return fail(interp, QString("preferences: \"%1\" is not a boolean").arg(argv[2]));
            prefs.simplifiedRenderingDuringInteraction = on != 0;
            app()->settings()->setPreferences(prefs);
        } else if (argc != 2) {
            return fail(interp, "usage: preferences ?simplifiedRendering ?BOOLEAN??");
        }
        vxscript::setResult(interp,
                            QString::number(app()->getPreferences().simplifiedRenderingDuringInteraction));
        return TCL_OK;
    }

    static int deprecationWarnings(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        VxInterpreter* vi = app()->interpreter();
        if (argc == 2) {
            int on;
            if (Tcl_GetBoolean(nullptr, argv[1], &on) != TCL_OK)
                return fail(interp, QString("deprecationWarnings: \"%1\" is not a boolean").arg(argv[1]));
            vi->setDeprecationWarningAllowed(on != 0);
        } else if (argc != 1) {
            return fail(interp, "usage: deprecationWarnings ?BOOLEAN?");
        }
        vxscript::setResult(interp, vi->isDeprecationWarningAllowed() ? "1" : "0");
        return TCL_OK;
    }
};

VxInterpreter::VxInterpreter() : m_interp(Tcl_CreateInterp())
{
    Tcl_Init(m_interp); // finds Tcl's own library scripts; the host works without them too
    using C = VxInterpreterCommands;
    struct
    {
        const char* name;
        Tcl_CmdProc* proc;
    } commands[] = {{"create", C::create},
                    {"remove", C::remove},
                    {"all", C::all},
                    {"load", C::load},
                    {"saveNetwork", C::saveNetwork},
                    {"loadNetwork", C::loadNetwork},
                    {"compatibilityVersion", C::compatibilityVersion},
                    {"typeinfo", C::typeinfo},
                    {"preferences", C::preferences},
                    {"snapshot", C::snapshot},
                    {"deprecationWarnings", C::deprecationWarnings}};
    for (auto& c : commands) addCommand(c.name, c.proc);
    if (Tcl_GetCommandInfo(m_interp, "rename", &m_tclRename) && m_tclRename.objProc)
        Tcl_CreateObjCommand(m_interp, "rename", renameCommand, &m_tclRename, nullptr);
}

void VxInterpreter::addCommand(const char* name, Tcl_CmdProc* proc)
{
    Tcl_CreateCommand(m_interp, name, hostCommand, new HostCommand{proc},
                      [](ClientData command) { delete static_cast<HostCommand*>(command); });
}

VxInterpreter::~VxInterpreter()
{
    Tcl_DeleteInterp(m_interp);
}

int VxInterpreter::eval(const QString& script, QString* result)
{
    QByteArray utf8 = script.toUtf8();
    int code = Tcl_EvalEx(m_interp, utf8.constData(), utf8.size(), TCL_EVAL_GLOBAL);
    if (Tcl_InterpDeleted(m_interp)) return code;
    if (!Tcl_InterpActive(m_interp)) processPendingModules();
    if (result) *result = QString::fromUtf8(Tcl_GetStringResult(m_interp));
    return code;
}

int VxInterpreter::evalFile(const QString& path, QString* result)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        QString text = QString("cannot read script \"%1\": %2").arg(path, file.errorString());
        vxscript::setResult(m_interp, text);
        if (result) *result = text;
        return TCL_ERROR;
    }
    bool network = file.readLine().startsWith("# vxhost network");
    file.close();
    // A script's declaration of its version lasts until it ends.
    int savedVersion = m_compatibilityVersion;
    m_compatibilityVersion = CURRENT_VERSION;
    if (network) ++m_loading;
    QByteArray utf8 = path.toUtf8();
    int code = Tcl_EvalFile(m_interp, utf8.constData());
    if (network) --m_loading;
    m_compatibilityVersion = savedVersion;
    if (Tcl_InterpDeleted(m_interp)) return code;
    // A loaded network is complete when its modules have computed, also when a script loads it.
    if (network || !Tcl_InterpActive(m_interp)) processPendingModules();
    if (result) *result = QString::fromUtf8(Tcl_GetStringResult(m_interp));
    return code;
}

void VxInterpreter::processPendingModules()
{
    VxApplication* app = VxApplication::instance();
    VxObjectPool* pool = app->objectPool();
    // Passes in project order, each running every pending module once. A computation may touch
    // modules downstream, also ones earlier in the list, which the next pass runs; a bound on the
    // passes keeps a cycle of modules from running for ever. A module that throws is done too
    // (fire() clears its changes): it is reported once and the modules after it still run.
    for (int pass = 0; pass < 100; ++pass) {
        const QList<VxObject*> modules = pool->getObjects(VxModule::getClassTypeId());
        for (VxObject* o : modules) o->ref();
        bool ran = false;
        for (VxObject* o : modules) {
            auto* m = static_cast<VxModule*>(o);
            // A computation may have removed it.
            if (!m->isPending() || !pool->contains(m)) continue;
            ran = true;
            try {
                m->fire();
            } catch (...) {
                app->message()->error(QString("%1: %2").arg(m->getName(), exceptionText()));
            }
        }
        for (VxObject* o : modules) o->unref();
        if (!ran) return;
    }
}

void VxInterpreter::addObjectCommand(VxObject* object)
{
    QByteArray name = object->getName().toUtf8();
    object->m_command =
        Tcl_CreateCommand(m_interp, name.constData(), objectCommand, object, objectCommandDeleted);
    Tcl_TraceCommand(m_interp, name.constData(), TCL_TRACE_RENAME, objectCommandRenamed, object);
}

void VxInterpreter::removeObjectCommand(VxObject* object)
{
    const Tcl_Command command = object->m_command;
    if (!command) return;
    // Cleared first: the delete callback then knows that the pool is removing the object.
    object->m_command = nullptr;
    Tcl_DeleteCommandFromToken(m_interp, command);
}

void VxInterpreter::objectCommandDeleted(ClientData data)
{
    auto* object = static_cast<VxObject*>(data);
    if (!object->m_command) return;
    object->m_command = nullptr;
    VxApplication* app = VxApplication::instance();
    // While the interpreter goes, the pool is emptied by its owner.
    if (!Tcl_InterpDeleted(app->interpreter()->getTclInterp())) app->objectPool()->removeObject(object);
}

void VxInterpreter::objectCommandRenamed(ClientData data, Tcl_Interp*, const char*, const char* newName, int)
{
    // Saved networks and messages name the object by its label: it stays the command's name.
    if (newName && *newName)
        VxApplication::instance()->objectPool()->relabel(static_cast<VxObject*>(data),
                                                         labelOfCommandName(newName));
}

bool VxInterpreter::hasCommand(const QString& name, const VxObject* except) const
{
    const Tcl_Command command =
        Tcl_FindCommand(m_interp, name.toUtf8().constData(), nullptr, TCL_GLOBAL_ONLY);
    return command && !(except && command == except->m_command);
}

bool VxInterpreter::cmdCheck(const QString& word, const QString& command, const QString& usage)
{
    m_usage.insert(command, usage);
    return word == command;
}

void VxInterpreter::cmdHelp(Tcl_Interp* interp, const char* command, bool print, int argc, char** argv)
{
    QString name = QString::fromUtf8(command);
    QString object = argc > 0 ? QString::fromUtf8(argv[0]) : QString();
    QString usage = m_usage.value(name);
    QString text = QString("usage: %1 %2 %3").arg(object, name, usage).simplified();
    vxscript::setResult(interp, text);
    if (print) VxApplication::instance()->message()->printf(text);
}

void Tcl_VaSetResult(Tcl_Interp* interp, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const QString text = KxString::vprintf(format, args);
    va_end(args);
    vxscript::setResult(interp, text);
}
