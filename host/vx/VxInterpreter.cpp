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

int objectCommand(ClientData data, Tcl_Interp* interp, int argc, const char** argv)
{
    auto* object = static_cast<VxObject*>(data);
    // The command may remove the object; keep it alive until the command returns.
    object->ref();
    int code;
    try {
        code = object->parse(interp, argc, const_cast<char**>(argv));
    } catch (const KxException& e) {
        code = fail(interp, QString("\"%1\": %2").arg(object->getName(), e.text()));
    } catch (const std::exception& e) {
        code = fail(interp, QString("\"%1\": %2").arg(object->getName(), QString::fromUtf8(e.what())));
    }
    object->unref();
    return code;
}

// Characters that would break the quoted names of saved networks or clash with Tcl's syntax.
bool validObjectName(const QString& name)
{
    if (name.isEmpty()) return false;
    for (QChar c : name)
        if (c.unicode() < 32 || QString("\"[]${}\\;").contains(c)) return false;
    return true;
}

} // namespace

// The host's top-level commands.
struct VxInterpreterCommands
{
    static int create(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        if (argc < 2 || argc > 3) return fail(interp, "usage: create CLASS ?NAME?");
        const KxTypeInfo* type = KxTypeInfo::fromName(argv[1]);
        if (!type) return fail(interp, QString("create: unknown class \"%1\" (typeinfo lists the classes)").arg(argv[1]));
        if (!type->isDerivedFrom(VxObject::getClassTypeId()) || !type->canCreate())
            return fail(interp, QString("create: class \"%1\" cannot be created (it is abstract or not an object)")
                                    .arg(argv[1]));
        QString name = QString::fromUtf8(argc == 3 ? argv[2] : argv[1]);
        if (!validObjectName(name))
            return fail(interp, QString("create: \"%1\" is not a valid object name (no quotes, brackets, braces, "
                                        "dollars, backslashes, semicolons or control characters)")
                                    .arg(name));
        VxObjectPool* pool = app()->objectPool();
        if (argc == 3) {
            if (pool->findObject(name)) return fail(interp, QString("create: an object named \"%1\" exists").arg(name));
            Tcl_CmdInfo info;
            if (Tcl_GetCommandInfo(interp, argv[2], &info))
                return fail(interp, QString("create: \"%1\" is a command of the interpreter; choose another name").arg(name));
        } else {
            name = pool->makeUniqueLabel(name);
        }
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
        if (!name.isEmpty()) {
            if (!validObjectName(name)) return fail(interp, QString("load: \"%1\" is not a valid object name").arg(name));
            if (pool->findObject(name)) return fail(interp, QString("load: an object named \"%1\" exists").arg(name));
        }
        if (!app()->loader()) return fail(interp, "load: this host reads no file formats");
        QString why;
        VxObject* object = app()->loader()(path, labels, &why);
        if (!object) return fail(interp, why.isEmpty() ? QString("load: cannot read \"%1\"").arg(path) : why);
        if (name.isEmpty()) {
            name = QFileInfo(path).fileName();
            if (!validObjectName(name)) name = "Data";
            name = pool->makeUniqueLabel(name);
        }
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
                return fail(interp, QString("compatibilityVersion: \"%1\" is not a positive integer").arg(argv[1]));
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
                    return fail(interp, QString("snapshot: %1 \"%2\" is not %3")
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
        if (!renderer.renderViewAll(app()->getSceneRoot(), SbVec3f(float(view[0]), float(view[1]), float(view[2]))))
            return fail(interp, "snapshot: " + renderer.errorString());
        if (!renderer.writePNG(QString::fromUtf8(argv[1]), &why)) return fail(interp, "snapshot: " + why);
        return TCL_OK;
    }

    static int preferences(ClientData, Tcl_Interp* interp, int argc, const char** argv)
    {
        VxPreferences prefs = app()->getPreferences();
        if (argc == 1) {
            vxscript::setResult(interp, QString("simplifiedRendering %1").arg(prefs.simplifiedRenderingDuringInteraction));
            return TCL_OK;
        }
        if (strcmp(argv[1], "simplifiedRendering") != 0)
            return fail(interp, QString("preferences: unknown preference \"%1\"; known: simplifiedRendering").arg(argv[1]));
        if (argc == 3) {
            int on;
            if (Tcl_GetBoolean(nullptr, argv[2], &on) != TCL_OK)
                return fail(interp, QString("preferences: \"%1\" is not a boolean").arg(argv[2]));
            prefs.simplifiedRenderingDuringInteraction = on != 0;
            app()->settings()->setPreferences(prefs);
        } else if (argc != 2) {
            return fail(interp, "usage: preferences ?simplifiedRendering ?BOOLEAN??");
        }
        vxscript::setResult(interp, QString::number(app()->getPreferences().simplifiedRenderingDuringInteraction));
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
    for (auto& c : commands) Tcl_CreateCommand(m_interp, c.name, c.proc, nullptr, nullptr);
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
    VxObjectPool* pool = VxApplication::instance()->objectPool();
    // A computation may touch modules downstream, also ones earlier in the list; a bound on the
    // rounds keeps a cycle of modules from running for ever.
    for (int round = 0; round < 100; ++round) {
        VxModule* next = nullptr;
        for (VxObject* o : pool->getObjects(VxModule::getClassTypeId())) {
            auto* m = static_cast<VxModule*>(o);
            if (m->isPending()) {
                next = m;
                break;
            }
        }
        if (!next) return;
        next->ref();
        try {
            next->fire();
        } catch (const KxException& e) {
            VxApplication::instance()->message()->error(QString("%1: %2").arg(next->getName(), e.text()));
        } catch (const std::exception& e) {
            VxApplication::instance()->message()->error(QString("%1: %2").arg(next->getName(), e.what()));
        }
        next->unref();
    }
}

void VxInterpreter::addObjectCommand(VxObject* object)
{
    QByteArray name = object->getName().toUtf8();
    Tcl_CreateCommand(m_interp, name.constData(), objectCommand, object, nullptr);
}

void VxInterpreter::removeObjectCommand(VxObject* object)
{
    QByteArray name = object->getName().toUtf8();
    Tcl_CmdInfo info;
    if (Tcl_GetCommandInfo(m_interp, name.constData(), &info) && info.clientData == object)
        Tcl_DeleteCommand(m_interp, name.constData());
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
