// The example networks run through vxhost on the real MRI template and atlas; a saved network
// loaded by another run gives the same surface byte for byte.
#include "../support/TestFields.h"
#include "../support/TestFormats.h"
#include "../support/TestHost.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <vector>

namespace {

using namespace vxtest;

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

TestMesh ply(const QString& path)
{
    return readPly(contents(path).toStdString());
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
    ProgramRun r =
        runProgram(VXHOST_PROGRAM, {VXISO_SOURCE_DIR "/examples/head-surface.tcl", mesh}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.out.startsWith("Isosurface contains ")) << r.out;
    const int faces = ply(mesh).numTriangles();
    EXPECT_GT(faces, 100000);
    EXPECT_TRUE(r.out.contains(QString("Isosurface contains %1 triangles (").arg(faces))) << r.out;

    r = runProgram(
        VXHOST_PROGRAM,
        {"-e", QString("source %1; saveNetwork %2").arg(VXISO_SOURCE_DIR "/examples/head-surface.tcl", net)},
        dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(contents(net).contains("\"head\" doIt hit\n"));
    r = runProgram(VXHOST_PROGRAM, {"-e", QString("loadNetwork %1; head exportData ply %2").arg(net, again)},
                   dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(contents(again), contents(mesh)) << "the reloaded network computes the same surface";
}

TEST_F(Examples, RelaxedMaskKeepsMoreOfTheRegionThanStrict)
{
    const QString script = VXISO_SOURCE_DIR "/examples/hippocampus-surface.tcl";
    ProgramRun strict =
        runProgram(VXHOST_PROGRAM, {script, dir.filePath("strict.ply"), "strict"}, dir.path());
    ProgramRun relaxed =
        runProgram(VXHOST_PROGRAM, {script, dir.filePath("relaxed.ply"), "relaxed"}, dir.path());
    ASSERT_EQ(strict.exitCode, 0) << strict.err;
    ASSERT_EQ(relaxed.exitCode, 0) << relaxed.err;
    EXPECT_TRUE(strict.out.startsWith("region voxels: 7469\n")) << strict.out;
    const int s = ply(dir.filePath("strict.ply")).numTriangles(),
              r = ply(dir.filePath("relaxed.ply")).numTriangles();
    EXPECT_GT(s, 0);
    EXPECT_GT(r, s);

    // The network keeps the atlas's "keepLabel 37": reloaded, it masks the same region.
    ProgramRun saved = runProgram(
        VXHOST_PROGRAM, {"-e", QString("source %1; saveNetwork hippocampus.tcl").arg(script)}, dir.path());
    ASSERT_EQ(saved.exitCode, 0) << saved.err;
    ProgramRun again =
        runProgram(VXHOST_PROGRAM,
                   {"-e", "loadNetwork hippocampus.tcl; hippocampus exportData ply again.ply"}, dir.path());
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(contents(dir.filePath("again.ply")), contents(dir.filePath("relaxed.ply")));
}

// Contour lines of the middle axial slice: each line carries one of the evenly spaced values that
// cross the head (the range's ends 0 and 254 cut nothing), the lines of lower values first.
TEST_F(Examples, HeadIsolinesComeInValueOrder)
{
    const QString out = dir.filePath("lines.vtk");
    const ProgramRun r =
        runProgram(VXHOST_PROGRAM, {VXISO_SOURCE_DIR "/examples/isolines-head.tcl", out}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const QString text = QString::fromUtf8(contents(out));
    const QStringList words = text.section("CELL_DATA ", 1).split('\n', Qt::SkipEmptyParts).mid(3);
    std::vector<float> values;
    for (const QString& w : words) values.push_back(w.toFloat());
    EXPECT_GT(values.size(), 10u);
    EXPECT_TRUE(text.contains(QString("\nLINES %1 ").arg(values.size())));
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    for (float v : values) EXPECT_TRUE(v == 63.5f || v == 127.f || v == 190.5f) << v;
}

// The tetrahedral example writes its own mesh and needs nothing installed. Its sphere is closed and
// consistently oriented, and every triangle faces outward.
TEST(TetraExample, SphereIsClosedAndFacesOutward)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("ball.ply");
    const ProgramRun r =
        runProgram(VXHOST_PROGRAM, {VXISO_SOURCE_DIR "/examples/tetra-ball.tcl", out}, dir.path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const TestMesh m = ply(out);
    EXPECT_EQ(r.out, QString("Isosurface contains %1 triangles\nwrote %2\n").arg(m.numTriangles()).arg(out));
    EXPECT_GT(m.numTriangles(), 4000);
    const KxVec3f centre(0.5f, 0.5f, 0.5f);
    for (std::size_t t = 0; t < std::size_t(m.numTriangles()); ++t) {
        const KxVec3i i = m.triangle(t);
        const KxVec3f a = m.point(std::size_t(i.x)), b = m.point(std::size_t(i.y)),
                      c = m.point(std::size_t(i.z));
        EXPECT_GT((b - a).cross(c - a).dot(a + b + c - centre * 3.f), 0.f) << "triangle " << t;
    }
    EXPECT_TRUE(isWatertight(m));
}

// The module end to end through vxhost (see the script). The plane of the script's volume gives exact
// counts: 2 (ny - 1)(nz - 1) triangles.
TEST(HostScript, IsosurfaceModuleDraggedAndDownSampled)
{
    QTemporaryDir dir;
    const ProgramRun r =
        runProgram(VXHOST_PROGRAM, {VXISO_SOURCE_DIR "/tests/scripts/isosurface-module.tcl"}, dir.path());
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "-- dragging: every axis averaged by n/128 (2 2 1), then the full field on release\n"
                     "Isosurface contains 7874 triangles\n"
                     "Isosurface contains 15810 triangles\n"
                     "-- dragging without simplified rendering: the value waits for the release\n"
                     "Isosurface contains 15810 triangles\n"
                     "-- Down Sample 4 4 4\n"
                     "Isosurface contains 882 triangles\n");
}

// Memory that runs out during an extraction (on its worker and the slabs' threads) gives the
// module's message, keeps the previous surface and leaves the host running.
TEST_F(Examples, MemoryRunningOutKeepsThePreviousSurfaceAndTheHostGoesOn)
{
    const ProgramRun r = runProgram(
        "/bin/sh", {"-c", "ulimit -v 250000; exec \"$0\" -e \"$1\"", VXHOST_PROGRAM,
                    "load /usr/share/mricron/templates/ch2better.nii.gz vol; create VxIsosurface iso; "
                    "iso data connect vol; iso threshold setValue 120; iso doIt hit; iso fire; "
                    "set small [iso getNumTriangles]; iso threshold setValue 100.5; iso doIt hit; "
                    "catch {iso fire}; list $small [iso getNumTriangles]"});
    EXPECT_EQ(r.exitCode, 1) << "the module's error fails the run, without a crash: " << r.err;
    EXPECT_TRUE(r.err.contains("Error: Open Inventor Memory exception. Try with a higher Threshold.\n"))
        << r.err;
    EXPECT_TRUE(r.out.endsWith("\n61894 61894\n")) << r.out;
}

} // namespace
