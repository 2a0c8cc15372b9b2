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

HostRun vxhost(const QStringList& args, const QString& packagePath = VXTEST_PACKAGE_DIR, const QByteArray& input = {})
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
    EXPECT_TRUE(r.out.contains("VxUniformScalarField3 VxRegScalarField3 VxScalarField3 VxSpatialData VxObject"))
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
    EXPECT_TRUE(r.err.contains(QString("Warning: cannot load package library \"%1\": ").arg(dir.filePath("libbroken.so"))))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QString("Warning: \"%1/libvxnotapkg.so\" is not a package library: it has no "
                                       "corvapackage_vxnotapkg_init and corvapackage_vxnotapkg_finish")
                                   .arg(VXTEST_NOTPACKAGE_DIR)))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("Warning: package folder \"/nonexistent/packages\" does not exist")) << r.err.toStdString();
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
    EXPECT_TRUE(r.err.startsWith(QString("vxhost: error in %1: \"s\" port \"radius\": \"wide\" is not a number").arg(script)))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("line 3")) << r.err.toStdString();

    r = vxhost({"-e", "create VxTestSphere s; s nosuch"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.startsWith("vxhost: error: \"s\" has no port or command \"nosuch\"")) << r.err.toStdString();

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
    HostRun r = vxhost({"-e", QString("create VxTestSphere ball; ball radius setValue 2.5; ball subdivisions setValue 3;"
                                  "ball doIt hit; ball fire; create VxTestAllPorts m; m data connect ball;"
                                  "m text setValue {a b}; saveNetwork %1")
                              .arg(net)});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    r = vxhost({net});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, "TestSphere contains 1280 triangles\n");
    r = vxhost({"-e", QString("loadNetwork %1; list [ball radius getValue] [m data source] [m text getValue]").arg(net)});
    EXPECT_EQ(r.out, "TestSphere contains 1280 triangles\n2.5 ball {a b}\n") << r.err.toStdString();
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
