// The older extractor: agreement with the template engine, its per-type thresholds, compactify, its
// messages and interruption.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExternal.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <kx/KxProgressInterface.h>
#include <vx/VxApplication.h>
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

    // Runs the extractor over a field with the settings below: the uniform modes for a uniform
    // field, the curvilinear mode for any other.
    TestMesh run(VxRegScalarField3& field, float threshold, int method = 0)
    {
        KxHandle<SoTriSurface> own(new SoTriSurface);
        const KxDim3l& d = field.getDims();
        const unsigned long dims[3] = {(unsigned long)d.nx, (unsigned long)d.ny, (unsigned long)d.nz};
        VxIsosurfaceExternal x(dims, threshold, method, 0.5f, surface ? surface : own.get(),
                               field.lattice().coords(), progress);
        x.setIntersectionCallback(callback, nullptr);
        if (field.coordType() == VX_COORD_UNIFORM) {
            const KxBox3f box = field.getBoundingBox();
            x.computeUniform(field.lattice().dataPtr(), field.primType(), box.getMin(), box.getVoxelSize(d));
        } else {
            x.computeCurvilinear(&field);
        }
        mode = x.getMode();
        return meshOf(surface ? *surface : *own);
    }
    VxIsosurfaceExternal::IntersectionCallback callback = nullptr;
    KxProgressInterface* progress = nullptr;
    SoTriSurface* surface = nullptr; // the caller's surface, kept after the run
    int mode = -1;                   // of the last run

    // The same triangles with the same corner positions and normals up to rounding, whatever the
    // numbering. Sorted, the triangles pair up one by one: their first corners lie on grid edges,
    // far apart from each other in the order.
    static void expectSameSurface(const TestMesh& legacy, const TestMesh& engine)
    {
        auto corners = [](const TestMesh& m) {
            std::vector<std::vector<float>> out;
            for (std::size_t t = 0; t < m.triangles.size(); t += 3) {
                std::vector<std::vector<float>> c;
                for (std::size_t v : {3 * std::size_t(m.triangles[t]), 3 * std::size_t(m.triangles[t + 1]),
                                      3 * std::size_t(m.triangles[t + 2])})
                    c.push_back({m.coords[v], m.coords[v + 1], m.coords[v + 2], m.normals[v],
                                 m.normals[v + 1], m.normals[v + 2]});
                std::rotate(c.begin(), std::min_element(c.begin(), c.end()), c.end());
                out.push_back(c[0]);
                for (int k : {1, 2}) out.back().insert(out.back().end(), c[k].begin(), c[k].end());
            }
            std::sort(out.begin(), out.end());
            return out;
        };
        ASSERT_EQ(legacy.normals.size(), legacy.coords.size());
        const auto a = corners(legacy), b = corners(engine);
        ASSERT_GT(a.size(), 100u);
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t t = 0; t < a.size(); ++t)
            for (std::size_t k = 0; k < 18; ++k)
                ASSERT_NEAR(a[t][k], b[t][k], k % 6 < 3 ? 1e-5f : 5e-3f)
                    << "triangle " << t << " value " << k;
    }
};

template <class T> class VxIsosurfaceExternalTypedTest : public VxIsosurfaceExternalTest
{
};
using ModeTypes = ::testing::Types<unsigned char, short, unsigned short, int, float, double>;
TYPED_TEST_SUITE(VxIsosurfaceExternalTypedTest, ModeTypes);

// The uniform mode of each value type.
const std::map<int, int> kModes = {{KxPrimType::UINT8, 0}, {KxPrimType::INT16, 1},  {KxPrimType::INT32, 2},
                                   {KxPrimType::FLOAT, 3}, {KxPrimType::DOUBLE, 4}, {KxPrimType::UINT16, 6}};

} // namespace

TYPED_TEST(VxIsosurfaceExternalTypedTest, GivesTheEnginesSurface)
{
    // A ball cut open by the grid's border (one-sided differences there), on voxels of three sizes;
    // values 40..90 fit every type, and a fractional threshold exercises the integer conversion.
    KxHandle<VxUniformScalarField3> field =
        makeField<TypeParam>(21, 18, 17, sphere(9.3, 8.6, 3.1, 6.7, 3.0, 60.0));
    field->setBoundingBox(KxBox3f(1, 41, -2, 6.5, 0, 16));
    const TestMesh legacy = this->run(*field, 60.5f);
    EXPECT_EQ(this->mode, kModes.at(field->primType().type()));
    this->expectSameSurface(legacy, extract(*field, 60.5f));
    EXPECT_EQ(std::size_t(legacy.numPoints()), countCutEdges(*field, 60.5f));
}

TEST_F(VxIsosurfaceExternalTest, CurvilinearAndProceduralModes)
{
    // A sheared lattice: both extractors place vertices by the node positions, closed, one per cut
    // edge; the engine gives placeholder normals, this extractor none.
    const FieldFunc ball = sphere(8.4, 8.1, 7.6, 5.3);
    KxHandle<VxRegScalarField3> curv = makeCurvilinearField<short>(
        18, 17, 16,
        [](int i, int j, int k) {
            return KxVec3f(float(i) + 0.25f * float(j), float(j) - 0.125f * float(k), float(k) * 1.5f);
        },
        sphere(8.4, 8.1, 7.6, 5.3, 10));
    const TestMesh legacy = run(*curv, 0.f), engine = extract(*curv, 0.f);
    EXPECT_EQ(mode, VxIsosurfaceExternal::CURVILINEAR);
    ASSERT_GT(legacy.numTriangles(), 100);
    EXPECT_EQ(triangleSet(legacy), triangleSet(engine));
    EXPECT_TRUE(isWatertight(engine));
    EXPECT_EQ(std::size_t(engine.numPoints()), countCutEdges(*curv, 0.f));
    EXPECT_TRUE(legacy.normals.empty());
    for (int v = 0; v < engine.numPoints(); ++v) ASSERT_EQ(engine.normal(std::size_t(v)), KxVec3f(1, 0, 0));

    // The procedural mode samples a function at the nodes: the same surface, normals included, as
    // the same function stored as floats.
    KxHandle<VxUniformScalarField3> stored = makeField<float>(20, 19, 18, ball, 1.f);
    KxHandle<SoTriSurface> surface(new SoTriSurface);
    const unsigned long dims[3] = {20, 19, 18};
    VxIsosurfaceExternal x(dims, 0.f, 0, 0.5f, surface, nullptr, nullptr);
    x.computeProcedural(
        KxVec3f(0, 0, 0), KxVec3f(1, 1, 1),
        [](void* f, int i, int j, int k) { return float((*static_cast<const FieldFunc*>(f))(i, j, k)); },
        const_cast<FieldFunc*>(&ball));
    EXPECT_EQ(x.getMode(), VxIsosurfaceExternal::PROCEDURAL);
    EXPECT_TRUE(sameBytes(meshOf(*surface), run(*stored, 0.f)));
}

TEST_F(VxIsosurfaceExternalTest, IntegerThresholdsTruncateTowardZero)
{
    // Bytes of 100 with a block of 101 inside: 100.7 acts as 100, so the block is above.
    KxHandle<VxUniformScalarField3> bytes =
        makeField<unsigned char>(8, 8, 8, [](double x, double y, double z) {
            return x >= 3 && x <= 4 && y >= 2 && y <= 5 && z >= 3 && z <= 5 ? 101 : 100;
        });
    const TestMesh at1007 = run(*bytes, 100.7f);
    EXPECT_EQ(at1007.numTriangles(), run(*bytes, 100.f).numTriangles());
    EXPECT_EQ(std::size_t(at1007.numPoints()), countCutEdges(*bytes, 100.f));
    EXPECT_TRUE(isWatertight(at1007));
    // At 101, and outside the type's range, the answer is the same for every node: no surface.
    for (float t : {101.f, 300.f, -5.f, NAN}) EXPECT_TRUE(run(*bytes, t).triangles.empty()) << t;

    // Toward zero, not down: -0.5 on 16-bit data is 0, so zeros are not above it and the single
    // node of value 1 is enclosed (a float threshold of -0.5 would put every node above).
    KxHandle<VxUniformScalarField3> shorts = makeField<short>(
        5, 5, 5, [](double x, double y, double z) { return x == 2 && y == 2 && z == 2 ? 1 : 0; });
    const TestMesh small = run(*shorts, -0.5f);
    EXPECT_EQ(small.numPoints(), 6);
    EXPECT_EQ(small.numTriangles(), 8);
}

TEST_F(VxIsosurfaceExternalTest, FieldsWithoutCellsGiveNothing)
{
    for (const KxDim3l& d : {KxDim3l(1, 7, 7), KxDim3l(7, 1, 7), KxDim3l(7, 7, 1)}) {
        KxHandle<VxUniformScalarField3> field =
            makeField<float>(int(d.nx), int(d.ny), int(d.nz), sphere(0.5, 3, 3, 2));
        EXPECT_TRUE(run(*field, 0.f).triangles.empty());
    }
    // Values of a type without a mode of its own, given as uniform: nothing is computed.
    KxHandle<VxUniformScalarField3> int8 = makeField<signed char>(6, 6, 6, sphere(3, 3, 3, 2, 10));
    EXPECT_TRUE(run(*int8, 0.f).triangles.empty());
    EXPECT_EQ(mode, VxIsosurfaceExternal::CURVILINEAR);
}

TEST_F(VxIsosurfaceExternalTest, CompactifyMergesIntersectionsAtTheirNearestNode)
{
    // One cell, nodes 0 (value 10) and 1 (value 1.1) above 1: case 3. The intersections on edges 2
    // and 10 lie near node 1 and merge; those on edges 4 and 9 lie near nodes 3 and 4. Triangle
    // 2-9-10 collapses, 2-4-9 stays.
    KxHandle<VxUniformScalarField3> cell = makeField<float>(
        2, 2, 2, [](double x, double y, double z) { return y == 0 && z == 0 ? (x == 0 ? 10.0 : 1.1) : 0.0; });
    const TestMesh m = run(*cell, 1.f, 1);
    ASSERT_EQ(m.numTriangles(), 1);
    ASSERT_EQ(m.numPoints(), 3);
    const float t = (1.f - 1.1f) / (0.f - 1.1f);
    for (const KxVec3f& e :
         {(KxVec3f(1, t, 0) + KxVec3f(1, 0, t)) * 0.5f, KxVec3f(0, 0.9f, 0), KxVec3f(0, 0, 0.9f)}) {
        int near = 0;
        for (int v = 0; v < 3; ++v) near += (m.point(std::size_t(v)) - e).length() < 1e-6f;
        EXPECT_EQ(near, 1) << e.x << " " << e.y << " " << e.z;
    }
    // Everything collapses: nothing kept prints 0 per cent.
    KxHandle<VxUniformScalarField3> corner =
        makeField<float>(2, 2, 2, [](double x, double y, double z) { return x + y + z == 0 ? 1.1 : 0.0; });
    EXPECT_TRUE(run(*corner, 1.f, 1).triangles.empty());

    // On a real surface: fewer vertices, near the sphere still (within half a voxel), no triangle
    // collapsed, and the printed count and percentage are those of the triangles that the plain
    // run makes and compactify keeps.
    KxHandle<VxUniformScalarField3> ball = makeField<float>(24, 24, 24, sphere(11.3, 11.8, 12.1, 8.2), 1.f);
    const TestMesh plain = run(*ball, 0.f), merged = run(*ball, 0.f, 1);
    EXPECT_LT(merged.numPoints(), plain.numPoints() * 3 / 4);
    for (int t = 0; t < merged.numTriangles(); ++t) {
        const KxVec3i c = merged.triangle(std::size_t(t));
        ASSERT_TRUE(c.x != c.y && c.y != c.z && c.x != c.z && std::min({c.x, c.y, c.z}) >= 0 &&
                    std::max({c.x, c.y, c.z}) < merged.numPoints());
    }
    for (int v = 0; v < merged.numPoints(); ++v)
        ASSERT_LT(std::fabs((merged.point(std::size_t(v)) - KxVec3f(11.3f, 11.8f, 12.1f)).length() - 8.2f),
                  0.5f);
    const int total = plain.numTriangles(), kept = merged.numTriangles();
    ASSERT_LT(kept, total);
    EXPECT_EQ(console()->lines(), (QStringList{"Isosurface contains 1 triangles (50% less)",
                                               "Isosurface contains 0 triangles (0% less)",
                                               QString("Isosurface contains %1 triangles.").arg(total),
                                               QString("Isosurface contains %1 triangles (%2% less)")
                                                   .arg(kept)
                                                   .arg((total - kept) * 100 / total)}));
}

TEST_F(VxIsosurfaceExternalTest, IntersectionCallbackPlacesTheVertices)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(12, 11, 10, sphere(5.4, 5.1, 4.7, 3.3));
    const KxDim3l& d = field->getDims();
    const TestMesh plain = run(*field, 0.f);
    // Records the node pairs it is asked about; puts every vertex a quarter along its edge.
    static std::vector<std::pair<int, int>> asked;
    callback = [](int a, int b, VxObject*) {
        asked.emplace_back(a, b);
        return 0.25f;
    };
    const TestMesh user = run(*field, 0.f);
    EXPECT_EQ(user.triangles, plain.triangles);
    EXPECT_TRUE(user.normals.empty());
    ASSERT_EQ(asked.size(), std::size_t(user.numPoints()));
    auto node = [&](int n) {
        return KxVec3f(float(n % d.nx), float(n / d.nx % d.ny), float(n / (d.nx * d.ny)));
    };
    for (std::size_t v = 0; v < asked.size(); ++v) {
        // First the lower node of an edge of the grid, then the upper one.
        const int a = asked[v].first, b = asked[v].second;
        ASSERT_TRUE(b - a == 1 || b - a == d.nx || b - a == d.nx * d.ny) << a << " " << b;
        EXPECT_LT((user.point(v) - (node(a) + (node(b) - node(a)) * 0.25f)).length(), 1e-6f);
    }
}

TEST_F(VxIsosurfaceExternalTest, FailuresKeepThePreviousSurfaceAndSayWhy)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(10, 10, 10, sphere(4.5, 4.5, 4.5, 3));
    KxHandle<SoTriSurface> mine(new SoTriSurface);
    surface = mine.get();
    const TestMesh before = run(*field, 0.f);
    ASSERT_GT(before.numTriangles(), 0);
    auto kept = [&] { return meshOf(*surface).triangles == before.triangles; };
    console()->clearRecords();

    callback = [](int, int, VxObject*) -> float { throw std::bad_alloc(); };
    for (int method : {0, 1}) {
        run(*field, 0.f, method);
        EXPECT_EQ(console()->lines().last(), "Open Inventor Memory exception. Try with a higher Threshold.");
        EXPECT_TRUE(kept());
    }
    callback = [](int, int, VxObject*) -> float { throw KxException("the field went away"); };
    run(*field, 0.f, 1);
    EXPECT_EQ(
        console()->errors(),
        QStringList("Exception:\nthe field went away\nTry to disable the compactify\noption and run again."));
    EXPECT_TRUE(kept());
    // Without compactify the exception is the caller's to report; the surface still listens.
    EXPECT_THROW(run(*field, 0.f), KxException);
    EXPECT_TRUE(kept());
    EXPECT_TRUE(surface->coords.isNotifyEnabled() && surface->triangles.isNotifyEnabled());

    // A surface with more vertices than can be numbered is refused by this extractor too, which
    // counts as it goes.
    vxiso::tools::setMaxSurfaceElements(uint64_t(before.numPoints()) - 1);
    callback = nullptr;
    EXPECT_THROW(run(*field, 0.f), KxException);
    vxiso::tools::setMaxSurfaceElements(0);
    EXPECT_TRUE(kept());

    // A field whose lattice is not the one the extraction was set up for is refused.
    KxHandle<VxUniformScalarField3> other = makeField<float>(9, 10, 10, sphere(4.5, 4.5, 4.5, 3));
    const unsigned long dims[3] = {10, 10, 10};
    VxIsosurfaceExternal x(dims, 0.f, 0, 0.5f, surface, nullptr, nullptr);
    x.computeCurvilinear(other.get());
    EXPECT_EQ(console()->errors().value(1),
              "Isosurface: the field has 9 x 10 x 10 nodes, the extraction was set up for 10 x 10 x 10.");
    EXPECT_TRUE(kept());
}

TEST_F(VxIsosurfaceExternalTest, InterruptionStopsAfterTheCurrentLayer)
{
    // Asks to stop once it has been told of three finished layers.
    struct StopAfterThree : KxProgressInterface
    {
        void setProgressValue(float v) override { seen.push_back(v); }
        bool wasInterrupted() override { return seen.size() > 3; }
        std::vector<float> seen;
    } stop;
    // A plane across every layer: each layer of cells makes the same number of triangles.
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(12, 9, 11, [](double x, double y, double) { return x + 0.3 * y - 5.45; });
    const TestMesh full = run(*field, 0.f);
    progress = &stop;
    const TestMesh part = run(*field, 0.f);
    EXPECT_EQ(stop.seen, (std::vector<float>{0.f, 0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(part.numTriangles(), full.numTriangles() * 3 / 10);
    EXPECT_EQ(console()->lines().value(1).toStdString(),
              "Isosurface contains " + std::to_string(part.numTriangles()) + " triangles.");
}
