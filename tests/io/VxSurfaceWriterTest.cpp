#include "../support/TestFiles.h"
#include "../support/TestSurfaces.h"

#include <io/VxSurfaceWriter.h>

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoNormal.h>
#include <Inventor/nodes/SoNormalBinding.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QDir>

#include <cmath>
#include <csignal>
#include <cstring>
#include <sstream>

#include <sys/resource.h>

using namespace vxtest;

namespace {

// Plain arrays, so that meshes read back by different means compare with ==.
using Mesh = TestMesh;

// A subdivided icosahedron on a sphere off the origin: closed, outward-facing, with coordinates
// that need all nine digits to print exactly.
Mesh makeSphere(int levels)
{
    Mesh m = makeIcosphere(levels);
    const float c[3] = {12.5f, -3.25f, 0.001f};
    for (std::size_t i = 0; i < m.coords.size(); ++i) m.coords[i] = c[i % 3] + 2.7f * m.coords[i];
    return m;
}

std::string slurp(const QString& path)
{
    return vxtest::slurp(QFile::encodeName(path).constData());
}

template <typename T> T le(const std::string& bytes, size_t at)
{
    T v;
    std::memcpy(&v, bytes.data() + at, sizeof v);
    return v;
}

const char* const PLY_HEADER = "ply\nformat binary_little_endian 1.0\ncomment written by vxiso\n"
                               "element vertex %d\nproperty float x\nproperty float y\nproperty float z\n"
                               "property float nx\nproperty float ny\nproperty float nz\nelement face %d\n"
                               "property list uchar int vertex_indices\nend_header\n";

std::string plyHeader(int nv, int nt)
{
    char buf[512];
    std::snprintf(buf, sizeof buf, PLY_HEADER, nv, nt);
    return buf;
}

// Reads the binary PLY that the writer must produce for nv vertices and nt triangles.
Mesh parsePly(const std::string& b, int nv, int nt)
{
    const std::string header = plyHeader(nv, nt);
    EXPECT_EQ(b.substr(0, header.size()), header);
    EXPECT_EQ(b.size(), header.size() + 24 * size_t(nv) + 13 * size_t(nt));
    Mesh m;
    size_t at = header.size();
    for (int i = 0; i < nv && at + 24 <= b.size(); ++i, at += 24) {
        for (int k = 0; k < 3; ++k) m.coords.push_back(le<float>(b, at + 4 * k));
        for (int k = 3; k < 6; ++k) m.normals.push_back(le<float>(b, at + 4 * k));
    }
    for (int t = 0; t < nt && at + 13 <= b.size(); ++t, at += 13) {
        EXPECT_EQ(b[at], 3) << "face " << t;
        for (int k = 0; k < 3; ++k) m.triangles.push_back(le<int32_t>(b, at + 1 + 4 * k));
    }
    return m;
}

Mesh parseOff(const std::string& text)
{
    std::istringstream in(text);
    std::string magic;
    int nv = -1, nt = -1, ne = -1;
    in >> magic >> nv >> nt >> ne;
    EXPECT_EQ(magic, "OFF");
    EXPECT_EQ(ne, 0);
    Mesh m;
    m.coords.resize(3 * size_t(std::max(nv, 0)));
    for (float& x : m.coords) in >> x;
    for (int t = 0, n; t < nt && in >> n; ++t) {
        EXPECT_EQ(n, 3) << "face " << t;
        for (int k = 0, i; k < 3 && in >> i; ++k) m.triangles.push_back(i);
    }
    EXPECT_TRUE(in) << "OFF file ends early";
    in >> magic;
    EXPECT_TRUE(in.eof()) << "text after the last face";
    return m;
}

template <typename Node> Node* child(SoSeparator* root)
{
    for (int i = 0; i < root->getNumChildren(); ++i)
        if (root->getChild(i)->isOfType(Node::getClassTypeId())) return static_cast<Node*>(root->getChild(i));
    return nullptr;
}

// Reads an Inventor file back with Coin; coordIndex must be a, b, c, -1 per triangle.
Mesh parseIv(const QString& path)
{
    SoInput in;
    Mesh m;
    if (!in.openFile(QFile::encodeName(path).constData())) return ADD_FAILURE() << "cannot open", m;
    SoSeparator* root = SoDB::readAll(&in);
    if (!root) return ADD_FAILURE() << "Coin cannot read " << path.toStdString(), m;
    root->ref();
    SoCoordinate3* coords = child<SoCoordinate3>(root);
    SoIndexedFaceSet* faces = child<SoIndexedFaceSet>(root);
    SoNormal* normals = child<SoNormal>(root);
    SoNormalBinding* binding = child<SoNormalBinding>(root);
    EXPECT_TRUE(coords && faces);
    EXPECT_EQ(normals == nullptr, binding == nullptr);
    if (binding) {
        EXPECT_EQ(binding->value.getValue(), int(SoNormalBinding::PER_VERTEX_INDEXED));
    }
    for (int i = 0; coords && i < coords->point.getNum(); ++i)
        for (int k = 0; k < 3; ++k) m.coords.push_back(coords->point[i][k]);
    for (int i = 0; normals && i < normals->vector.getNum(); ++i)
        for (int k = 0; k < 3; ++k) m.normals.push_back(normals->vector[i][k]);
    for (int i = 0; faces && i < faces->coordIndex.getNum(); ++i)
        if (i % 4 != 3)
            m.triangles.push_back(faces->coordIndex[i]);
        else
            EXPECT_EQ(faces->coordIndex[i], -1) << "index " << i;
    root->unref();
    return m;
}

// Runs the VTK reader script; empty when VTK cannot be used here.
std::string readWithVtk(const QString& path)
{
    return runPython("vtk", VXISO_SOURCE_DIR "/tests/io/read_mesh.py '" + path.toStdString() + "'");
}

// Parses the script's output: points, normals, cells, each a count line and that many rows.
Mesh parseVtkOutput(const std::string& text)
{
    std::istringstream in(text);
    Mesh m;
    std::string word;
    int n = 0;
    for (std::vector<float>* v : {&m.coords, &m.normals}) {
        in >> word >> n;
        v->resize(3 * size_t(n));
        for (float& x : *v) in >> x;
    }
    in >> word >> n;
    EXPECT_EQ(word, "cells");
    m.triangles.resize(3 * size_t(n));
    for (int32_t& i : m.triangles) in >> i;
    EXPECT_TRUE(in) << text.substr(0, 2000);
    return m;
}

// Corner positions triangle by triangle: what survives readers that merge or duplicate vertices.
std::vector<float> corners(const Mesh& m)
{
    std::vector<float> out;
    for (int32_t i : m.triangles)
        for (int k = 0; k < 3; ++k) out.push_back(m.coords[3 * size_t(i) + k]);
    return out;
}

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

class SurfaceWriter : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { oivInit(); }
    QString path(const char* name) const { return dir.path() + '/' + name; }
    void write(const Mesh& m, const QString& file, const VxSurfaceWriteOptions& options = {})
    {
        KxHandle<SoTriSurface> s(makeSurface(m));
        QString error;
        ASSERT_TRUE(VxSurfaceWriter::write(*s, file, options, &error)) << error.toStdString();
        EXPECT_TRUE(error.isEmpty());
    }
    QString writeFails(const Mesh& m, const QString& file)
    {
        KxHandle<SoTriSurface> s(makeSurface(m));
        QString error;
        EXPECT_FALSE(VxSurfaceWriter::write(*s, file, &error));
        return error;
    }
    QTemporaryDir dir;
};

TEST_F(SurfaceWriter, ChoosesFormatByExtensionIgnoringCase)
{
    const std::pair<const char*, VxSurfaceWriter::Format> cases[] = {
        {"a/brain.PLY", VxSurfaceWriter::PLY},      {"x.tar.Stl", VxSurfaceWriter::STL},
        {"mesh.off", VxSurfaceWriter::OFF},         {"scene.Iv", VxSurfaceWriter::IV},
        {"mesh.OBJ", VxSurfaceWriter::OBJ},         {"mesh.vtk", VxSurfaceWriter::VTK},
        {"dir.ply/mesh", VxSurfaceWriter::UNKNOWN}, {"mesh.3ds", VxSurfaceWriter::UNKNOWN}};
    for (const auto& c : cases) EXPECT_EQ(VxSurfaceWriter::formatForPath(c.first), c.second) << c.first;
    EXPECT_EQ(VxSurfaceWriter::supportedExtensions(), QStringList({".ply", ".stl", ".off", ".iv", ".obj", ".vtk"}));

    const Mesh m = makeSphere(1);
    EXPECT_EQ(writeFails(m, path("mesh.3ds")), "unsupported output format '.3ds' for " + path("mesh.3ds") +
                                                   " (use .ply, .stl, .off, .iv, .obj or .vtk)");
    EXPECT_EQ(writeFails(m, path("mesh")), "no output format for " + path("mesh") +
                                               ": the name has no extension (use .ply, .stl, .off, .iv, .obj or .vtk)");
    EXPECT_TRUE(entries(dir.path()).isEmpty());
}

TEST_F(SurfaceWriter, EveryFormatReadsBackExactlyInOrder)
{
    // Large enough that every format spans several output chunks.
    const Mesh m = makeSphere(6);
    for (const char* name : {"s.ply", "s.off", "s.iv", "s.stl"}) write(m, path(name));

    // The header, the size and every vertex and face record in the documented layout.
    const Mesh fromPly = parsePly(slurp(path("s.ply")), m.numPoints(), m.numTriangles());
    EXPECT_TRUE(fromPly.coords == m.coords && fromPly.normals == m.normals &&
                fromPly.triangles == m.triangles);

    const Mesh fromOff = parseOff(slurp(path("s.off")));
    EXPECT_TRUE(fromOff.coords == m.coords && fromOff.triangles == m.triangles);

    const Mesh fromIv = parseIv(path("s.iv"));
    EXPECT_TRUE(fromIv.coords == m.coords && fromIv.normals == m.normals && fromIv.triangles == m.triangles);

    const std::string stl = slurp(path("s.stl"));
    ASSERT_EQ(stl.size(), 84 + 50 * size_t(m.numTriangles()));
    EXPECT_NE(stl.compare(0, 5, "solid"), 0);
    EXPECT_EQ(le<uint32_t>(stl, 80), uint32_t(m.numTriangles()));
    const std::vector<float> expected = corners(m);
    std::vector<float> got;
    int badNormals = 0;
    for (int t = 0; t < m.numTriangles(); ++t) {
        const size_t at = 84 + 50 * size_t(t);
        float v[12];
        std::memcpy(v, stl.data() + at, sizeof v);
        got.insert(got.end(), v + 3, v + 12);
        EXPECT_EQ(le<uint16_t>(stl, at + 48), 0);
        // Unit, perpendicular to both edges, pointing away from the sphere's centre.
        const float* n = v;
        double len = 0, edge1 = 0, edge2 = 0, out = 0;
        for (int k = 0; k < 3; ++k) {
            len += n[k] * n[k];
            edge1 += n[k] * (v[6 + k] - v[3 + k]);
            edge2 += n[k] * (v[9 + k] - v[3 + k]);
            out += n[k] * m.normals[3 * size_t(m.triangles[3 * t]) + k];
        }
        badNormals +=
            std::abs(len - 1) > 1e-6 || std::abs(edge1) > 1e-4 || std::abs(edge2) > 1e-4 || out <= 0;
    }
    EXPECT_TRUE(got == expected);
    EXPECT_EQ(badNormals, 0);
}

// VTK reads every format it knows, binary and text, as the same vertices, normals and triangles.
TEST_F(SurfaceWriter, IndependentReaderSeesTheSameMesh)
{
    const Mesh m = makeSphere(2);
    struct Case
    {
        const char* name;
        bool ascii, hasNormals, mergesCorners;
    } cases[] = {{"s.ply", false, true, false}, {"a.ply", true, true, false}, {"s.obj", false, true, false},
                 {"s.vtk", false, true, false}, {"a.vtk", true, true, false}, {"s.stl", false, false, true},
                 {"a.stl", true, false, true}};
    for (const Case& c : cases) {
        VxSurfaceWriteOptions options;
        options.ascii = c.ascii;
        write(m, path(c.name), options);
    }
    if (readWithVtk(path("s.ply")).empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
    for (const Case& c : cases) {
        const Mesh got = parseVtkOutput(readWithVtk(path(c.name)));
        EXPECT_EQ(got.numPoints(), m.numPoints()) << c.name;
        EXPECT_EQ(got.numTriangles(), m.numTriangles()) << c.name;
        // STL readers merge shared corners, so only the triangles' corner positions compare.
        if (c.mergesCorners) {
            EXPECT_TRUE(corners(got) == corners(m)) << c.name;
            continue;
        }
        EXPECT_TRUE(got.coords == m.coords) << c.name;
        EXPECT_TRUE(got.triangles == m.triangles) << c.name;
        if (c.hasNormals) {
            EXPECT_TRUE(got.normals == m.normals) << c.name;
        }
    }
}

TEST_F(SurfaceWriter, SurfacesWithoutNormalsOrTrianglesStayValid)
{
    Mesh bare = makeSphere(1);
    bare.normals.clear();
    // A collapsed triangle has no direction: its STL normal must be zero, not NaN.
    bare.triangles.insert(bare.triangles.end(), {0, 0, 1});
    write(bare, path("bare.ply"));
    write(bare, path("bare.iv"));
    write(bare, path("bare.stl"));
    const Mesh ply = parsePly(slurp(path("bare.ply")), bare.numPoints(), bare.numTriangles());
    EXPECT_TRUE(ply.coords == bare.coords && ply.triangles == bare.triangles);
    EXPECT_EQ(ply.normals, std::vector<float>(bare.coords.size(), 0.f));
    const Mesh iv = parseIv(path("bare.iv"));
    EXPECT_TRUE(iv.coords == bare.coords && iv.normals.empty() && iv.triangles == bare.triangles);
    const std::string stl = slurp(path("bare.stl"));
    EXPECT_EQ(stl.substr(stl.size() - 50, 12), std::string(12, '\0'));

    const Mesh empty;
    for (const char* name : {"e.ply", "e.stl", "e.off", "e.iv"}) write(empty, path(name));
    EXPECT_EQ(slurp(path("e.ply")), plyHeader(0, 0));
    EXPECT_EQ(slurp(path("e.stl")).size(), 84u);
    EXPECT_EQ(le<uint32_t>(slurp(path("e.stl")), 80), 0u);
    EXPECT_EQ(slurp(path("e.off")), "OFF\n0 0 0\n");
    const Mesh iv0 = parseIv(path("e.iv"));
    EXPECT_TRUE(iv0.coords.empty() && iv0.triangles.empty());
}

TEST_F(SurfaceWriter, RefusesInconsistentSurfacesWithoutWriting)
{
    Mesh m = makeSphere(1);
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
    EXPECT_TRUE(entries(dir.path()).isEmpty());
}

TEST_F(SurfaceWriter, FailedWritesLeaveNothingBehindAndKeepTheOldFile)
{
    const Mesh m = makeSphere(3);
    const QString missing = path("no/such/dir/s.ply");
    EXPECT_EQ(writeFails(m, missing), "cannot write " + missing + ": No such file or directory");

    ASSERT_TRUE(QDir(dir.path()).mkdir("taken.stl"));
    EXPECT_EQ(writeFails(m, path("taken.stl")), "cannot write " + path("taken.stl") + ": Is a directory");
    EXPECT_TRUE(entries(path("taken.stl")).isEmpty());

    // A file-size limit makes the write fail halfway, as a full disk would.
    const std::string old = "previous contents\n";
    for (const char* name : {"old.ply", "old.stl", "old.off", "old.iv"}) {
        std::ofstream(path(name).toStdString()) << old;
        rlimit saved;
        getrlimit(RLIMIT_FSIZE, &saved);
        rlimit small = saved;
        small.rlim_cur = 4096;
        auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &small);
        const QString error = writeFails(m, path(name));
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, oldHandler);
        EXPECT_EQ(error, "cannot write " + path(name) + ": File too large");
        EXPECT_EQ(slurp(path(name)), old) << name;
    }
    EXPECT_EQ(entries(dir.path()), QStringList({"old.iv", "old.off", "old.ply", "old.stl", "taken.stl"}));

    // Without the limit the same call replaces the old file completely, keeping no tail of it.
    const Mesh small = makeSphere(0);
    write(m, path("old.off"));
    write(small, path("old.off"));
    const Mesh back = parseOff(slurp(path("old.off")));
    EXPECT_TRUE(back.coords == small.coords && back.triangles == small.triangles);
}

} // namespace
