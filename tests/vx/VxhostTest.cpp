// The vxhost program end to end: package loading and its warnings, scripts with arguments, errors
// and exit codes, networks saved by one run and loaded by another, and the interactive shell.
#include "../support/TestFiles.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace {

struct HostRun
{
    int exitCode = -1;
    QString out, err;
};

HostRun vxhost(const QStringList& args, const QString& packagePath = VXTEST_PACKAGE_DIR,
               const QByteArray& input = {})
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("VXHOST_PACKAGE_PATH", packagePath);
    p.setProcessEnvironment(env);
    p.start(VXHOST_PROGRAM, args);
    EXPECT_TRUE(p.waitForStarted());
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(60000));
    HostRun r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

void writeFile(const QString& path, const char* text)
{
    vxtest::spit(path.toStdString(), text);
}

TEST(Vxhost, TypeinfoListsThePackagesClassesWithTheirParents)
{
    HostRun r = vxhost({"-e", "typeinfo"});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("VxTestSphere VxTriBase VxViewBase VxModule VxObject KxTypedObject\n"))
        << r.out.toStdString();
    EXPECT_TRUE(
        r.out.contains("VxUniformScalarField3 VxRegScalarField3 VxScalarField3 VxSpatialData VxObject"))
        << r.out.toStdString();
    EXPECT_EQ(r.err, "");
    r = vxhost({"-e", "lmap p [packages] {lindex $p 0}"});
    EXPECT_EQ(r.out, "vxiso vxtestpkg\n") << r.err.toStdString();
}

TEST(Vxhost, BadPackageLibrariesAreNamedAndTheHostStartsAnyway)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("libbroken.so"), "this is no shared library\n");
    QString path = dir.path() + ":" + VXTEST_NOTPACKAGE_DIR + ":/nonexistent/packages:" + VXTEST_PACKAGE_DIR;
    HostRun r = vxhost({"-e", "create VxTestSphere s"}, path);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "s\n");
    EXPECT_TRUE(r.err.contains(
        QString("Warning: cannot load package library \"%1\": ").arg(dir.filePath("libbroken.so"))))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QString("Warning: \"%1/libvxnotapkg.so\" is not a package library: it has no "
                                       "corvapackage_vxnotapkg_init and corvapackage_vxnotapkg_finish")
                                   .arg(VXTEST_NOTPACKAGE_DIR)))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("Warning: package folder \"/nonexistent/packages\" does not exist"))
        << r.err.toStdString();
    EXPECT_EQ(r.err.count('\n'), 3) << r.err.toStdString();
}

TEST(Vxhost, ScriptsGetArgumentsAndExportWhatModulesMake)
{
    QTemporaryDir dir;
    const QString script = dir.filePath("sphere.tcl"), mesh = dir.filePath("sphere.ply");
    writeFile(script, "puts \"args: $argc $argv\"\n"
                      "create VxTestSphere s\n"
                      "s subdivisions setValue [lindex $argv 0]\n"
                      "s doIt hit\n"
                      "s fire\n"
                      "s exportData ply [lindex $argv 1]\n"
                      "puts [s getNumPoints]\n");
    HostRun r = vxhost({script, "2", mesh});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QString("args: 2 2 %1\nTestSphere contains 320 triangles\n162\n").arg(mesh));
    QFile ply(mesh);
    ASSERT_TRUE(ply.open(QIODevice::ReadOnly));
    EXPECT_TRUE(ply.readAll().contains("element face 320"));
}

TEST(Vxhost, ErrorsNameTheirPlaceAndSetTheExitCode)
{
    QTemporaryDir dir;
    const QString script = dir.filePath("bad.tcl");
    writeFile(script, "create VxTestSphere s\n\ns radius setValue wide\n");
    HostRun r = vxhost({script});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.startsWith(
        QString("vxhost: error in %1: \"s\" port \"radius\": \"wide\" is not a number").arg(script)))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("line 3")) << r.err.toStdString();

    r = vxhost({"-e", "create VxTestSphere s; s nosuch"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.startsWith("vxhost: error: \"s\" has no port or command \"nosuch\""))
        << r.err.toStdString();

    r = vxhost({"-e", "create VxTestSphere s; exit 3"});
    EXPECT_EQ(r.exitCode, 3);
    r = vxhost({"--bogus"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_TRUE(r.err.startsWith("vxhost: error: unknown option \"--bogus\"")) << r.err.toStdString();
    r = vxhost({dir.filePath("missing.tcl")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains("missing.tcl")) << r.err.toStdString();
}

TEST(Vxhost, NetworkSavedByOneRunIsRebuiltAndRecomputedByAnother)
{
    QTemporaryDir dir;
    const QString net = dir.filePath("net.tcl");
    HostRun r = vxhost(
        {"-e", QString("create VxTestSphere ball; ball radius setValue 2.5; ball subdivisions setValue 3;"
                       "ball doIt hit; ball fire; create VxTestAllPorts m; m data connect ball;"
                       "m text setValue {a b}; saveNetwork %1")
                   .arg(net)});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    r = vxhost({net});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "TestSphere contains 1280 triangles\n");
    r = vxhost(
        {"-e",
         QString("loadNetwork %1; list [ball radius getValue] [m data source] [m text getValue]").arg(net)});
    EXPECT_EQ(r.out, "TestSphere contains 1280 triangles\n2.5 ball {a b}\n") << r.err.toStdString();
}

// What a script did to a data object (keepLabel) is in its saved network, so the reloaded network
// computes the same surface; a module's error fails the run in one line; loaded objects never take
// an interpreter command's name; every -e runs, in order.
TEST(Vxhost, NetworksReplayDataEditsAndModuleErrorsFailTheRun)
{
    QTemporaryDir dir;
    const QString script = dir.filePath("masked.tcl");
    writeFile(script,
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
    const HostRun first = vxhost({"-e", "m getNumTriangles", script});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    const HostRun again = vxhost({"-e", "loadNetwork " + dir.filePath("net.tcl"), "-e", "m getNumTriangles"});
    EXPECT_EQ(again.out, first.out) << again.err.toStdString();
    EXPECT_TRUE(first.out.startsWith("Isosurface contains ")) << first.out.toStdString();

    const QString cd = "cd " + dir.path() + "; ";
    HostRun r = vxhost({"-e", cd + "proc ball.nrrd {} {}; load ball.nrrd", "-e", "load ball.nrrd set"});
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

TEST(Vxhost, InteractiveShellEvaluatesCompleteCommands)
{
    HostRun r = vxhost({}, VXTEST_PACKAGE_DIR,
                       "create VxTestSphere s\nproc twice {x} {\n  return [expr {2 * $x}]\n}\n"
                       "twice [s radius getValue]\ns nosuch\nputs done\n");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "s\n2\ndone\n");
    EXPECT_TRUE(r.err.startsWith("error: \"s\" has no port or command \"nosuch\"")) << r.err.toStdString();
}

} // namespace
