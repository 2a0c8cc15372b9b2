// The sequential traversal with standard cubes on generated fields.
#include "../support/TestFields.h"

#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxHandle.h>

#include <gtest/gtest.h>

#include <random>

using namespace vxtest;

namespace {

template <class T>
class AllValueTypes : public ::testing::Test
{
};
using ValueTypes = ::testing::Types<unsigned char, signed char, unsigned short, short, unsigned int, int, float, double>;
TYPED_TEST_SUITE(AllValueTypes, ValueTypes);

// Values chosen to fit every type: 60 + 3 * (distance - radius), within 40..90.
template <class T>
KxHandle<VxUniformScalarField3> ballOf()
{
    return makeField<T>(20, 18, 17, sphere(9.3, 8.6, 8.1, 6.7, 3.0, 60.0));
}

} // namespace

TYPED_TEST(AllValueTypes, OneVertexPerCutEdgeAndClosedSurface)
{
    KxHandle<VxUniformScalarField3> field = ballOf<TypeParam>();
    const Mesh m = extract(*field, 60.f);
    EXPECT_EQ(m.coords.size(), countCutEdges(*field, 60.f));
    EXPECT_EQ(m.normals.size(), m.coords.size());
    EXPECT_GT(m.triangles.size(), 100u);
    std::string why;
    EXPECT_TRUE(isWatertight(m, &why)) << why;
}

TEST(MarchingCubes, ClosedSurfacesAreWatertightWithOutwardOrientation)
{
    struct Case
    {
        const char* name;
        FieldFunc f;
        int n;
    };
    const double pi = std::acos(-1.0);
    // A gyroid piece, lifted smoothly above the iso value towards the grid's border so that it closes.
    FieldFunc gyroid = [pi](double x, double y, double z) {
        const double s = 2 * pi / 6.0;
        const double g = std::sin(x * s) * std::cos(y * s) + std::sin(y * s) * std::cos(z * s) +
                         std::sin(z * s) * std::cos(x * s);
        const double r = std::sqrt((x - 10) * (x - 10) + (y - 10) * (y - 10) + (z - 10) * (z - 10));
        const double w = std::min(1.0, std::max(0.0, (r - 5) / 3));
        return g + 2.0 * w * w * (3 - 2 * w);
    };
    const Case cases[] = {{"sphere", sphere(7.6, 7.35, 7.95, 5.6), 32},
                          {"torus", torus(8.05, 7.65, 7.4, 4.6, 1.8), 32},
                          {"gyroid", gyroid, 41}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        KxHandle<VxUniformScalarField3> field = makeField<float>(c.n, c.n, c.n, c.f, 0.5f);
        const Mesh m = extract(*field, 0.f);
        ASSERT_GT(m.triangles.size(), 0u);
        std::string why;
        EXPECT_TRUE(isWatertight(m, &why)) << why;
        EXPECT_EQ(m.coords.size(), countCutEdges(*field, 0.f));

        // Normals point from higher toward lower values, and agree with the triangles' winding.
        double agreeing = 0, total = 0;
        for (const KxVec3i& t : m.triangles) {
            const KxVec3f a = m.coords[std::size_t(t.x)], b = m.coords[std::size_t(t.y)], d = m.coords[std::size_t(t.z)];
            const KxVec3f face = (b - a).cross(d - a);
            const KxVec3f n = m.normals[std::size_t(t.x)] + m.normals[std::size_t(t.y)] + m.normals[std::size_t(t.z)];
            total += face.length();
            if (face.dot(n) > 0) agreeing += face.length();
        }
        EXPECT_GT(agreeing, 0.995 * total); // slivers next to nodes may disagree
        std::size_t inward = 0;
        for (std::size_t v = 0; v < m.coords.size(); ++v) {
            const KxVec3f p = m.coords[v];
            const double h = 1e-3;
            const KxVec3d g((c.f(p.x + h, p.y, p.z) - c.f(p.x - h, p.y, p.z)) / (2 * h),
                            (c.f(p.x, p.y + h, p.z) - c.f(p.x, p.y - h, p.z)) / (2 * h),
                            (c.f(p.x, p.y, p.z + h) - c.f(p.x, p.y, p.z - h)) / (2 * h));
            const KxVec3f& n = m.normals[v];
            inward += g.x * n.x + g.y * n.y + g.z * n.z < 0;
            EXPECT_NEAR(n.length(), 1.f, 1e-5f);
        }
        EXPECT_EQ(inward, m.coords.size());
    }
}

TEST(MarchingCubes, RandomFieldsWithLowBorderAreWatertight)
{
    // Every configuration the table has, in every neighbourhood: closed because the border is low.
    std::mt19937 rng(12345);
    std::uniform_real_distribution<float> value(-1.f, 1.f);
    for (int run = 0; run < 4; ++run) {
        const int n = 14;
        FieldFunc f = [&](double x, double y, double z) {
            const bool border = x == 0 || y == 0 || z == 0 || x == n - 1 || y == n - 1 || z == n - 1;
            return border ? -1.0 : double(value(rng));
        };
        KxHandle<VxUniformScalarField3> field = makeField<float>(n, n, n, f);
        const Mesh m = extract(*field, 0.f);
        std::string why;
        EXPECT_TRUE(isWatertight(m, &why)) << "run " << run << ": " << why;
        EXPECT_EQ(m.coords.size(), countCutEdges(*field, 0.f));
    }
}

TEST(MarchingCubes, CurvilinearGridMakesOneVertexPerCutEdgeWithPlaceholderNormals)
{
    KxHandle<VxRegScalarField3> field = makeCurvilinearField<short>(
        12, 11, 10,
        [](int i, int j, int k) {
            return KxVec3f(float(i) + 0.1f * float(j), float(j) * 1.2f, float(k) + 0.05f * float(i * j));
        },
        [](double i, double j, double k) {
            return (i - 5) * (i - 5) + (j - 5) * (j - 5) + (k - 4) * (k - 4);
        });
    const Mesh m = extract(*field, 10.5f);
    EXPECT_EQ(m.coords.size(), countCutEdges(*field, 10.5f));
    std::string why;
    EXPECT_TRUE(isWatertight(m, &why)) << why;
    for (const KxVec3f& n : m.normals) EXPECT_EQ(n, KxVec3f(1, 0, 0));
    // Vertices lie on the warped grid edges, so the positions are the warped interpolation.
    for (const KxVec3f& p : m.coords) EXPECT_GE(p.y, 0.f);
}

TEST(MarchingCubes, UndefinedNodesPunchHolesOnlyAtTheirEdges)
{
    KxHandle<VxUniformScalarField3> full = makeField<float>(24, 24, 24, sphere(11.5, 11.2, 11.8, 8.4));
    KxHandle<VxUniformScalarField3> holed = makeField<float>(24, 24, 24, sphere(11.5, 11.2, 11.8, 8.4));
    auto* data = static_cast<float*>(holed->lattice().dataPtr());
    const float undefined = -999.f;
    std::vector<bool> isUndef(24 * 24 * 24, false);
    // Undefined nodes are taken among the nodes just inside (below the iso value), so that every
    // cell keeps its case and only the edges at those nodes lose their vertices.
    std::mt19937 rng(7);
    auto markUndefined = [&](int i, int j, int k) {
        const int idx = (k * 24 + j) * 24 + i;
        if (data[idx] >= 0.f || data[idx] < -1.5f) return;
        data[idx] = undefined;
        isUndef[std::size_t(idx)] = true;
    };
    for (int n = 0; n < 400; ++n) markUndefined(int(rng() % 24u), int(rng() % 24u), int(rng() % 24u));
    for (int k = 9; k < 15; ++k) // a patch of them, so there is a real hole
        for (int j = 9; j < 15; ++j)
            for (int i = 16; i < 21; ++i) markUndefined(i, j, k);
    holed->setUndefinedValue(undefined);

    const Mesh a = extract(*full, 0.f);
    const Mesh b = extract(*holed, 0.f);
    auto undef = [&](int i, int j, int k) { return bool(isUndef[std::size_t((k * 24 + j) * 24 + i)]); };
    EXPECT_EQ(b.coords.size(), countCutEdges(*full, 0.f, undef));

    // The holed surface is the full one minus exactly the triangles that touch an undefined edge.
    auto touchesUndefined = [&](const KxVec3f& p) {
        const int i0 = int(std::floor(p.x)), j0 = int(std::floor(p.y)), k0 = int(std::floor(p.z));
        const int i1 = int(std::ceil(p.x)), j1 = int(std::ceil(p.y)), k1 = int(std::ceil(p.z));
        return undef(i0, j0, k0) || undef(i1, j1, k1);
    };
    Mesh kept = a;
    kept.triangles.clear();
    for (const KxVec3i& t : a.triangles)
        if (!touchesUndefined(a.coords[std::size_t(t.x)]) && !touchesUndefined(a.coords[std::size_t(t.y)]) &&
            !touchesUndefined(a.coords[std::size_t(t.z)]))
            kept.triangles.push_back(t);
    EXPECT_LT(kept.triangles.size(), a.triangles.size());
    EXPECT_EQ(triangleSet(kept), triangleSet(b));
}

TEST(MarchingCubes, NaNUndefinedValueMatchesNaNNodes)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(16, 16, 16, sphere(7.5, 7.5, 7.5, 5.2));
    auto* data = static_cast<float*>(field->lattice().dataPtr());
    data[(7 * 16 + 7) * 16 + 2] = std::nanf("");
    data[(7 * 16 + 7) * 16 + 13] = std::nanf("");
    field->setUndefinedValue(std::nan(""));
    const Mesh m = extract(*field, 0.f);
    for (const KxVec3f& p : m.coords) ASSERT_FALSE(std::isnan(p.x) || std::isnan(p.y) || std::isnan(p.z));
    for (const KxVec3f& n : m.normals) ASSERT_FALSE(std::isnan(n.x));
    std::string why;
    EXPECT_FALSE(isWatertight(m, &why)); // two holes
}

TEST(MarchingCubes, EdgeCasesOfTheGrid)
{
    // Constant at the iso value: every node counts as below, so nothing.
    KxHandle<VxUniformScalarField3> flat = makeField<int>(8, 8, 8, [](double, double, double) { return 5.0; });
    EXPECT_TRUE(extract(*flat, 5.f).triangles.empty());
    // One node thick: no cells.
    KxHandle<VxUniformScalarField3> thin = makeField<float>(9, 1, 9, sphere(4, 0, 4, 2));
    const Mesh t = extract(*thin, 0.f);
    EXPECT_TRUE(t.triangles.empty());
    EXPECT_TRUE(t.coords.empty());
    // Iso equal to node values: vertices land exactly on those nodes and are not merged.
    KxHandle<VxUniformScalarField3> steps =
        makeField<unsigned char>(6, 6, 6, [](double x, double, double) { return x < 2.5 ? 10.0 : 20.0; });
    const Mesh s = extract(*steps, 10.f);
    EXPECT_EQ(s.coords.size(), countCutEdges(*steps, 10.f));
    for (const KxVec3f& p : s.coords) EXPECT_EQ(p.x, 2.f); // t = 0 at the node below
}

// Standard and compact cubes alike.
TEST(MarchingCubes, RepeatedRunsAreIdentical)
{
    KxHandle<VxUniformScalarField3> field = makeField<short>(30, 26, 22, torus(14, 12, 10, 8, 3));
    for (int compact : {0, 1})
        EXPECT_TRUE(sameBytes(extract(*field, 0.f, compact), extract(*field, 0.f, compact)))
            << "compact " << compact;
}

TEST(MarchingCubes, VoxelSizeComesFromTheBoundingBox)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(10, 10, 10, sphere(4.5, 4.5, 4.5, 3.1));
    const Mesh unit = extract(*field, 0.f);
    field->setBoundingBox(KxBox3f(-1, 17, 2, 6.5, 10, 19)); // spacing 2, 0.5, 1
    const Mesh scaled = extract(*field, 0.f);
    ASSERT_EQ(unit.coords.size(), scaled.coords.size());
    for (std::size_t v = 0; v < unit.coords.size(); ++v) {
        EXPECT_FLOAT_EQ(scaled.coords[v].x, -1 + 2 * unit.coords[v].x);
        EXPECT_FLOAT_EQ(scaled.coords[v].y, 2 + 0.5f * unit.coords[v].y);
        EXPECT_FLOAT_EQ(scaled.coords[v].z, 10 + unit.coords[v].z);
    }
}
