// The framework as modules and scripts see it: the type registry and packages, change flags
// across update() and compute(), script verbs, connections and saved networks.
#include "../support/TestFiles.h"
#include "../support/TestHost.h"

#include <vx/VxColormap.h>
#include <vx/VxModule.h>
#include <vx/VxPackageManager.h>
#include <vx/VxPreferences.h>
#include <vx/VxTriBase.h>

#include <cstdlib>

namespace {

using namespace vxtest;

class Framework : public TempDirTest
{
protected:
    static void SetUpTestSuite()
    {
        packages = new VxPackageManager;
        messages()->setConsole(nullptr);
        ASSERT_EQ(packages->loadAll({VXTEST_PACKAGE_DIR}), 1);
    }
    static void TearDownTestSuite()
    {
        // Objects run the package's code: they go before it.
        VxApplication::destroy();
        delete packages;
    }
    void SetUp() override
    {
        unsetenv("VXTEST_THROW_IN_CONSTRUCTOR");
        messages()->clearRecords();
        tcl("remove -all; compatibilityVersion 1000");
    }
    static VxPackageManager* packages;
};
VxPackageManager* Framework::packages = nullptr;

// Parents' lists are checked by typeinfo in ModuleTest and VxhostTest; here what objects answer.
TEST_F(Framework, ObjectsAnswerIsOfTypeAndClassesRefuseWhatTheyCannotCreate)
{
    EXPECT_EQ(tcl("create VxTestSphere s; list [s isOfType VxViewBase] [s isOfType VxRegScalarField3]"),
              "1 0");
    EXPECT_EQ(tcl("list [all -type VxTriBase] [all -type VxScalarField3]"), "s {}");
    for (const auto& r : {std::make_pair("create VxTriBase", "cannot be created"),
                          std::make_pair("create NoSuchClass", "unknown class \"NoSuchClass\""),
                          std::make_pair("create VxTestSphere s", "an object named \"s\" exists")})
        EXPECT_TRUE(tclError(r.first).contains(r.second)) << r.first;
}

// An object and its command go together: the label follows Tcl's rename, removing the object
// deletes the command by whatever name, and deleting the command removes the object.
TEST_F(Framework, ObjectsFollowTheirCommandsAndNeverShadowOthers)
{
    tcl("create VxTestSphere a; rename a b; create VxColormap m; rename m ::n");
    EXPECT_EQ(tcl("list [b getLabel] [n getLabel] [all]"), "b n {b n}");
    EXPECT_TRUE(tclError("remove a").contains("there is no object \"a\""));
    tcl("remove b");
    EXPECT_EQ(tcl("info commands b"), "");
    tcl("rename n {}; create VxTestSphere p; proc p {} {return proc}");
    EXPECT_EQ(tcl("list [all] [p]"), "{} proc");

    // Names that would break saved networks or Tcl's syntax, or replace a command, are refused
    // wherever an object gets one; automatic names (the class name, made unique) skip them.
    tcl("create VxTestSphere s; create VxTestSphere t; proc VxTestSphere2 {} {}");
    const QString invalid = "is not a valid object name (no quotes, brackets, braces, dollars, backslashes, "
                            "semicolons, control characters or \"::\")";
    EXPECT_EQ(tclError("rename s t"), "rename: an object named \"t\" exists");
    EXPECT_EQ(tclError("rename s ns::u"), "rename: \"ns::u\" " + invalid);
    EXPECT_EQ(tclError("create VxTestSphere incr"),
              "create: \"incr\" is a command of the interpreter; choose another name");
    EXPECT_EQ(tcl("create VxTestSphere; create VxTestSphere; all"), "s t VxTestSphere VxTestSphere3");

    // Thousands of unnamed objects number on quickly, a freed number first.
    tcl("for {set i 0} {$i < 8000} {incr i} {create VxColormap}; remove VxColormap17 VxColormap300");
    EXPECT_EQ(tcl("lmap i {1 2 3} {create VxColormap}"), "VxColormap17 VxColormap300 VxColormap8001");
}

TEST_F(Framework, ChangeFlagsLastFromTheChangeUntilAfterCompute)
{
    tcl("create VxTestAllPorts m; m fire; m float setValue 3; m toggles setValue 1 1; m fire");
    EXPECT_EQ(tcl("list [m computeCount] [m newInUpdate] [m newInCompute]"),
              "2 {float toggles} {float toggles}");
    // Nothing changed since: the flags were cleared after compute.
    EXPECT_EQ(tcl("m fire; m newInCompute"), "");
    // Setting the value a port already has is no change; a button press always is.
    EXPECT_EQ(tcl("m float setValue 3; m doIt hit; m fire; m newInCompute"), "doIt");
    // The host runs modules with pending changes when a command line has finished.
    tcl("m int setValue 7");
    EXPECT_EQ(tcl("list [m newInCompute] [m isPending]"), "int 0");
}

// A module that throws is run once, reported once and no longer pending, and the others still run;
// a constructor that throws fails its command, not the host.
TEST_F(Framework, ThrowingModulesFailOnceAndThrowingConstructorsFailTheirCommand)
{
    tcl("create VxTestAllPorts bad; create VxTestAllPorts good; bad text setValue throw");
    EXPECT_EQ(tcl("list [bad computeCount] [bad isPending] [good computeCount]"), "1 0 1");
    EXPECT_EQ(messages()->errors(), QStringList{"bad: told to throw"});
    EXPECT_EQ(tclError("bad fire"), "\"bad\": told to throw");
    setenv("VXTEST_THROW_IN_CONSTRUCTOR", "1", 1);
    EXPECT_EQ(tclError("create VxTestAllPorts"), "create: told to throw in the constructor");
    EXPECT_EQ(tcl("all"), "bad good");
}

TEST_F(Framework, ConnectionsCheckTheirSourcesAndFollowThem)
{
    tcl("create VxTestSphere s; create VxTestAllPorts m; create VxTestAllPorts other");
    EXPECT_TRUE(tclError("s data connect s").contains("cannot read itself"));
    // A word that is no port: the error lists the ports.
    EXPECT_TRUE(
        tclError("m nosuch setValue 1").contains("no port or command \"nosuch\"; ports: data, float"));
    auto* m = object<VxModule>("m");
    VxConnection& c = m->portData;
    c.addType(VxTriBase::getClassTypeId());
    c.addType(VxColormap::getClassTypeId());
    EXPECT_TRUE(
        tclError("m data connect other")
            .contains("\"other\" (VxTestAllPorts) is not accepted here; accepted: VxTriBase, VxColormap"));
    // A source check narrows the accepted types further.
    static int checks = 0;
    c.setSourceCheck(
        [](void* data, VxObject* source) {
            return ++*static_cast<int*>(data), int(source->getName() != "s");
        },
        &checks);
    EXPECT_TRUE(tclError("m data connect s").contains("is not accepted here"));
    EXPECT_EQ(checks, 1);
    c.setSourceCheck(nullptr, nullptr);
    m->untouchAllPorts();
    tcl("m data connect s"); // the host runs m when the line has finished
    EXPECT_EQ(tcl("m newInCompute"), "data");
    EXPECT_EQ(c.getSource(VxTriBase::getClassTypeId())->getName(), "s");
    // A computation of the source reaches its readers; removing it disconnects them.
    tcl("m fire; s doIt hit");
    EXPECT_EQ(tcl("m isPending"), "0");
    object<VxModule>("s")->touchDownstream();
    EXPECT_TRUE(c.isNew(VxPort::NEW_DATA));
    tcl("remove s");
    EXPECT_EQ(c.getSource(), nullptr);
    EXPECT_EQ(tcl("m data source"), "");
}

TEST_F(Framework, ServicesRecordMessagesRunHelpAndTellPreferences)
{
    tcl("create VxTestSphere s");
    EXPECT_EQ(tcl("s setScale"), "usage: s setScale VALUE");
    EXPECT_EQ(messages()->lines().last(), "usage: s setScale VALUE");
    EXPECT_EQ(tcl("preferences simplifiedRendering 0; s preferenceChanges"), "1");
    EXPECT_EQ(tcl("preferences simplifiedRendering 0; s preferenceChanges"), "1") << "no change, no call";
    EXPECT_FALSE(VxApplication::instance()->getPreferences().simplifiedRenderingDuringInteraction);
    tcl("preferences simplifiedRendering 1");
}

TEST_F(Framework, SavedNetworkReloadsToTheSamePortsAndRecomputes)
{
    tcl("create VxTestAllPorts m; create VxTestSphere {my sphere}");
    tcl("m float setValue 2.5; m int setValue 12; m toggles setValue 2 1; m text setValue {two words};"
        "m hidden setValue 0.75; m data connect {my sphere}");
    tcl("{my sphere} radius setValue 2; {my sphere} subdivisions setValue 2; {my sphere} doIt hit");
    tcl(QString("saveNetwork {%1}").arg(qpath("first.tcl")));
    const std::string saved = slurp(path("first.tcl"));
    EXPECT_EQ(saved.rfind("# vxhost network\ncompatibilityVersion 1000\n", 0), 0u) << saved;
    EXPECT_EQ(saved.find("hidden"), std::string::npos) << "hidden ports are not saved";

    tcl(QString("remove -all; loadNetwork {%1}").arg(qpath("first.tcl")));
    EXPECT_EQ(tcl("all"), "m {my sphere}");
    // The doIt line recomputes the sphere; a hidden port keeps its default.
    EXPECT_EQ(tcl("list [{my sphere} computeCount] [{my sphere} getNumTriangles] [m text getValue] "
                  "[m hidden getValue]"),
              "1 320 {two words} 0.25");
    tcl(QString("saveNetwork {%1}").arg(qpath("second.tcl")));
    EXPECT_EQ(slurp(path("second.tcl")), saved);
}

// Presets replace the samples and keep the range; a saved network replays them through setSamples.
TEST_F(Framework, ColormapPresetsSetSamplesAndReplayFromASavedNetwork)
{
    tcl("create VxColormap m; m setRange 10 20; m setPreset viridis");
    EXPECT_EQ(tcl("list [m getRange] [llength [m getSamples]]"), "{10 20} 11");
    const float ends[][3] = {{0x44, 0x01, 0x54}, {0x21, 0x91, 0x8c}, {0xfd, 0xe7, 0x25}};
    for (int i = 0; i < 3; ++i) {
        const VxColormap::RGBA c = object<VxColormap>("m")->getRGBA(10.f + 5.f * float(i));
        EXPECT_NEAR(c.r, ends[i][0] / 255.f, 1 / 255.f) << i;
        EXPECT_NEAR(c.g, ends[i][1] / 255.f, 1 / 255.f) << i;
        EXPECT_NEAR(c.b, ends[i][2] / 255.f, 1 / 255.f) << i;
        EXPECT_EQ(c.a, 1.f);
    }
    // Coolwarm's middle is its near-white, the grey ramp's middle is grey.
    EXPECT_EQ(tcl("m setPreset coolwarm; m getColor 15"), "0.8666667 0.8627451 0.8627451 1");
    EXPECT_EQ(tcl("m setPreset grey; m getColor 15"), "0.5 0.5 0.5 1");

    const QString before = tcl("m setPreset rainbow; m getSamples");
    EXPECT_EQ(tclError("m setPreset foo"),
              "\"m\": setPreset: unknown colour map \"foo\"; known: grey, viridis, coolwarm, rainbow");
    EXPECT_EQ(tcl("m getSamples"), before) << "an unknown name leaves the map as it was";
    EXPECT_EQ(tcl("m getPresets"), "grey viridis coolwarm rainbow");

    tcl(QString("saveNetwork {%1}; remove -all; loadNetwork {%1}").arg(qpath("map.tcl")));
    EXPECT_EQ(tcl("list [m getRange] [m getSamples]"), "{10 20} {" + before + "}");
}

TEST_F(Framework, NetworkFlagAndVersionLastOnlyWhileTheScriptRuns)
{
    spit(path("net.tcl"),
         "# vxhost network\ncompatibilityVersion 919\nset seen [list [compatibilityVersion]]\n");
    VxInterpreter* vi = VxApplication::instance()->interpreter();
    EXPECT_EQ(vi->evalFile(qpath("net.tcl")), TCL_OK);
    EXPECT_EQ(tcl("set seen"), "919");
    EXPECT_EQ(vi->getCompatibilityVersion(), 1000);
    EXPECT_FALSE(vi->networkIsLoading());
}

} // namespace
