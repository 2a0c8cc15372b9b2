// The older extractor: agreement with the template engine, its per-type thresholds, compactify, its
// messages, interruption and block-structured fields.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExternal.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <kx/KxProgressInterface.h>
#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxCoord3.h>
#include <vx/VxMessage.h>

#include <Inventor/SoDB.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <new>
#include <tuple>

using namespace vxtest;

namespace {

VxMessage* console()
{
    return VxApplication::instance()->message();
}

struct Options
{
    int method = 0;
    VxIsosurfaceExternal::IntersectionCallback callback = nullptr;
    VxObject* object = nullptr;
    KxProgressInterface* progress = nullptr;
    SoTriSurface* surface = nullptr; // the caller's surface, kept after the run
};

class VxIsosurfaceExternalTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        SoDB::init();
        SoTriSurface::initClass();
        console()->setConsole(nullptr);
    }
    void SetUp() override { console()->clearRecords(); }

    // Runs the extractor over a field: the uniform modes for a uniform field, the curvilinear mode
    // for any other.
    static Mesh run(VxRegScalarField3& field, float threshold, const Options& o = {}, int* mode = nullptr)
    {
        KxHandle<SoTriSurface> own(new SoTriSurface);
        SoTriSurface* surface = o.surface ? o.surface : own.get();
        const KxDim3l& d = field.getDims();
        const unsigned long dims[3] = {(unsigned long)d.nx, (unsigned long)d.ny, (unsigned long)d.nz};
        VxIsosurfaceExternal x(dims, threshold, o.method, 0.5f, surface, field.lattice().coords(),
                               o.progress);
        x.setIntersectionCallback(o.callback, o.object);
        if (field.coordType() == VX_COORD_UNIFORM) {
            const KxBox3f box = field.getBoundingBox();
            x.computeUniform(field.lattice().dataPtr(), field.primType(), box.getMin(), box.getVoxelSize(d));
        } else {
            x.computeCurvilinear(&field);
        }
        if (mode) *mode = x.getMode();
        return meshOf(*surface);
    }
};

// The same points within tol, whatever their order. Sorted, they pair up one by one: the points
// lie on grid edges, far apart from each other in the order.
::testing::AssertionResult samePointsUpToOrder(std::vector<KxVec3f> a, std::vector<KxVec3f> b, float tol)
{
    if (a.size() != b.size())
        return ::testing::AssertionFailure() << a.size() << " points against " << b.size();
    auto less = [](const KxVec3f& p, const KxVec3f& q) {
        return std::tie(p.x, p.y, p.z) < std::tie(q.x, q.y, q.z);
    };
    std::sort(a.begin(), a.end(), less);
    std::sort(b.begin(), b.end(), less);
    for (std::size_t i = 0; i < a.size(); ++i)
        if ((a[i] - b[i]).length() > tol)
            return ::testing::AssertionFailure()
                   << "(" << a[i].x << ", " << a[i].y << ", " << a[i].z << ") against (" << b[i].x << ", "
                   << b[i].y << ", " << b[i].z << ")";
    return ::testing::AssertionSuccess();
}

template <class T> class VxIsosurfaceExternalTypedTest : public VxIsosurfaceExternalTest
{
};
using ModeTypes = ::testing::Types<unsigned char, short, unsigned short, int, float, double>;
TYPED_TEST_SUITE(VxIsosurfaceExternalTypedTest, ModeTypes);

// The uniform mode of each value type.
const std::map<int, int> kModes = {{KxPrimType::UINT8, 0}, {KxPrimType::INT16, 1},  {KxPrimType::INT32, 2},
                                   {KxPrimType::FLOAT, 3}, {KxPrimType::DOUBLE, 4}, {KxPrimType::UINT16, 6}};

} // namespace

TYPED_TEST(VxIsosurfaceExternalTypedTest, AgreesWithTheEngineAndClosesTheSurface)
{
    // Values 40..90 fit every type; a fractional threshold exercises the integer conversion.
    KxHandle<VxUniformScalarField3> field =
        makeField<TypeParam>(21, 18, 17, sphere(9.3, 8.6, 8.1, 6.7, 3.0, 60.0));
    int mode = -1;
    const Mesh legacy = this->run(*field, 60.5f, {}, &mode);
    const Mesh engine = extract(*field, 60.5f);
    EXPECT_EQ(mode, kModes.at(field->primType().type()));
    ASSERT_GT(engine.triangles.size(), 100u);
    EXPECT_EQ(legacy.triangles.size(), engine.triangles.size());
    EXPECT_EQ(legacy.coords.size(), countCutEdges(*field, 60.5f));
    EXPECT_EQ(legacy.normals.size(), legacy.coords.size());
    EXPECT_TRUE(samePointsUpToOrder(legacy.coords, engine.coords, 1e-5f));
    std::string why;
    EXPECT_TRUE(isWatertight(legacy, &why)) << why;
    EXPECT_EQ(console()->lines().value(0).toStdString(),
              "Isosurface contains " + std::to_string(legacy.triangles.size()) + " triangles.");
}

TEST_F(VxIsosurfaceExternalTest, FloatFieldGivesTheEnginesTrianglesAndNormals)
{
    // A torus inside the grid, and a wavy sheet that crosses the grid's border on voxels of three
    // different sizes (one-sided differences at the border, per-axis spacing).
    KxHandle<VxUniformScalarField3> torusField =
        makeField<float>(26, 24, 22, torus(12.2, 11.6, 10.4, 6.5, 2.6));
    KxHandle<VxUniformScalarField3> sheet = makeField<float>(19, 17, 15, [](double x, double y, double z) {
        return 0.7 * z - 4.9 + std::sin(0.5 * x) + 0.5 * std::cos(0.4 * y);
    });
    sheet->setBoundingBox(KxBox3f(1, 37, -2, 14, 0, 7));
    for (VxUniformScalarField3* field : {torusField.get(), sheet.get()}) {
        const Mesh legacy = run(*field, 0.f);
        const Mesh engine = extract(*field, 0.f);
        ASSERT_GT(legacy.triangles.size(), 100u);
        // The same formulas in the same precision: the same triangles, point for point.
        EXPECT_EQ(triangleSet(legacy), triangleSet(engine));
        std::map<std::tuple<float, float, float>, KxVec3f> engineNormal;
        for (std::size_t i = 0; i < engine.coords.size(); ++i)
            engineNormal[{engine.coords[i].x, engine.coords[i].y, engine.coords[i].z}] = engine.normals[i];
        for (std::size_t i = 0; i < legacy.coords.size(); ++i) {
            const KxVec3f n = legacy.normals[i];
            const KxVec3f m = engineNormal[{legacy.coords[i].x, legacy.coords[i].y, legacy.coords[i].z}];
            ASSERT_NEAR(n.length(), 1.f, 1e-5f);
            ASSERT_GT(n.dot(m), 0.99999f) << "vertex " << i;
        }
    }
}

TEST_F(VxIsosurfaceExternalTest, ClosedSurfacesAreWatertight)
{
    const FieldFunc shapes[] = {sphere(7.6, 7.35, 7.95, 5.6), torus(8.05, 7.65, 7.4, 4.6, 1.8),
                                [](double x, double y, double z) { // two balls touching at a saddle
                                    return std::min(std::hypot(x - 5.2, y - 7.9, z - 8.1),
                                                    std::hypot(x - 10.7, y - 7.6, z - 7.7)) -
                                           3.1;
                                }};
    for (int method : {0, 1})
        for (const FieldFunc& f : shapes) {
            KxHandle<VxUniformScalarField3> field = makeField<float>(32, 32, 32, f, 0.5f);
            Options o;
            o.method = method;
            const Mesh m = run(*field, 0.f, o);
            ASSERT_GT(m.triangles.size(), 0u);
            std::string why;
            if (method == 0) {
                EXPECT_TRUE(isWatertight(m, &why)) << why;
                EXPECT_EQ(m.coords.size(), countCutEdges(*field, 0.f));
            }
            for (const KxVec3i& t : m.triangles) {
                ASSERT_TRUE(t.x != t.y && t.y != t.z && t.x != t.z);
                ASSERT_LT(std::size_t(std::max({t.x, t.y, t.z})), m.coords.size());
                ASSERT_GE(std::min({t.x, t.y, t.z}), 0);
            }
        }
}

TEST_F(VxIsosurfaceExternalTest, CurvilinearAndProceduralModes)
{
    // A sheared lattice: the curvilinear mode places vertices by the node positions.
    const FieldFunc ball = sphere(8.4, 8.1, 7.6, 5.3);
    KxHandle<VxRegScalarField3> curv = makeCurvilinearField<float>(
        18, 17, 16,
        [](int i, int j, int k) {
            return KxVec3f(float(i) + 0.25f * float(j), float(j) - 0.125f * float(k), float(k) * 1.5f);
        },
        ball);
    int mode = -1;
    const Mesh legacy = run(*curv, 0.f, {}, &mode);
    const Mesh engine = extract(*curv, 0.f);
    EXPECT_EQ(mode, VxIsosurfaceExternal::CURVILINEAR);
    ASSERT_GT(legacy.triangles.size(), 100u);
    EXPECT_EQ(triangleSet(legacy), triangleSet(engine));
    EXPECT_TRUE(legacy.normals.empty());
    std::string why;
    EXPECT_TRUE(isWatertight(legacy, &why)) << why;

    // The procedural mode samples a function at the nodes: the same surface, normals included, as
    // the same function stored as floats.
    KxHandle<VxUniformScalarField3> stored = makeField<float>(20, 19, 18, ball, 1.f);
    const Mesh fromValues = run(*stored, 0.f);
    SoTriSurface* surface = new SoTriSurface;
    surface->ref();
    const unsigned long dims[3] = {20, 19, 18};
    VxIsosurfaceExternal x(dims, 0.f, 0, 0.5f, surface, nullptr, nullptr);
    x.computeProcedural(
        KxVec3f(0, 0, 0), KxVec3f(1, 1, 1),
        [](void* f, int i, int j, int k) { return float((*static_cast<const FieldFunc*>(f))(i, j, k)); },
        const_cast<FieldFunc*>(&ball));
    const Mesh procedural = meshOf(*surface);
    surface->unref();
    EXPECT_EQ(x.getMode(), VxIsosurfaceExternal::PROCEDURAL);
    EXPECT_EQ(triangleSet(procedural), triangleSet(fromValues));
    ASSERT_EQ(procedural.normals.size(), fromValues.normals.size());
    for (std::size_t i = 0; i < procedural.normals.size(); ++i)
        ASSERT_EQ(procedural.normals[i], fromValues.normals[i]) << "vertex " << i;
}

TEST_F(VxIsosurfaceExternalTest, IntegerThresholdsTruncateTowardZero)
{
    // Bytes of 100 with a block of 101 inside: 100.7 acts as 100, so the block is above.
    KxHandle<VxUniformScalarField3> bytes =
        makeField<unsigned char>(8, 8, 8, [](double x, double y, double z) {
            return x >= 3 && x <= 4 && y >= 2 && y <= 5 && z >= 3 && z <= 5 ? 101 : 100;
        });
    const Mesh at100 = run(*bytes, 100.f);
    const Mesh at1007 = run(*bytes, 100.7f);
    ASSERT_EQ(at100.triangles.size(), at1007.triangles.size());
    EXPECT_GT(at1007.triangles.size(), 0u);
    EXPECT_EQ(at1007.coords.size(), countCutEdges(*bytes, 100.f));
    std::string why;
    EXPECT_TRUE(isWatertight(at1007, &why)) << why;
    EXPECT_TRUE(run(*bytes, 101.f).triangles.empty());
    // Outside the type's range the answer is the same for every node: no surface, no failure.
    EXPECT_TRUE(run(*bytes, 300.f).triangles.empty());
    EXPECT_TRUE(run(*bytes, -5.f).triangles.empty());
    EXPECT_TRUE(run(*bytes, NAN).triangles.empty());

    // Toward zero, not down: -0.5 on 16-bit data is 0, so zeros are not above it and the single
    // node of value 1 is enclosed (a float threshold of -0.5 would put every node above).
    KxHandle<VxUniformScalarField3> shorts = makeField<short>(
        5, 5, 5, [](double x, double y, double z) { return x == 2 && y == 2 && z == 2 ? 1 : 0; });
    const Mesh small = run(*shorts, -0.5f);
    EXPECT_EQ(small.coords.size(), 6u);
    EXPECT_EQ(small.triangles.size(), 8u);
    EXPECT_TRUE(isWatertight(small, &why)) << why;
    for (const KxVec3f& p : small.coords) EXPECT_NEAR((p - KxVec3f(2, 2, 2)).length(), 1.f, 1e-6f);
}

TEST_F(VxIsosurfaceExternalTest, FieldsWithoutCellsGiveNothing)
{
    const FieldFunc f = sphere(0.5, 3, 3, 2);
    for (const KxDim3l& d : {KxDim3l(1, 7, 7), KxDim3l(7, 1, 7), KxDim3l(7, 7, 1)}) {
        KxHandle<VxUniformScalarField3> field = makeField<float>(int(d.nx), int(d.ny), int(d.nz), f);
        EXPECT_TRUE(run(*field, 0.f).triangles.empty());
    }
    EXPECT_EQ(console()->lines(),
              (QStringList{"Isosurface contains 0 triangles.", "Isosurface contains 0 triangles.",
                           "Isosurface contains 0 triangles."}));

    // Values of a type without a mode of its own, given as uniform: nothing is computed.
    KxHandle<VxUniformScalarField3> int8 = makeField<signed char>(6, 6, 6, sphere(3, 3, 3, 2, 10));
    int mode = -1;
    EXPECT_TRUE(run(*int8, 0.f, {}, &mode).triangles.empty());
    EXPECT_EQ(mode, VxIsosurfaceExternal::CURVILINEAR);
}

TEST_F(VxIsosurfaceExternalTest, CompactifyMergesIntersectionsAtTheirNearestNode)
{
    // One cell, nodes 0 (value 10) and 1 (value 1.1) above 1: case 3. The intersections on edges 2
    // and 10 lie near node 1 and merge; those on edges 4 and 9 lie near nodes 3 and 4. Triangle
    // 2-9-10 collapses, 2-4-9 stays.
    KxHandle<VxUniformScalarField3> cell = makeField<float>(
        2, 2, 2, [](double x, double y, double z) { return y == 0 && z == 0 ? (x == 0 ? 10.0 : 1.1) : 0.0; });
    Options compact;
    compact.method = 1;
    const Mesh m = run(*cell, 1.f, compact);
    ASSERT_EQ(m.triangles.size(), 1u);
    ASSERT_EQ(m.coords.size(), 3u);
    const float t = (1.f - 1.1f) / (0.f - 1.1f);
    const KxVec3f mean = (KxVec3f(1, t, 0) + KxVec3f(1, 0, t)) * 0.5f;
    const KxVec3f expected[] = {mean, KxVec3f(0, 0.9f, 0), KxVec3f(0, 0, 0.9f)};
    for (const KxVec3f& e : expected) {
        const bool present = std::any_of(m.coords.begin(), m.coords.end(),
                                         [&](const KxVec3f& p) { return (p - e).length() < 1e-6f; });
        EXPECT_TRUE(present) << e.x << " " << e.y << " " << e.z;
    }
    EXPECT_EQ(console()->lines().value(0), "Isosurface contains 1 triangles (50% less)");

    // Everything collapses: nothing kept prints 0 per cent.
    KxHandle<VxUniformScalarField3> corner =
        makeField<float>(2, 2, 2, [](double x, double y, double z) { return x + y + z == 0 ? 1.1 : 0.0; });
    EXPECT_TRUE(run(*corner, 1.f, compact).triangles.empty());
    EXPECT_EQ(console()->lines().value(1), "Isosurface contains 0 triangles (0% less)");

    // On a real surface: fewer vertices, and the printed count and percentage are those of the
    // triangles that the plain run makes and compactify keeps.
    KxHandle<VxUniformScalarField3> ball = makeField<float>(24, 24, 24, sphere(11.3, 11.8, 12.1, 8.2), 1.f);
    const Mesh plain = run(*ball, 0.f);
    const Mesh merged = run(*ball, 0.f, compact);
    EXPECT_LT(merged.coords.size(), plain.coords.size() * 3 / 4);
    const std::size_t total = plain.triangles.size(), kept = merged.triangles.size();
    ASSERT_LT(kept, total);
    EXPECT_EQ(console()->lines().value(3).toStdString(),
              "Isosurface contains " + std::to_string(kept) + " triangles (" +
                  std::to_string((total - kept) * 100 / total) + "% less)");
    // Merged vertices sit near the sphere still (within half a voxel of it).
    for (const KxVec3f& p : merged.coords)
        ASSERT_LT(std::fabs((p - KxVec3f(11.3f, 11.8f, 12.1f)).length() - 8.2f), 0.5f);
}

namespace {

// Records the node pairs it is asked about; puts every vertex a quarter along its edge.
struct QuarterWay
{
    static std::vector<std::pair<int, int>> asked;
    static float callback(int a, int b, VxObject*)
    {
        asked.emplace_back(a, b);
        return 0.25f;
    }
};
std::vector<std::pair<int, int>> QuarterWay::asked;

float throwMemory(int, int, VxObject*)
{
    throw std::bad_alloc();
}

float throwException(int, int, VxObject*)
{
    throw KxException("the field went away");
}

} // namespace

TEST_F(VxIsosurfaceExternalTest, IntersectionCallbackPlacesTheVertices)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(12, 11, 10, sphere(5.4, 5.1, 4.7, 3.3));
    const KxDim3l& d = field->getDims();
    const Mesh plain = run(*field, 0.f);
    QuarterWay::asked.clear();
    Options o;
    o.callback = &QuarterWay::callback;
    const Mesh user = run(*field, 0.f, o);
    EXPECT_EQ(user.triangles, plain.triangles);
    EXPECT_TRUE(user.normals.empty());
    ASSERT_EQ(QuarterWay::asked.size(), user.coords.size());
    for (std::size_t v = 0; v < user.coords.size(); ++v) {
        // First the lower node of an edge of the grid that the surface cuts, then the upper one.
        const int a = QuarterWay::asked[v].first, b = QuarterWay::asked[v].second;
        const int step = b - a;
        ASSERT_TRUE(step == 1 || step == d.nx || step == d.nx * d.ny) << a << " " << b;
        auto node = [&](int n) {
            return KxVec3f(float(n % d.nx), float(n / d.nx % d.ny), float(n / (d.nx * d.ny)));
        };
        const KxVec3f pa = node(a), pb = node(b);
        EXPECT_NE(field->evalReg(int(pa.x), int(pa.y), int(pa.z)) > 0.f,
                  field->evalReg(int(pb.x), int(pb.y), int(pb.z)) > 0.f);
        EXPECT_LT((user.coords[v] - (pa + (pb - pa) * 0.25f)).length(), 1e-6f);
    }
}

TEST_F(VxIsosurfaceExternalTest, FailuresKeepThePreviousSurfaceAndSayWhy)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(10, 10, 10, sphere(4.5, 4.5, 4.5, 3));
    KxHandle<SoTriSurface> surface(new SoTriSurface);
    Options o;
    o.surface = surface.get();
    const Mesh before = run(*field, 0.f, o);
    ASSERT_GT(before.triangles.size(), 0u);
    console()->clearRecords();

    o.callback = &throwMemory;
    for (int method : {0, 1}) {
        o.method = method;
        run(*field, 0.f, o);
        EXPECT_EQ(console()->lines().last(), "Open Inventor Memory exception. Try with a higher Threshold.");
        EXPECT_EQ(meshOf(*surface).triangles, before.triangles);
    }

    o.callback = &throwException;
    o.method = 1;
    run(*field, 0.f, o);
    EXPECT_EQ(
        console()->errors(),
        QStringList("Exception:\nthe field went away\nTry to disable the compactify\noption and run again."));
    EXPECT_EQ(meshOf(*surface).triangles, before.triangles);
    // Without compactify the exception is the caller's to report; the surface still listens.
    o.method = 0;
    EXPECT_THROW(run(*field, 0.f, o), KxException);
    EXPECT_EQ(meshOf(*surface).triangles, before.triangles);
    EXPECT_TRUE(surface->coords.isNotifyEnabled() && surface->triangles.isNotifyEnabled());

    // A surface with more vertices than can be numbered is refused by this extractor too, which
    // counts as it goes.
    vxiso::tools::setMaxSurfaceElements(before.coords.size() - 1);
    o.callback = nullptr;
    EXPECT_THROW(run(*field, 0.f, o), KxException);
    vxiso::tools::setMaxSurfaceElements(0);
    EXPECT_EQ(meshOf(*surface).triangles, before.triangles);

    // A field whose lattice is not the one the extraction was set up for is refused.
    KxHandle<VxUniformScalarField3> other = makeField<float>(9, 10, 10, sphere(4.5, 4.5, 4.5, 3));
    const unsigned long dims[3] = {10, 10, 10};
    VxIsosurfaceExternal x(dims, 0.f, 0, 0.5f, surface.get(), nullptr, nullptr);
    x.computeCurvilinear(other.get());
    EXPECT_EQ(console()->errors().value(1),
              "Isosurface: the field has 9 x 10 x 10 nodes, the extraction was set up for 10 x 10 x 10.");
    EXPECT_EQ(meshOf(*surface).triangles, before.triangles);
}

namespace {

// Asks to stop once it has been told of `layers` finished layers.
struct StopAfter : KxProgressInterface
{
    explicit StopAfter(int n) : layers(n) {}
    void setProgressValue(float v) override { seen.push_back(v); }
    bool wasInterrupted() override { return int(seen.size()) > layers; }
    int layers;
    std::vector<float> seen;
};

} // namespace

TEST_F(VxIsosurfaceExternalTest, InterruptionStopsAfterTheCurrentLayer)
{
    // A plane across every layer: each layer of cells makes the same number of triangles.
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(12, 9, 11, [](double x, double y, double) { return x + 0.3 * y - 5.45; });
    const Mesh full = run(*field, 0.f);
    StopAfter stop(3);
    Options o;
    o.progress = &stop;
    const Mesh part = run(*field, 0.f, o);
    EXPECT_EQ(stop.seen, (std::vector<float>{0.f, 0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(part.triangles.size(), full.triangles.size() * 3 / 10);
    EXPECT_EQ(console()->lines().value(1).toStdString(),
              "Isosurface contains " + std::to_string(part.triangles.size()) + " triangles.");
}

TEST_F(VxIsosurfaceExternalTest, BlocksSharingBoundaryNodesCloseUp)
{
    // A sphere on nodes 0..20 per axis cut into three blocks along x that repeat the nodes of
    // their common faces; the middle block is curvilinear.
    const FieldFunc ball = sphere(10.2, 9.7, 10.4, 7.1);
    const int cuts[] = {0, 7, 13, 20};
    KxHandle<VxBlockStructuredScalarField3> blocks(new VxBlockStructuredScalarField3);
    for (int b = 0; b < 3; ++b) {
        const int x0 = cuts[b], nx = cuts[b + 1] - x0 + 1;
        const FieldFunc part = [&](double x, double y, double z) { return ball(x0 + x, y, z); };
        if (b == 1) {
            blocks->addBlock(makeCurvilinearField<float>(
                nx, 21, 21, [&](int i, int j, int k) { return KxVec3f(float(x0 + i), float(j), float(k)); },
                part));
        } else {
            VxUniformScalarField3* u = makeField<float>(nx, 21, 21, part);
            u->setBoundingBox(KxBox3f(float(x0), float(cuts[b + 1]), 0, 20, 0, 20));
            blocks->addBlock(u);
        }
    }
    ASSERT_EQ(blocks->getGrid()->getNumZones(), 3);

    // Extract block by block as the block path does, then weld vertices at equal positions.
    Mesh all;
    for (int b = 0; b < blocks->getGrid()->getNumZones(); ++b) {
        VxRegScalarField3* f = blocks->getField(b);
        const Mesh m = run(*f, 0.f);
        ASSERT_GT(m.triangles.size(), 0u) << "block " << b;
        const int offset = int(all.coords.size());
        all.coords.insert(all.coords.end(), m.coords.begin(), m.coords.end());
        for (const KxVec3i& t : m.triangles)
            all.triangles.emplace_back(t.x + offset, t.y + offset, t.z + offset);
    }
    std::map<std::tuple<float, float, float>, int> first;
    std::vector<int> weld(all.coords.size());
    for (std::size_t v = 0; v < all.coords.size(); ++v)
        weld[v] = first.emplace(std::make_tuple(all.coords[v].x, all.coords[v].y, all.coords[v].z), int(v))
                      .first->second;
    for (KxVec3i& t : all.triangles)
        t = KxVec3i(weld[std::size_t(t.x)], weld[std::size_t(t.y)], weld[std::size_t(t.z)]);
    std::string why;
    EXPECT_TRUE(isWatertight(all, &why)) << why;
    KxHandle<VxUniformScalarField3> whole = makeField<float>(21, 21, 21, ball);
    EXPECT_EQ(all.triangles.size(), extract(*whole, 0.f).triangles.size());
    EXPECT_EQ(first.size(), countCutEdges(*whole, 0.f));
}
