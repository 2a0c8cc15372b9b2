// The framework as modules and scripts see it: the type registry and packages, change flags
// across update() and compute(), script verbs, saved networks, and old scripts' ports.
#include <vx/VxApplication.h>
#include <vx/VxColormap.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxModule.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPackageManager.h>
#include <vx/VxPreferences.h>
#include <vx/VxTriBase.h>

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>
#include <dlfcn.h>

// Readable failures.
void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}

namespace {

VxInterpreter* vi()
{
    return VxApplication::instance()->interpreter();
}

// Runs a script; fails the test on a script error and returns the result.
QString run(const QString& script)
{
    QString result;
    int code = vi()->eval(script, &result);
    EXPECT_EQ(code, TCL_OK) << script.toStdString() << "\n-> " << result.toStdString();
    return result;
}

QString runError(const QString& script)
{
    QString result;
    EXPECT_EQ(vi()->eval(script, &result), TCL_ERROR)
        << script.toStdString() << " succeeded: " << result.toStdString();
    return result;
}

QString readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

class Framework : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        packages = new VxPackageManager;
        VxApplication::instance()->message()->setConsole(nullptr);
        ASSERT_EQ(packages->loadAll({VXTEST_PACKAGE_DIR}), 1);
    }
    static void TearDownTestSuite()
    {
        // Objects run the package's code: they go before it.
        VxApplication::destroy();
        delete packages;
        packages = nullptr;
    }
    void SetUp() override
    {
        unsetenv("RUNNING_TEST");
        unsetenv("VXTEST_THROW_IN_CONSTRUCTOR");
        VxApplication::instance()->message()->clearRecords();
        run("remove -all; compatibilityVersion 1000; deprecationWarnings 1");
    }
    static VxPackageManager* packages;
};
VxPackageManager* Framework::packages = nullptr;

TEST_F(Framework, TypeRecordsKnowTheirParentsAndAnswerIsOfType)
{
    EXPECT_EQ(run("typeinfo VxTestSphere"),
              "VxTestSphere VxTriBase VxViewBase VxModule VxObject KxTypedObject");
    run("create VxTestSphere s");
    EXPECT_EQ(run("s isOfType VxViewBase"), "1");
    EXPECT_EQ(run("s isOfType VxRegScalarField3"), "0");
    EXPECT_EQ(run("all -type VxTriBase"), "s");
    EXPECT_EQ(run("all -type VxScalarField3"), "");
    EXPECT_NE(runError("create VxTriBase").indexOf("cannot be created"), -1);
    EXPECT_NE(runError("create NoSuchClass").indexOf("unknown class \"NoSuchClass\""), -1);
    EXPECT_NE(runError("create VxTestSphere s").indexOf("an object named \"s\" exists"), -1);
    EXPECT_NE(runError("create VxTestSphere set").indexOf("is a command of the interpreter"), -1);
    EXPECT_NE(runError("create VxTestSphere {a\"b}").indexOf("not a valid object name"), -1);
    // Unnamed objects take the class name, made unique.
    EXPECT_EQ(run("create VxTestSphere; create VxTestSphere"), "VxTestSphere2");
}

// An object and its command go together: the label follows Tcl's rename, removing the object
// deletes the command by whatever name, and deleting the command removes the object.
TEST_F(Framework, ObjectsFollowTheirCommandsAndNeverShadowOthers)
{
    run("create VxTestSphere a; rename a b; create VxColormap m; rename m ::n");
    EXPECT_EQ(run("list [b getLabel] [n getLabel] [all]"), "b n {b n}");
    EXPECT_NE(runError("remove a").indexOf("there is no object \"a\""), -1);
    run("remove b");
    EXPECT_EQ(run("info commands b"), "");
    run("rename n {}; create VxTestSphere p; proc p {} {return proc}");
    EXPECT_EQ(run("list [all] [p]"), "{} proc");

    // Names that would break saved networks or Tcl's syntax, or replace a command, are refused
    // wherever an object gets one; automatic names skip them.
    run("create VxTestSphere s; create VxTestSphere t; proc VxTestSphere2 {} {}");
    const char* invalid = "is not a valid object name (no quotes, brackets, braces, dollars, backslashes, "
                          "semicolons, control characters or \"::\")";
    const std::pair<const char*, QString> refused[] = {
        {"rename s t", "rename: an object named \"t\" exists"},
        {"rename s {x[y}", QString("rename: \"x[y\" %1").arg(invalid)},
        {"rename s ns::u", QString("rename: \"ns::u\" %1").arg(invalid)},
        {"create VxTestSphere incr", "create: \"incr\" is a command of the interpreter; choose another name"},
    };
    for (const auto& r : refused) EXPECT_EQ(runError(r.first), r.second);
    EXPECT_EQ(run("create VxTestSphere; create VxTestSphere; all"), "s t VxTestSphere VxTestSphere3");

    // Thousands of unnamed objects number on quickly, a freed number first.
    run("for {set i 0} {$i < 8000} {incr i} {create VxColormap}; remove VxColormap17 VxColormap300");
    EXPECT_EQ(run("lmap i {1 2 3} {create VxColormap}"), "VxColormap17 VxColormap300 VxColormap8001");
}

TEST_F(Framework, ShippedPackageLoadsAndNamesItsVersion)
{
    VxPackageManager pm;
    QString why;
    ASSERT_TRUE(pm.load(VXHOST_PROGRAM_DIR "/libvxiso.so", &why)) << why.toStdString();
    ASSERT_EQ(pm.packages().size(), 1);
    EXPECT_EQ(pm.packages()[0].name, "vxiso");
    EXPECT_TRUE(pm.packages()[0].version.startsWith("vxiso ")) << pm.packages()[0].version.toStdString();
}

TEST_F(Framework, ChangeFlagsLastFromTheChangeUntilAfterCompute)
{
    run("create VxTestAllPorts m; m fire");
    EXPECT_EQ(run("m computeCount"), "1");
    run("m float setValue 3; m toggles setValue 1 1; m fire");
    EXPECT_EQ(run("m newInUpdate"), "float toggles");
    EXPECT_EQ(run("m newInCompute"), "float toggles");
    // Nothing changed since: the flags were cleared after compute.
    run("m fire");
    EXPECT_EQ(run("m newInCompute"), "");
    // Setting the value a port already has is no change; a button press always is.
    run("m float setValue 3; m doIt hit; m fire");
    EXPECT_EQ(run("m newInCompute"), "doIt");
    // The host runs modules with pending changes when a command line has finished.
    run("m int setValue 7");
    EXPECT_EQ(run("m newInCompute"), "int");
    EXPECT_EQ(run("m isPending"), "0");
}

// A module that throws is run once, reported once and no longer pending, and the others still run;
// a constructor that throws fails its command, not the host.
TEST_F(Framework, ThrowingModulesFailOnceAndThrowingConstructorsFailTheirCommand)
{
    run("create VxTestAllPorts bad; create VxTestAllPorts good; bad text setValue throw");
    EXPECT_EQ(run("list [bad computeCount] [bad isPending] [good computeCount]"), "1 0 1");
    EXPECT_EQ(VxApplication::instance()->message()->errors(), QStringList{"bad: told to throw"});
    EXPECT_EQ(runError("bad fire"), "\"bad\": told to throw");
    setenv("VXTEST_THROW_IN_CONSTRUCTOR", "1", 1);
    EXPECT_EQ(runError("create VxTestAllPorts"), "create: told to throw in the constructor");
    EXPECT_EQ(run("all"), "bad good");
}

TEST_F(Framework, VerbsClampAndRejectBadWordsWithTheirNames)
{
    run("create VxTestAllPorts m");
    EXPECT_EQ(run("m float setValue 99; m float getValue"), "10");
    EXPECT_EQ(run("m float setMinMax -1 2; m float getValue"), "2");
    EXPECT_EQ(run("m ints setValue 1 1000; m ints getValue 1"), "8");
    // The ports' own texts are checked word for word in PortsTest; here the route through the host.
    QString e = runError("m float setValue abc");
    EXPECT_NE(e.indexOf("\"m\""), -1) << e.toStdString();
    EXPECT_NE(e.indexOf("\"abc\""), -1) << e.toStdString();
    e = runError("m nosuch setValue 1");
    EXPECT_NE(e.indexOf("no port or command \"nosuch\""), -1) << e.toStdString();
    EXPECT_NE(e.indexOf("float"), -1) << "the error lists the ports";
    e = runError("m data connect nobody");
    EXPECT_NE(e.indexOf("no object \"nobody\""), -1) << e.toStdString();
    run("create VxTestSphere s");
    e = runError("s data connect s");
    EXPECT_NE(e.indexOf("cannot read itself"), -1) << e.toStdString();
}

TEST_F(Framework, ConnectionsCheckTheirSourcesAndFollowThem)
{
    run("create VxTestSphere s; create VxTestAllPorts m; create VxTestAllPorts other");
    auto* m = static_cast<VxModule*>(VxApplication::instance()->objectPool()->findObject("m"));
    VxConnection& c = m->portData;
    c.addType(VxTriBase::getClassTypeId());
    c.addType(VxColormap::getClassTypeId());
    EXPECT_NE(
        runError("m data connect other")
            .indexOf("\"other\" (VxTestAllPorts) is not accepted here; accepted: VxTriBase, VxColormap"),
        -1);
    // A source check narrows the accepted types further.
    static int checks = 0;
    c.setSourceCheck(
        [](void* data, VxObject* source) {
            return ++*static_cast<int*>(data), int(source->getName() != "s");
        },
        &checks);
    EXPECT_NE(runError("m data connect s").indexOf("is not accepted here"), -1);
    EXPECT_EQ(checks, 1);
    c.setSourceCheck(nullptr, nullptr);
    m->untouchAllPorts();
    run("m data connect s");
    EXPECT_EQ(run("m newInCompute"), "data");
    EXPECT_NE(vxconnection_cast<VxTriBase>(c), nullptr);
    EXPECT_EQ(vxconnection_cast<VxColormap>(c), nullptr);
    EXPECT_EQ(c.getSource(VxTriBase::getClassTypeId())->getName(), "s");
    // A computation of the source reaches its readers; removing it disconnects them.
    run("m fire; s doIt hit");
    EXPECT_EQ(run("m isPending"), "0");
    static_cast<VxModule*>(VxApplication::instance()->objectPool()->findObject("s"))->touchDownstream();
    EXPECT_TRUE(c.isNew(VxPort::NEW_DATA));
    run("remove s");
    EXPECT_EQ(c.getSource(), nullptr);
    EXPECT_EQ(run("m data source"), "");
}

TEST_F(Framework, ServicesRecordMessagesRunHelpAndTellPreferences)
{
    VxMessage* msg = VxApplication::instance()->message();
    run("create VxTestSphere s");
    EXPECT_EQ(run("s setScale"), "usage: s setScale VALUE");
    EXPECT_EQ(msg->lines().last(), "usage: s setScale VALUE");
    EXPECT_EQ(run("s setScale 2.5; s getScale"), "2.5");
    EXPECT_EQ(msg->error("Disk full", "OK", nullptr, nullptr, 0, -1), 0);
    EXPECT_EQ(msg->errors(), QStringList{"Disk full"});
    msg->printf("%d triangles", 12);
    EXPECT_EQ(msg->lines().last(), "12 triangles");
    EXPECT_EQ(run("preferences simplifiedRendering 0; s preferenceChanges"), "1");
    EXPECT_EQ(run("preferences simplifiedRendering 0; s preferenceChanges"), "1") << "no change, no call";
    EXPECT_FALSE(VxApplication::instance()->getPreferences().simplifiedRenderingDuringInteraction);
    run("preferences simplifiedRendering 1");
}

TEST_F(Framework, SavedNetworkReloadsToTheSamePortsAndRecomputes)
{
    QTemporaryDir dir;
    const QString first = dir.filePath("first.tcl"), second = dir.filePath("second.tcl");
    run("create VxTestAllPorts m; create VxTestSphere {my sphere}");
    run("m float setValue 2.5; m int setValue 12; m toggles setValue 2 1; m onOff setValue 1; m radio "
        "setValue 2;"
        "m ints setValue 0 1; m floats setValue 1 0.125; m menu setValue 1 2; m text setValue {two words};"
        "m colors setColor 1 0.5 0.25 1; m hidden setValue 0.75; m data connect {my sphere}");
    run("{my sphere} radius setValue 2; {my sphere} subdivisions setValue 2; {my sphere} doIt hit");
    EXPECT_EQ(run("{my sphere} computeCount"), "1");
    run(QString("saveNetwork {%1}").arg(first));
    QString saved = readAll(first);
    EXPECT_TRUE(saved.startsWith("# vxhost network\ncompatibilityVersion 1000\n")) << saved.toStdString();
    EXPECT_NE(saved.indexOf("\"my sphere\" doIt hit\n"), -1) << saved.toStdString();
    EXPECT_EQ(saved.indexOf("hidden"), -1) << "hidden ports are not saved";

    run("remove -all");
    EXPECT_EQ(run("all"), "");
    run(QString("loadNetwork {%1}").arg(first));
    EXPECT_EQ(run("all"), "m {my sphere}");
    EXPECT_EQ(run("{my sphere} computeCount"), "1") << "the doIt line recomputes the sphere";
    EXPECT_EQ(run("{my sphere} getNumTriangles"), "320");
    EXPECT_EQ(run("m text getValue"), "two words");
    EXPECT_EQ(run("m hidden getValue"), "0.25") << "a hidden port keeps its default";
    run(QString("saveNetwork {%1}").arg(second));
    EXPECT_EQ(readAll(second), saved);

    // A module that has not computed writes no doIt line.
    run("remove -all; create VxTestSphere s; s radius setValue 3");
    run(QString("saveNetwork {%1}").arg(first));
    EXPECT_EQ(readAll(first).indexOf("doIt hit"), -1);
}

TEST_F(Framework, NetworkFlagAndVersionLastOnlyWhileTheScriptRuns)
{
    QTemporaryDir dir;
    QFile f(dir.filePath("net.tcl"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("# vxhost network\ncompatibilityVersion 919\nset seen [list [compatibilityVersion]]\n");
    f.close();
    vi()->setCompatibilityVersion(1000);
    EXPECT_EQ(vi()->evalFile(f.fileName()), TCL_OK);
    EXPECT_EQ(run("set seen"), "919");
    EXPECT_EQ(vi()->getCompatibilityVersion(), 1000);
    EXPECT_FALSE(vi()->networkIsLoading());
}

TEST_F(Framework, OldScriptsReachTheRedesignedPortWithOneWarning)
{
    const QString warning = "WARNING: You are using a deprecated port. Please see Section \"Versioning of "
                            "Script Objects and backward "
                            "compatibility\" for compatibility details.\nPort \"options\" from module \"m\" "
                            "has been modified in the "
                            "current version.\nPlease see \"m\" documentation for a recent port list. \n";
    run("create VxTestAllPorts m; m fire");
    run("compatibilityVersion 919; m options setValue 0 0; m options setValue 1 1; m options setPin 1");
    const QStringList& lines = VxApplication::instance()->message()->lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_EQ(lines[0] + "\n", warning);
    // The next update moved the old toggles to their new places.
    EXPECT_EQ(run("m options getValue 0"), "0");
    EXPECT_EQ(run("m onOff getValue"), "1");
    EXPECT_EQ(run("m newInCompute"), "onOff options");
}

// Last: it withdraws the test package's classes for the rest of the process.
TEST_F(Framework, PackageEntryPointsRegisterOnceAndWithdrawOnce)
{
    void* h = dlopen(VXTEST_PACKAGE_DIR "/libvxtestpkg.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(h, nullptr);
    auto init = reinterpret_cast<void (*)()>(dlsym(h, "corvapackage_vxtestpkg_init"));
    auto finish = reinterpret_cast<void (*)()>(dlsym(h, "corvapackage_vxtestpkg_finish"));
    init(); // loading ran it already: a no-op
    ASSERT_NE(KxTypeInfo::fromName("VxTestSphere"), nullptr);
    const KxTypeInfo* before = KxTypeInfo::fromName("VxTestSphere");
    EXPECT_EQ(KxTypeInfo::fromName("VxTestSphere"), before);
    finish();
    EXPECT_EQ(KxTypeInfo::fromName("VxTestSphere"), nullptr);
    EXPECT_EQ(KxTypeInfo::fromName("VxTestAllPorts"), nullptr);
    EXPECT_NE(KxTypeInfo::fromName("VxTriBase"), nullptr); // the host's own stay
    finish();
    init(); // a process registers a package at most once
    EXPECT_EQ(KxTypeInfo::fromName("VxTestSphere"), nullptr);
    dlclose(h);
}

} // namespace
