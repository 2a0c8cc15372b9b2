// The vxhost program end to end: package loading and its warnings, scripts with arguments, errors
// and exit codes, networks saved by one run and loaded by another, and the interactive shell.
#include "../support/TestFiles.h"
#include "../support/TestHost.h"

#include <QTemporaryDir>

namespace {

using namespace vxtest;

ProgramRun vxhost(const QStringList& args, const QString& packagePath = VXTEST_PACKAGE_DIR,
                  const QByteArray& input = {})
{
    return runProgram(VXHOST_PROGRAM, args, {}, {"VXHOST_PACKAGE_PATH=" + packagePath}, input);
}

class Vxhost : public TempDirTest
{
protected:
    QString file(const std::string& name, const std::string& text = "")
    {
        if (!text.empty()) spit(path(name), text);
        return qpath(name);
    }
};

// The host's own classes and the packages' load; bad package libraries are named and the host
// starts anyway.
TEST_F(Vxhost, PackagesLoadAndBadLibrariesAreNamed)
{
    const QString broken = file("libbroken.so", "this is no shared library\n");
    const ProgramRun r =
        vxhost({"-e", "lmap p [packages] {lindex $p 0}", "-e", "typeinfo VxUniformScalarField3"},
               dir.path() + ":" VXTEST_NOTPACKAGE_DIR ":/nonexistent/packages:" VXTEST_PACKAGE_DIR);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "vxiso vxtestpkg\nVxUniformScalarField3 VxRegScalarField3 VxScalarField3 VxSpatialData "
                     "VxObject KxTypedObject\n");
    EXPECT_TRUE(r.err.contains(QString("Warning: cannot load package library \"%1\": ").arg(broken)))
        << r.err;
    EXPECT_TRUE(r.err.contains("Warning: \"" VXTEST_NOTPACKAGE_DIR
                               "/libvxnotapkg.so\" is not a package library: "
                               "it has no corvapackage_vxnotapkg_init and corvapackage_vxnotapkg_finish"))
        << r.err;
    EXPECT_TRUE(r.err.contains("Warning: package folder \"/nonexistent/packages\" does not exist")) << r.err;
    EXPECT_EQ(r.err.count('\n'), 3) << r.err;
}

// A script gets its arguments and exports what modules make; an error names the script and its line
// and sets the exit code.
TEST_F(Vxhost, ScriptsRunWithArgumentsAndErrorsSetTheExitCode)
{
    const QString script = file("sphere.tcl", "puts \"args: $argc $argv\"\n"
                                              "create VxTestSphere s\n"
                                              "s subdivisions setValue [lindex $argv 0]\n"
                                              "s doIt hit\n"
                                              "s fire\n"
                                              "s exportData ply [lindex $argv 1]\n"
                                              "puts [s getNumPoints]\n\n"
                                              "s radius setValue wide\n");
    ProgramRun r = vxhost({script, "2", qpath("sphere.ply")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out,
              QString("args: 2 2 %1\nTestSphere contains 320 triangles\n162\n").arg(qpath("sphere.ply")));
    EXPECT_NE(slurp(path("sphere.ply")).find("element face 320"), std::string::npos);
    EXPECT_TRUE(r.err.startsWith(
        QString("vxhost: error in %1: \"s\" port \"radius\": \"wide\" is not a number").arg(script)))
        << r.err;
    EXPECT_TRUE(r.err.contains("line 9")) << r.err;
    const struct
    {
        QStringList args;
        int exitCode;
        QString err;
    } cases[] = {
        {{"-e", "create VxTestSphere s; s nosuch"},
         1,
         "vxhost: error: \"s\" has no port or command \"nosuch\""},
        {{"-e", "create VxTestSphere s; exit 3"}, 3, ""},
        {{"--bogus"}, 2, "vxhost: error: unknown option \"--bogus\""},
        {{qpath("missing.tcl")}, 1, "vxhost: error in " + qpath("missing.tcl") + ": cannot read script"},
    };
    for (const auto& c : cases) {
        r = vxhost(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.args.join(' ');
        EXPECT_EQ(r.err.left(c.err.size()), c.err) << r.err;
    }
}

// What a script did to a data object (keepLabel) is in its saved network, so the reloaded network
// computes the same surface when run as a script; a module's error fails the run in one line; loaded
// objects never take an interpreter command's name; every -e runs, in order.
TEST_F(Vxhost, NetworksReplayDataEditsAndModuleErrorsFailTheRun)
{
    const QString script =
        file("masked.tcl",
             "cd [file dirname [info script]]\n"
             "proc nrrd {file n value} {\n"
             "  set f [open $file wb]\n"
             "  puts -nonewline $f \"NRRD0004\\ntype: uchar\\ndimension: 3\\nsizes: $n $n $n\\nencoding: "
             "raw\\n\\n\"\n"
             "  for {set i 0} {$i < $n ** 3} {incr i} {\n"
             "    lassign [list [expr {$i % $n}] [expr {$i / $n % $n}] [expr {$i / $n / $n}]] x y z\n"
             "    puts -nonewline $f [binary format c [expr $value]]\n"
             "  }\n"
             "  close $f\n"
             "}\n"
             "nrrd ball.nrrd 12 {($x - 5.5) ** 2 + ($y - 5.5) ** 2 + ($z - 5.5) ** 2 < 16 ? 200 : 0}\n"
             "nrrd atlas.nrrd 12 {$x < 6 ? 2 : 3}\n"
             "nrrd small.nrrd 11 1\n"
             "load ball.nrrd ball\n"
             "load -labels atlas.nrrd atlas\n"
             "atlas keepLabel 2\n"
             "create VxMaskedLabelIsosurface m\n"
             "m data connect ball; m mask connect atlas; m threshold setValue 100; m doIt hit\n"
             "saveNetwork net.tcl\n");
    const ProgramRun first = vxhost({"-e", "m getNumTriangles", script});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_TRUE(first.out.startsWith("Isosurface contains ")) << first.out;
    EXPECT_EQ(vxhost({"-e", "m getNumTriangles", qpath("net.tcl")}).out, first.out);

    const QString cd = "cd " + dir.path() + "; ";
    ProgramRun r = vxhost({"-e", cd + "proc ball.nrrd {} {}; load ball.nrrd", "-e", "load ball.nrrd set"});
    EXPECT_EQ(r.out, "ball.nrrd2\n");
    EXPECT_EQ(r.err, "vxhost: error: load: \"set\" is a command of the interpreter; choose another name\n");
    r = vxhost(
        {"-e", cd + "load ball.nrrd ball; load -labels small.nrrd small; create VxMaskedLabelIsosurface m;"
                    "m data connect ball; m mask connect small; m doIt hit"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err,
              "Error: m: the mask \"small\" has 11 x 11 x 11 nodes but the volume \"ball\" has 12 x 12 x "
              "12; they must match\n");
}

TEST_F(Vxhost, InteractiveShellEvaluatesCompleteCommands)
{
    const ProgramRun r = vxhost({}, VXTEST_PACKAGE_DIR,
                                "create VxTestSphere s\nproc twice {x} {\n  return [expr {2 * $x}]\n}\n"
                                "twice [s radius getValue]\ns nosuch\nputs done\n");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "s\n2\ndone\n");
    EXPECT_TRUE(r.err.startsWith("error: \"s\" has no port or command \"nosuch\"")) << r.err;
}

} // namespace
