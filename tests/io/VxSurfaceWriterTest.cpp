// Surfaces and line sets written in every format and read back by hand, by Coin and by VTK; surfaces
// that cannot be written and writes that fail leave nothing behind.
#include "../support/TestFormats.h"

#include <io/VxLineSetWriter.h>
#include <io/VxSurfaceWriter.h>

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxLineSet.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoNormal.h>
#include <Inventor/nodes/SoNormalBinding.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QDir>

#include <cmath>
#include <csignal>

#include <sys/resource.h>

using namespace vxtest;

namespace {

// A subdivided icosahedron on a sphere off the origin: closed, outward-facing, with coordinates
// that need all nine digits to print exactly.
TestMesh makeSphere(int levels)
{
    TestMesh m = makeIcosphere(levels);
    const float c[3] = {12.5f, -3.25f, 0.001f};
    for (std::size_t i = 0; i < m.coords.size(); ++i) m.coords[i] = c[i % 3] + 2.7f * m.coords[i];
    return m;
}

TestMesh parseOff(const std::string& text)
{
    std::istringstream in(text);
    std::string magic;
    int nv = -1, nt = -1, ne = -1;
    in >> magic >> nv >> nt >> ne;
    EXPECT_TRUE(magic == "OFF" && ne == 0) << text.substr(0, 100);
    TestMesh m;
    m.coords.resize(3 * size_t(std::max(nv, 0)));
    for (float& x : m.coords) in >> x;
    for (int t = 0, n; t < nt && in >> n; ++t) {
        EXPECT_EQ(n, 3) << "face " << t;
        for (int k = 0, i; k < 3 && in >> i; ++k) m.triangles.push_back(i);
    }
    EXPECT_TRUE(in) << "OFF file ends early";
    EXPECT_FALSE(in >> magic) << "text after the last face";
    return m;
}

template <typename Node> Node* child(SoSeparator* root)
{
    for (int i = 0; i < root->getNumChildren(); ++i)
        if (root->getChild(i)->isOfType(Node::getClassTypeId())) return static_cast<Node*>(root->getChild(i));
    return nullptr;
}

// What Coin reads in an Inventor file: the points, the normals (bound per vertex by index) and the
// face set's corners, a, b, c, -1 per triangle; or a line set's vertex counts into lineCounts.
TestMesh parseIv(const std::string& path, std::vector<int>* lineCounts = nullptr)
{
    SoInput in;
    TestMesh m;
    SoSeparator* root = in.openFile(path.c_str()) ? SoDB::readAll(&in) : nullptr;
    if (!root) return ADD_FAILURE() << "Coin cannot read " << path, m;
    root->ref();
    SoCoordinate3* coords = child<SoCoordinate3>(root);
    SoIndexedFaceSet* faces = child<SoIndexedFaceSet>(root);
    SoLineSet* lines = child<SoLineSet>(root);
    SoNormal* normals = child<SoNormal>(root);
    SoNormalBinding* binding = child<SoNormalBinding>(root);
    EXPECT_TRUE(coords && (lineCounts ? lines != nullptr : faces != nullptr));
    EXPECT_EQ(normals == nullptr, binding == nullptr);
    EXPECT_TRUE(!binding || binding->value.getValue() == SoNormalBinding::PER_VERTEX_INDEXED);
    for (int i = 0; coords && i < coords->point.getNum(); ++i)
        for (int k = 0; k < 3; ++k) m.coords.push_back(coords->point[i][k]);
    for (int i = 0; normals && i < normals->vector.getNum(); ++i)
        for (int k = 0; k < 3; ++k) m.normals.push_back(normals->vector[i][k]);
    for (int i = 0; faces && i < faces->coordIndex.getNum(); ++i)
        if (i % 4 != 3)
            m.triangles.push_back(faces->coordIndex[i]);
        else
            EXPECT_EQ(faces->coordIndex[i], -1) << "index " << i;
    for (int i = 0; lines && lineCounts && i < lines->numVertices.getNum(); ++i)
        lineCounts->push_back(lines->numVertices[i]);
    root->unref();
    return m;
}

// Corner positions triangle by triangle: what survives readers that merge or duplicate vertices.
std::vector<float> corners(const TestMesh& m)
{
    std::vector<float> out;
    for (int32_t i : m.triangles)
        for (int k = 0; k < 3; ++k) out.push_back(m.coords[3 * size_t(i) + k]);
    return out;
}

class SurfaceWriter : public TempDirTest
{
protected:
    static void SetUpTestSuite() { oivInit(); }
    void write(const TestMesh& m, const std::string& file, bool ascii = false)
    {
        KxHandle<SoTriSurface> s(makeSurface(m));
        VxSurfaceWriteOptions options;
        options.ascii = ascii;
        QString error;
        ASSERT_TRUE(VxSurfaceWriter::write(*s, QString::fromStdString(file), options, &error))
            << error.toStdString();
        EXPECT_TRUE(error.isEmpty());
    }
    std::string writeFails(const TestMesh& m, const std::string& file)
    {
        KxHandle<SoTriSurface> s(makeSurface(m));
        QString error;
        EXPECT_FALSE(VxSurfaceWriter::write(*s, QString::fromStdString(file), &error));
        return error.toStdString();
    }
};

// Three polylines on circles of different radii, the last closed by repeating its first point,
// with the radius as the line's value and the angle as the point's.
KxHandle<VxLineSet> makeLines()
{
    KxHandle<VxLineSet> s = new VxLineSet(0, 0, 1);
    const int counts[3] = {5, 9, 13};
    int next = 0;
    for (int l = 0; l < 3; ++l) {
        std::vector<int> line;
        for (int i = 0; i < counts[l]; ++i) {
            const float a = 0.37f * float(i), r = 1.5f + float(l);
            s->setNumPoints(next + 1);
            s->setPoint(next, 3.1f + r * std::cos(a), -2.7f + r * std::sin(a), 0.1f * float(l));
            s->getPointData(0)[next] = a;
            line.push_back(next++);
        }
        if (l == 2) line.push_back(line.front());
        s->addLine(line.data(), int(line.size()));
        s->getLineData(0)[l] = 1.5f + float(l);
    }
    return s;
}

} // namespace
TEST_F(SurfaceWriter, ChoosesFormatByExtensionIgnoringCase)
{
    const std::pair<const char*, VxSurfaceWriter::Format> cases[] = {
        {"a/brain.PLY", VxSurfaceWriter::PLY},      {"x.tar.Stl", VxSurfaceWriter::STL},
        {"mesh.off", VxSurfaceWriter::OFF},         {"scene.Iv", VxSurfaceWriter::IV},
        {"mesh.OBJ", VxSurfaceWriter::OBJ},         {"mesh.vtk", VxSurfaceWriter::VTK},
        {"dir.ply/mesh", VxSurfaceWriter::UNKNOWN}, {"mesh.3ds", VxSurfaceWriter::UNKNOWN}};
    for (const auto& [name, format] : cases) EXPECT_EQ(VxSurfaceWriter::formatForPath(name), format) << name;
    const TestMesh m = makeSphere(1);
    EXPECT_EQ(writeFails(m, path("mesh.3ds")), "unsupported output format '.3ds' for " + path("mesh.3ds") +
                                                   " (use .ply, .stl, .off, .iv, .obj or .vtk)");
    EXPECT_EQ(writeFails(m, path("mesh")),
              "no output format for " + path("mesh") +
                  ": the name has no extension (use .ply, .stl, .off, .iv, .obj or .vtk)");
    EXPECT_TRUE(entries().isEmpty());
}

TEST_F(SurfaceWriter, EveryFormatReadsBackExactlyInOrder)
{
    // Large enough that every format spans several output chunks.
    const TestMesh m = makeSphere(6);
    for (const char* name : {"s.ply", "s.off", "s.iv", "s.stl"}) write(m, path(name));

    // The header, the size and every vertex and face record in the documented layout.
    const TestMesh fromPly = readPly(slurp(path("s.ply")));
    EXPECT_TRUE(fromPly.coords == m.coords && fromPly.normals == m.normals &&
                fromPly.triangles == m.triangles);
    const TestMesh fromOff = parseOff(slurp(path("s.off")));
    EXPECT_TRUE(fromOff.coords == m.coords && fromOff.triangles == m.triangles);
    const TestMesh fromIv = parseIv(path("s.iv"));
    EXPECT_TRUE(fromIv.coords == m.coords && fromIv.normals == m.normals && fromIv.triangles == m.triangles);

    const std::string stl = slurp(path("s.stl"));
    ASSERT_EQ(stl.size(), 84 + 50 * size_t(m.numTriangles()));
    EXPECT_NE(stl.compare(0, 5, "solid"), 0);
    uint32_t count = 0;
    std::memcpy(&count, stl.data() + 80, 4);
    EXPECT_EQ(count, uint32_t(m.numTriangles()));
    std::vector<float> got;
    int bad = 0; // normals that are not unit, perpendicular to both edges and outward; attribute bytes
    for (int t = 0; t < m.numTriangles(); ++t) {
        float v[12];
        std::memcpy(v, stl.data() + 84 + 50 * size_t(t), sizeof v);
        got.insert(got.end(), v + 3, v + 12);
        const SbVec3f n(v), a(v + 3), b(v + 6), c(v + 9), out(&m.normals[3 * size_t(m.triangles[3 * t])]);
        bad += std::abs(n.sqrLength() - 1) > 1e-6f || std::abs(n.dot(b - a)) > 1e-4f ||
               std::abs(n.dot(c - a)) > 1e-4f || n.dot(out) <= 0 || stl[84 + 50 * size_t(t) + 48] ||
               stl[84 + 50 * size_t(t) + 49];
    }
    EXPECT_TRUE(got == corners(m));
    EXPECT_EQ(bad, 0);
}

// VTK reads every format it knows, binary and text, as the same vertices, normals and triangles.
TEST_F(SurfaceWriter, IndependentReaderSeesTheSameMesh)
{
    const TestMesh m = makeSphere(2);
    const std::pair<const char*, bool> files[] = {{"s.ply", false}, {"a.ply", true}, {"s.obj", false},
                                                  {"s.vtk", false}, {"a.vtk", true}, {"s.stl", false},
                                                  {"a.stl", true}}; // name, ascii
    for (const auto& [name, ascii] : files) write(m, path(name), ascii);
    if (runVtk("mesh " + path("s.ply")).empty())
        GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    for (const auto& [name, ascii] : files) {
        const TestMesh got = parseVtkMesh(runVtk("mesh " + path(name)));
        EXPECT_EQ(got.numPoints(), m.numPoints()) << name;
        EXPECT_EQ(got.numTriangles(), m.numTriangles()) << name;
        // STL has neither shared vertices nor vertex normals, so only the triangles' corners compare.
        EXPECT_TRUE(std::string(name).find(".stl") != std::string::npos
                        ? corners(got) == corners(m)
                        : got.coords == m.coords && got.triangles == m.triangles && got.normals == m.normals)
            << name;
    }
}

TEST_F(SurfaceWriter, SurfacesWithoutNormalsOrTrianglesStayValid)
{
    TestMesh bare = makeSphere(1);
    bare.normals.clear();
    // A collapsed triangle has no direction: its STL normal must be zero, not NaN.
    bare.triangles.insert(bare.triangles.end(), {0, 0, 1});
    for (const char* name : {"bare.ply", "bare.iv", "bare.stl"}) write(bare, path(name));
    const TestMesh ply = readPly(slurp(path("bare.ply")));
    EXPECT_TRUE(ply.coords == bare.coords && ply.triangles == bare.triangles && ply.normals.empty());
    const TestMesh iv = parseIv(path("bare.iv"));
    EXPECT_TRUE(iv.coords == bare.coords && iv.normals.empty() && iv.triangles == bare.triangles);
    const std::string stl = slurp(path("bare.stl"));
    EXPECT_EQ(stl.substr(stl.size() - 50, 12), std::string(12, '\0'));

    for (const char* name : {"e.ply", "e.stl", "e.off", "e.iv"}) write(TestMesh(), path(name));
    EXPECT_EQ(readPly(slurp(path("e.ply"))).numPoints(), 0);
    EXPECT_EQ(slurp(path("e.stl")).substr(80), std::string(4, '\0')) << "84 bytes, no triangles";
    EXPECT_EQ(slurp(path("e.off")), "OFF\n0 0 0\n");
    EXPECT_TRUE(parseIv(path("e.iv")).coords.empty());
}

TEST_F(SurfaceWriter, RefusesInconsistentSurfacesWithoutWriting)
{
    TestMesh m = makeSphere(1);
    m.triangles[7] = m.numPoints();
    EXPECT_EQ(writeFails(m, path("s.ply")),
              "cannot write " + path("s.ply") +
                  ": triangle 2 refers to vertex 42, but the surface has 42 vertices");
    m = makeSphere(1);
    m.normals.resize(6);
    EXPECT_EQ(writeFails(m, path("s.off")),
              "cannot write " + path("s.off") + ": the surface has 2 normals for 42 vertices");
    // No file may hold a NaN or an infinity, in a vertex or in a normal.
    m = makeSphere(1);
    m.coords[15] = 1.f, m.coords[16] = NAN, m.coords[17] = 2.f;
    EXPECT_EQ(writeFails(m, path("s.stl")),
              "cannot write " + path("s.stl") + ": vertex 5 has a coordinate that is not finite (1 nan 2)");
    m = makeSphere(1);
    m.normals[21] = 0.f, m.normals[22] = -INFINITY, m.normals[23] = 0.f;
    EXPECT_EQ(writeFails(m, path("s.ply")),
              "cannot write " + path("s.ply") + ": the normal of vertex 7 is not finite (0 -inf 0)");
    EXPECT_TRUE(entries().isEmpty());
}

TEST_F(SurfaceWriter, FailedWritesLeaveNothingBehindAndKeepTheOldFile)
{
    const TestMesh m = makeSphere(3);
    const std::string missing = path("no/such/dir/s.ply");
    EXPECT_EQ(writeFails(m, missing), "cannot write " + missing + ": No such file or directory");
    ASSERT_TRUE(QDir().mkdir(qpath("taken.stl")));
    EXPECT_EQ(writeFails(m, path("taken.stl")), "cannot write " + path("taken.stl") + ": Is a directory");
    EXPECT_TRUE(entries("taken.stl").isEmpty());

    // A file-size limit makes the write fail halfway, as a full disk would.
    const std::string old = "previous contents\n";
    rlimit saved, limited;
    getrlimit(RLIMIT_FSIZE, &saved);
    limited = saved, limited.rlim_cur = 4096;
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    for (const char* name : {"old.ply", "old.stl", "old.off", "old.iv"}) {
        spit(path(name), old);
        setrlimit(RLIMIT_FSIZE, &limited);
        const std::string error = writeFails(m, path(name));
        setrlimit(RLIMIT_FSIZE, &saved);
        EXPECT_EQ(error, "cannot write " + path(name) + ": File too large");
        EXPECT_EQ(slurp(path(name)), old) << name;
    }
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(entries(), QStringList({"old.iv", "old.off", "old.ply", "old.stl", "taken.stl"}));

    // Without the limit the same call replaces the old file completely, keeping no tail of it.
    const TestMesh small = makeSphere(0);
    write(m, path("old.off"));
    write(small, path("old.off"));
    const TestMesh back = parseOff(slurp(path("old.off")));
    EXPECT_TRUE(back.coords == small.coords && back.triangles == small.triangles);
}

// VTK reads the points and the lines; Coin reads the points line by line with one vertex count per
// line. A set with a bad index or a name of another format writes nothing.
TEST_F(SurfaceWriter, LineSetsAreReadByVtkAndCoinAndBadOnesRefused)
{
    KxHandle<VxLineSet> s = makeLines();
    QString error;
    EXPECT_FALSE(VxLineSetWriter::write(*s, qpath("l.ply"), &error));
    EXPECT_EQ(error, "unsupported line-set format for " + qpath("l.ply") + " (use .vtk or .iv)");
    s->getLine(1)[2] = 99;
    EXPECT_FALSE(VxLineSetWriter::write(*s, qpath("l.vtk"), &error));
    EXPECT_EQ(error,
              "cannot write " + qpath("l.vtk") + ": line 1 refers to point 99, but the set has 27 points");
    EXPECT_TRUE(entries().isEmpty());
    s = makeLines();
    for (const char* name : {"l.vtk", "l.iv"})
        ASSERT_TRUE(VxLineSetWriter::write(*s, qpath(name), &error)) << error.toStdString();
    std::vector<int32_t> indices;
    std::vector<int> counts, ivCounts;
    std::vector<float> byLine;
    for (int l = 0; l < 3; ++l) {
        counts.push_back(int(s->getLine(l).size()));
        for (int i : s->getLine(l)) {
            indices.push_back(i);
            byLine.insert(byLine.end(), s->getPoints() + 3 * i, s->getPoints() + 3 * i + 3);
        }
    }
    EXPECT_EQ(parseIv(path("l.iv"), &ivCounts).coords, byLine);
    EXPECT_EQ(ivCounts, counts);

    const std::string text = runVtk("mesh " + path("l.vtk") + " lines");
    if (text.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    std::vector<int> sizes;
    const TestMesh got = parseVtkMesh(text, &sizes);
    EXPECT_EQ(got.coords, std::vector<float>(s->getPoints(), s->getPoints() + 3 * s->getNumPoints()));
    EXPECT_EQ(got.triangles, indices);
    EXPECT_EQ(sizes, counts);
}
