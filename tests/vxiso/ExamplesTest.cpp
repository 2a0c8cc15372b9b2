// The example networks run through vxhost on the real MRI template and atlas; a saved network
// loaded by another run gives the same surface byte for byte.
#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace {

struct HostRun
{
    int exitCode = -1;
    QString out, err;
};

HostRun vxhost(const QStringList& args, const QString& workDir)
{
    QProcess p;
    p.setWorkingDirectory(workDir);
    p.start(VXHOST_PROGRAM, args);
    EXPECT_TRUE(p.waitForFinished(120000));
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

int plyFaces(const QString& path)
{
    QByteArray head = contents(path).left(400);
    int at = head.indexOf("element face ");
    return at < 0 ? -1 : head.mid(at + 13, head.indexOf('\n', at) - at - 13).toInt();
}

class Examples : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!QFileInfo::exists("/usr/share/mricron/templates/ch2.nii.gz") ||
            !QFileInfo::exists("/usr/share/mricron/templates/aal.nii.gz"))
            GTEST_SKIP() << "mricron-data is not installed (apt-get install mricron-data)";
    }
    QTemporaryDir dir;
};

TEST_F(Examples, HeadSurfaceAndItsSavedNetworkGiveTheSameMesh)
{
    const QString mesh = dir.filePath("head.ply"), again = dir.filePath("again.ply"),
                  net = dir.filePath("head.tcl");
    HostRun r = vxhost({VXISO_SOURCE_DIR "/examples/head-surface.tcl", mesh}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.startsWith("Isosurface contains ")) << r.out.toStdString();
    const int faces = plyFaces(mesh);
    EXPECT_GT(faces, 100000);
    EXPECT_TRUE(r.out.contains(QString("Isosurface contains %1 triangles (").arg(faces)))
        << r.out.toStdString();

    r = vxhost(
        {"-e", QString("source %1; saveNetwork %2").arg(VXISO_SOURCE_DIR "/examples/head-surface.tcl", net)},
        dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_TRUE(contents(net).contains("\"head\" doIt hit\n"));
    r = vxhost({"-e", QString("loadNetwork %1; head exportData ply %2").arg(net, again)}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(contents(again), contents(mesh)) << "the reloaded network computes the same surface";
}

TEST_F(Examples, RelaxedMaskKeepsMoreOfTheRegionThanStrict)
{
    const QString script = VXISO_SOURCE_DIR "/examples/hippocampus-surface.tcl";
    HostRun strict = vxhost({script, dir.filePath("strict.ply"), "strict"}, dir.path());
    HostRun relaxed = vxhost({script, dir.filePath("relaxed.ply"), "relaxed"}, dir.path());
    ASSERT_EQ(strict.exitCode, 0) << strict.err.toStdString();
    ASSERT_EQ(relaxed.exitCode, 0) << relaxed.err.toStdString();
    EXPECT_TRUE(strict.out.startsWith("region voxels: 7469\n")) << strict.out.toStdString();
    const int s = plyFaces(dir.filePath("strict.ply")), r = plyFaces(dir.filePath("relaxed.ply"));
    EXPECT_GT(s, 0);
    EXPECT_GT(r, s);

    // The network keeps the atlas's "keepLabel 37": reloaded, it masks the same region.
    HostRun saved = vxhost({"-e", QString("source %1; saveNetwork hippocampus.tcl").arg(script)}, dir.path());
    ASSERT_EQ(saved.exitCode, 0) << saved.err.toStdString();
    HostRun again =
        vxhost({"-e", "loadNetwork hippocampus.tcl; hippocampus exportData ply again.ply"}, dir.path());
    ASSERT_EQ(again.exitCode, 0) << again.err.toStdString();
    EXPECT_EQ(contents(dir.filePath("again.ply")), contents(dir.filePath("relaxed.ply")));
}

// The module end to end through vxhost: when Apply recomputes, what it prints, the resampling while
// the threshold is dragged, "Average" clamping, "setParamCC", and saved networks that reproduce the
// surface. The plane of the script's volume gives exact counts: 2 (ny - 1)(nz - 1) triangles.
TEST(HostScript, IsosurfaceModuleBehavesAsAUserSeesIt)
{
    QTemporaryDir dir;
    HostRun r = vxhost({VXISO_SOURCE_DIR "/tests/scripts/isosurface-module.tcl"}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.toStdString(),
              "-- no Apply, no surface\n"
              "-- Apply\n"
              "Isosurface contains 15810 triangles\n"
              "-- Apply again: up to date\n"
              "-- a new threshold without Apply\n"
              "-- compactify, then a threshold above every value\n"
              "Isosurface contains 15810 triangles (0.00% less)\n"
              "Isosurface contains 0 triangles\n"
              "-- dragging: every axis averaged by n/128 (2 2 1)\n"
              "Isosurface contains 7874 triangles\n"
              "Isosurface contains 15810 triangles\n"
              "-- dragging without simplified rendering: the value waits for the release\n"
              "Isosurface contains 15810 triangles\n"
              "-- Down Sample 4 4 4, Average clamped to half the axis\n"
              "Isosurface contains 882 triangles\n"
              "-- setParamCC\n"
              "usage: iso setParamCC VALUE\n"
              "-- saved networks say \"doIt hit\" only after a computation\n"
              "Isosurface contains 15810 triangles (0.00% less)\n");
    r = vxhost({"-e", "loadNetwork after.tcl; fresh exportData ply second.ply"}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_GT(contents(dir.filePath("first.ply")).size(), 100000);
    EXPECT_EQ(contents(dir.filePath("second.ply")), contents(dir.filePath("first.ply")));
}

// Memory that runs out during an extraction (on its worker and the slabs' threads) gives the
// module's message, keeps the previous surface and leaves the host running.
TEST_F(Examples, MemoryRunningOutKeepsThePreviousSurfaceAndTheHostGoesOn)
{
    QProcess p;
    p.start("/bin/sh", {"-c", "ulimit -v 250000; exec \"$0\" -e \"$1\"", VXHOST_PROGRAM,
                        "load /usr/share/mricron/templates/ch2better.nii.gz vol; create VxIsosurface iso; "
                        "iso data connect vol; iso threshold setValue 120; iso doIt hit; iso fire; "
                        "set small [iso getNumTriangles]; iso threshold setValue 100.5; iso doIt hit; "
                        "catch {iso fire}; list $small [iso getNumTriangles]"});
    ASSERT_TRUE(p.waitForFinished(120000));
    const QString out = QString::fromUtf8(p.readAllStandardOutput()),
                  err = QString::fromUtf8(p.readAllStandardError());
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit) << err.toStdString();
    EXPECT_TRUE(err.contains("Error: Open Inventor Memory exception. Try with a higher Threshold.\n"))
        << err.toStdString();
    EXPECT_TRUE(out.endsWith("\n61894 61894\n")) << out.toStdString();
}

} // namespace
