// The engine: the sequential traversal with standard and compact cubes on generated fields, and
// the parallel path, which must give the sequential surface whatever the slabs.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

#include <kx/KxException.h>
#include <kx/KxHandle.h>
#include <oiv/OivInit.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <tuple>

using namespace vxtest;
using Undefined = vxiso::filter::UndefinedValue;

namespace {

template <class T> class AllValueTypes : public ::testing::Test
{
};
using ValueTypes =
    ::testing::Types<unsigned char, signed char, unsigned short, short, unsigned int, int, float, double>;
TYPED_TEST_SUITE(AllValueTypes, ValueTypes);

struct Result
{
    TestMesh mesh;
    unsigned long long dropped = 0;
    std::size_t slabs = 0;
    int axis = -1;
};

template <class Filter>
Result run(const VxRegScalarField3& field, const Filter& filter, int compact, int64_t cores,
           float iso = 100.f)
{
    oivInit();
    KxHandle<SoTriSurface> surface = new SoTriSurface;
    VxIsosurfaceExtractor x(&field, surface, nullptr);
    x.isoValue = iso;
    x.compact = compact;
    x.numberOfCores = cores;
    x.compute(filter);
    return {meshOf(*surface), x.getDegenerateCount(), x.getSlabCount(), x.getSplitAxis()};
}

// Vertices that triangles use (compact cubes may leave some unused), or all of them.
std::size_t countVertices(const TestMesh& m, bool onlyUsed)
{
    return onlyUsed ? std::set<int32_t>(m.triangles.begin(), m.triangles.end()).size()
                    : std::size_t(m.numPoints());
}

// Four balls strung along the long axis, 100 + 3 * (distance - 7.2) rounded for integer types, so
// that every value type holds them; on request with some nodes undefined, or on a sheared lattice.
template <class T>
KxHandle<VxRegScalarField3> balls(int longAxis, bool undefined = false, bool curvilinear = false)
{
    int n[3] = {23, 21, 19};
    n[longAxis] = 70;
    const FieldFunc f = [=](double x, double y, double z) {
        double c[3] = {11, 10, 9}, best = 1e9;
        for (int b = 0; b < 4; ++b) {
            c[longAxis] = 9.3 + 16.7 * b;
            best = std::min(best, sphere(c[0], c[1], c[2], 7.2, 3, 100)(x, y, z));
        }
        return best;
    };
    auto shear = [](int i, int j, int k) {
        return KxVec3f(float(i) + 0.2f * float(j), float(j), float(k) - 0.1f * float(i));
    };
    KxHandle<VxRegScalarField3> field(curvilinear ? makeCurvilinearField<T>(n[0], n[1], n[2], shear, f)
                                                  : makeField<T>(n[0], n[1], n[2], f));
    if (undefined) {
        std::mt19937 rng(3);
        for (int i = 0; i < 300; ++i)
            static_cast<T*>(field->lattice().dataPtr())[rng() % uint32_t(field->getDims().count())] = T(3);
        field->setUndefinedValue(3.0);
    }
    return field;
}

class SlabThreads : public ::testing::Test
{
protected:
    void TearDown() override
    {
        VxIsosurfaceExtractor::setHardwareThreadsForSlabs(0);
        vxiso::tools::setMaxSurfaceElements(0);
    }
};

} // namespace

// Random values inside a low border: every configuration the table has, in every neighbourhood,
// on a closed surface. Values 40..80 fit every type; integer types hold some at the iso value.
TYPED_TEST(AllValueTypes, OneVertexPerCutEdgeAndClosedSurface)
{
    std::mt19937 rng(12345);
    KxHandle<VxUniformScalarField3> field =
        makeField<TypeParam>(20, 20, 20, [&](double x, double y, double z) {
            return std::min({x, y, z, 19 - x, 19 - y, 19 - z}) == 0
                       ? 40
                       : std::uniform_real_distribution<>(40, 80)(rng);
        });
    const TestMesh m = extract(*field, 60.f);
    EXPECT_GT(m.numTriangles(), 1000);
    EXPECT_EQ(std::size_t(m.numPoints()), countCutEdges(*field, 60.f));
    EXPECT_EQ(m.normals.size(), m.coords.size());
    EXPECT_TRUE(isWatertight(m));
}

// Slices of thousands of nodes: a walk gives the classification of the slices it has passed back to
// the system while it goes on, on both paths. Were any of it read again, cells would be lost:
// vertices would be missing and the surface would open.
TEST(MarchingCubes, ClassificationGivenBackBehindTheWalkIsNotReadAgain)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(90, 300, 50, [](double x, double y, double z) {
        const bool border = std::min({x, y, z, 89 - x, 299 - y, 49 - z}) == 0;
        return border ? -1.0 : std::sin(x * 0.3) + std::cos(y * 0.2) * std::sin(z * 0.35);
    });
    for (int cores : {1, 2}) {
        SCOPED_TRACE(cores);
        const TestMesh m = run(*field, Undefined(*field), 0, cores, 0.f).mesh;
        EXPECT_EQ(std::size_t(m.numPoints()), countCutEdges(*field, 0.f));
        EXPECT_TRUE(isWatertight(m));
    }
}

// Vertices come in order of first creation (cells i fastest, then j, then k; a cell's cut edges in
// the order of its case row), triangles cell by cell; compact cubes number a node's vertex at its
// first intersection. Nodes (1, 1, 1) and (2, 2, 1) hold 4, the rest 0: at iso 1 every intersection
// lies a quarter along its edge from the outer node. Voxels are 2 x 0.5 x 1, from (-1, 2, 10).
TEST(MarchingCubes, OutputIsInTheOrderOfFirstCreation)
{
    KxHandle<VxUniformScalarField3> field = makeField<unsigned char>(
        4, 4, 4, [](double x, double y, double z) { return z == 1 && x == y && (x == 1 || x == 2) ? 4 : 0; });
    field->setBoundingBox(KxBox3f(-1, 5, 2, 3.5, 10, 13));
    auto first = [](const auto& a, std::size_t n) {
        return std::vector<double>(a.begin(), a.begin() + long(n));
    };
    const TestMesh standard = extract(*field, 1.f), compact = extract(*field, 1.f, 1);
    EXPECT_EQ(first(standard.coords, 15),
              (std::vector<double>{-0.5, 2.5, 11, 1, 2.5, 10.25, 1, 2.125, 11, 2.5, 2.5, 11, 1, 2.875, 11}));
    EXPECT_EQ(first(standard.triangles, 24),
              (std::vector<double>{0, 1, 2, 3, 2, 1, 0, 4, 1, 5, 6, 7, 4, 3, 1, 8, 5, 7, 6, 9, 7, 8, 7, 9}));
    // Nodes (2, 1, 1) and (1, 2, 1) take an intersection of each ball: vertices 3 and 4 are means.
    EXPECT_EQ(first(compact.coords, 15), (std::vector<double>{-0.5, 2.5, 11, 1, 2.5, 10.25, 1, 2.125, 11,
                                                              2.75, 2.5625, 11, 1.25, 2.9375, 11}));
    EXPECT_EQ(first(compact.triangles, 24),
              (std::vector<double>{0, 1, 2, 3, 2, 1, 0, 4, 1, 3, 4, 5, 4, 3, 1, 6, 3, 5, 4, 7, 5, 6, 5, 7}));
}

TEST(MarchingCubes, UndefinedNodesPunchHolesOnlyAtTheirEdges)
{
    KxHandle<VxUniformScalarField3> full = makeField<float>(24, 24, 24, sphere(11.5, 11.2, 11.8, 8.4));
    KxHandle<VxUniformScalarField3> holed = makeField<float>(24, 24, 24, sphere(11.5, 11.2, 11.8, 8.4));
    // Undefined nodes (NaN, the undefined value) are taken among the nodes just inside, so that
    // every cell keeps its case and only the edges at those nodes lose their vertices.
    auto* data = static_cast<float*>(holed->lattice().dataPtr());
    auto undef = [&](int i, int j, int k) { return std::isnan(data[(k * 24 + j) * 24 + i]); };
    auto markUndefined = [&](int i, int j, int k) {
        float& v = data[(k * 24 + j) * 24 + i];
        if (v < 0.f && v > -1.5f) v = std::nanf("");
    };
    std::mt19937 rng(7);
    for (int n = 0; n < 400; ++n) markUndefined(int(rng() % 24u), int(rng() % 24u), int(rng() % 24u));
    for (int k = 9; k < 15; ++k) // a patch of them, so there is a real hole
        for (int j = 9; j < 15; ++j)
            for (int i = 16; i < 21; ++i) markUndefined(i, j, k);
    holed->setUndefinedValue(std::nan(""));

    const TestMesh a = extract(*full, 0.f);
    const TestMesh b = extract(*holed, 0.f);
    EXPECT_EQ(std::size_t(b.numPoints()), countCutEdges(*full, 0.f, undef));

    // The holed surface is the full one minus exactly the triangles that touch an undefined edge.
    auto touchesUndefined = [&](int v) {
        const KxVec3f p = a.point(std::size_t(v));
        return undef(int(std::floor(p.x)), int(std::floor(p.y)), int(std::floor(p.z))) ||
               undef(int(std::ceil(p.x)), int(std::ceil(p.y)), int(std::ceil(p.z)));
    };
    TestMesh kept = a;
    kept.triangles.clear();
    for (std::size_t t = 0; t < a.triangles.size(); t += 3)
        if (!touchesUndefined(a.triangles[t]) && !touchesUndefined(a.triangles[t + 1]) &&
            !touchesUndefined(a.triangles[t + 2]))
            kept.triangles.insert(kept.triangles.end(), &a.triangles[t], &a.triangles[t] + 3);
    EXPECT_LT(kept.numTriangles(), a.numTriangles());
    EXPECT_EQ(triangleSet(kept), triangleSet(b));
}

TEST(CompactCubes, HalfSnapGivesEachNodeTheMeanOfItsIntersectionsAndCountsDroppedTriangles)
{
    KxHandle<VxUniformScalarField3> field = makeField<float>(26, 26, 26, torus(12.4, 12.1, 12.7, 7.3, 2.9));
    unsigned long long degenerate = 0;
    const TestMesh compact = extract(*field, 0.f, 1, 0.5f, &degenerate);
    const TestMesh standard = extract(*field, 0.f, 0);
    // Every intersection joins its nearest node's vertex: one vertex per node, at their mean.
    auto node = [](const KxVec3f& p) {
        return std::make_tuple(std::lround(p.x), std::lround(p.y), std::lround(p.z));
    };
    std::map<std::tuple<long, long, long>, std::pair<KxVec3d, int>> sums;
    for (int v = 0; v < standard.numPoints(); ++v) {
        const KxVec3f p = standard.point(std::size_t(v));
        auto& s = sums[node(p)];
        s = {s.first + KxVec3d(p.x, p.y, p.z), s.second + 1};
    }
    ASSERT_EQ(std::size_t(compact.numPoints()), sums.size());
    for (int v = 0; v < compact.numPoints(); ++v) {
        const KxVec3f p = compact.point(std::size_t(v));
        const auto s = sums.find(node(p));
        ASSERT_NE(s, sums.end()) << "a second vertex at a node, or one at no node";
        EXPECT_LT((KxVec3d(p.x, p.y, p.z) - s->second.first * (1.0 / s->second.second)).length(), 1e-4);
        sums.erase(s);
    }
    // Collapsed triangles are dropped and counted; every vertex is still used.
    EXPECT_GT(degenerate, 0ull);
    EXPECT_EQ(uint64_t(compact.numTriangles()) + degenerate, uint64_t(standard.numTriangles()));
    for (int t = 0; t < compact.numTriangles(); ++t) {
        const KxVec3i c = compact.triangle(std::size_t(t));
        ASSERT_FALSE(c.x == c.y || c.y == c.z || c.x == c.z);
    }
    const std::set<int32_t> used(compact.triangles.begin(), compact.triangles.end());
    EXPECT_EQ(used.size(), std::size_t(compact.numPoints()));
    EXPECT_EQ(*used.rbegin(), compact.numPoints() - 1);
}

TEST(CompactCubes, ZeroSnapMergesOnlyIntersectionsOnNodes)
{
    // No node at the iso value: the same surface as standard cubes, vertex for vertex.
    KxHandle<VxUniformScalarField3> field = makeField<float>(20, 20, 20, sphere(9.7, 9.4, 10.1, 6.3));
    unsigned long long degenerate = 0;
    const TestMesh a = extract(*field, 0.f, 1, 0.f, &degenerate);
    EXPECT_EQ(degenerate, 0ull);
    EXPECT_TRUE(sameBytes(a, extract(*field, 0.f, 0)));
    // Nodes exactly at the iso value: their intersections (t = 0 or 1) merge into one vertex.
    KxHandle<VxUniformScalarField3> onNodes = makeField<int>(12, 12, 12, sphere(5.5, 5.5, 5.5, 4, 2));
    const TestMesh c = extract(*onNodes, 0.f, 1, 0.f);
    TestMesh d = extract(*onNodes, 0.f, 0);
    const int made = d.numPoints();
    const std::size_t distinct = weldByPosition(d);
    EXPECT_LT(distinct, std::size_t(made));
    EXPECT_EQ(std::size_t(c.numPoints()), distinct);
}

// The same triangles and as many vertices for either cubes, up to order. Slabs are merged in layer
// order, so with one slab, or slabs along z (the outermost loop of the traversal), standard cubes
// give the sequential arrays byte for byte.
TEST_F(SlabThreads, BothCubesEqualSequentialForEveryAxisValueTypeLatticeAndFilter)
{
    const struct
    {
        const char* name;
        KxHandle<VxRegScalarField3> field;
        int axis;
        bool masked;
    } cases[] = {{"float x undefined", balls<float>(0, true), 0, false},
                 {"float y", balls<float>(1), 1, false},
                 {"float z masked", balls<float>(2), 2, true},
                 {"uint8 x", balls<unsigned char>(0), 0, false},
                 {"int16 z undefined", balls<short>(2, true), 2, false},
                 {"curvilinear int16 y undefined", balls<short>(1, true, true), 1, false},
                 {"curvilinear float z", balls<float>(2, false, true), 2, false}};
    for (const auto& c : cases) {
        const KxDim3l& d = c.field->getDims();
        VxLabelLattice3 labels(d);
        for (int64_t i = 0; i < d.count(); ++i) labels.setLabel(i, (i / 7) % 3 ? 1 : 0);
        auto check = [&](const auto& filter) {
            for (int compact : {0, 1}) {
                VxIsosurfaceExtractor::setHardwareThreadsForSlabs(0);
                const Result seq = run(*c.field, filter, compact, 1);
                ASSERT_GT(seq.mesh.numTriangles(), 100);
                std::set<std::size_t> slabCounts;
                for (unsigned threads : {1u, 2u, 3u, 4u}) {
                    SCOPED_TRACE(std::string(c.name) + " compact " + std::to_string(compact) + " threads " +
                                 std::to_string(threads));
                    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(threads);
                    const Result par = run(*c.field, filter, compact, 2);
                    EXPECT_EQ(par.axis, c.axis);
                    slabCounts.insert(par.slabs);
                    if (par.slabs == 1 || (compact == 0 && c.axis == 2)) {
                        EXPECT_TRUE(sameBytes(par.mesh, seq.mesh));
                    }
                    EXPECT_EQ(countVertices(par.mesh, compact), countVertices(seq.mesh, false));
                    EXPECT_EQ(triangleSet(par.mesh), triangleSet(seq.mesh));
                    EXPECT_EQ(par.dropped, seq.dropped);
                    if (threads == 4) {
                        EXPECT_TRUE(sameBytes(run(*c.field, filter, compact, 2).mesh, par.mesh))
                            << "run again";
                    }
                }
                EXPECT_GE(slabCounts.size(), 2u) << c.name; // the hook really cut the field differently
            }
        };
        if (c.masked)
            check(vxiso::filter::LabelIsoSurfaceFilter(*c.field, &labels));
        else
            check(Undefined(*c.field));
    }
}

// Numbers of vertices and triangles are 32-bit: a surface with more is refused, with its counts,
// before its arrays are made, on every path; the refusal reaches the caller from the worker thread
// and from the slabs' threads (each slab below the limit, their sum above it). Counts made ahead
// bound the standard surface, so that one always fits.
TEST_F(SlabThreads, SurfacesTooLargeToNumberAreRefusedOnEveryPath)
{
    KxHandle<VxRegScalarField3> f = balls<float>(0);
    auto most = [](const TestMesh& m) { return uint64_t(std::max(m.numPoints(), m.numTriangles())); };
    const uint64_t standard = most(run(*f, Undefined(*f), 0, 1).mesh);
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(4);
    for (int compact : {0, 1})
        for (int64_t cores : {1, 2}) {
            SCOPED_TRACE("compact " + std::to_string(compact) + " cores " + std::to_string(cores));
            vxiso::tools::setMaxSurfaceElements(standard);
            const uint64_t made = most(run(*f, Undefined(*f), compact, cores).mesh);
            vxiso::tools::setMaxSurfaceElements(made - 1);
            QString refusal;
            try {
                run(*f, Undefined(*f), compact, cores);
            } catch (const KxException& e) {
                refusal = e.text();
            }
            EXPECT_TRUE(refusal.startsWith("the surface would have ") &&
                        refusal.contains(QString("; a surface holds at most %1 of each").arg(made - 1)))
                << refusal.toStdString();
        }
}

// Infinite and NaN values (also doubles beyond the float range) have no proportion to interpolate:
// every vertex and normal still comes out finite.
TEST_F(SlabThreads, InfiniteAndNaNValuesGiveFiniteVerticesAndNormals)
{
    const double odd[] = {HUGE_VAL, -HUGE_VAL, NAN, 1e300, -1e300};
    KxHandle<VxRegScalarField3> floats = balls<float>(0), doubles = balls<double>(0);
    std::mt19937 rng(5);
    for (int i = 0; i < 900; ++i) {
        const uint32_t n = rng() % uint32_t(floats->getDims().count());
        static_cast<float*>(floats->lattice().dataPtr())[n] = float(odd[i % 3]);
        static_cast<double*>(doubles->lattice().dataPtr())[n] = odd[i % 5];
    }
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(3);
    for (VxRegScalarField3* f : {floats.get(), doubles.get()})
        for (int compact : {0, 1})
            for (int64_t cores : {1, 2}) {
                const TestMesh m = run(*f, Undefined(*f), compact, cores).mesh;
                EXPECT_GT(m.numTriangles(), 100);
                for (const std::vector<float>* a : {&m.coords, &m.normals})
                    EXPECT_TRUE(std::all_of(a->begin(), a->end(), [](float x) { return std::isfinite(x); }))
                        << "compact " << compact << " cores " << cores;
            }
}

// Drives the slab body directly with chosen slabs, run from several threads in shuffled order: the
// merge must not depend on how the range was cut or who ran what.
template <template <class, class> class Cubes>
Result runSlabs(const VxRegScalarField3& f, const std::vector<unsigned long>& cuts, unsigned seed)
{
    using Accessor = vxiso::tools::RegField3Accessor<float>;
    using Tools = vxiso::detail::ToolsFor<Accessor, Undefined>;
    const Accessor accessor = VxIsosurfaceExtractor::uniformAccessor<float>(f);
    const Undefined filter(f);
    const Tools tools(accessor, 100.f, filter);
    Cubes<Tools, vxiso::tools::Yaxis> cubes(tools, 0.5f);
    vxiso::VxParallelIsosurfaceMarchingCubes<Tools, decltype(cubes), vxiso::tools::Yaxis> body(tools, cubes,
                                                                                               nullptr);
    std::vector<tbb::blocked_range3d<unsigned long, unsigned long, unsigned long>> ranges;
    for (std::size_t c = 0; c + 1 < cuts.size(); ++c)
        ranges.emplace_back(0, (unsigned long)tools.nz, cuts[c], cuts[c + 1], 0, (unsigned long)tools.nx);
    std::shuffle(ranges.begin(), ranges.end(), std::mt19937(seed));
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t r = t; r < ranges.size(); r += 3) body(ranges[r]);
        });
    for (auto& th : threads) th.join();
    cubes.finishAll();
    Result out;
    out.mesh.coords.assign(&cubes.vertexCoords().data()->x,
                           &cubes.vertexCoords().data()->x + 3 * cubes.vertexCoords().size());
    out.dropped = cubes.degenerateCount();
    for (const KxVec3i& t : cubes.triangleArray()) // dropped at the hand-over
        if (vxiso::tools::isDegenerate(t))
            ++out.dropped;
        else
            out.mesh.triangles.insert(out.mesh.triangles.end(), {t.x, t.y, t.z});
    return out;
}

TEST(ParallelSlabs, AnySetOfSlabsInAnyOrderGivesTheSequentialSurface)
{
    KxHandle<VxRegScalarField3> f = balls<float>(1, true);
    const unsigned long ny = (unsigned long)f->getDims().ny;
    const Result standard = run(*f, Undefined(*f), 0, 1), compact = run(*f, Undefined(*f), 1, 1);
    // 1, 2, 3, 7 and 16 slabs, some of them one or two layers thin.
    const std::vector<std::vector<unsigned long>> plans = {
        {0, ny},
        {0, 35, ny},
        {0, 1, 2, ny},
        {0, 9, 10, 20, 33, 41, 60, ny},
        {0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 69, ny}};
    for (unsigned p = 0; p < plans.size(); ++p) {
        SCOPED_TRACE("plan with " + std::to_string(plans[p].size() - 1) + " slabs");
        const Result a = runSlabs<vxiso::VxIsosurfaceParallelStandardCubes>(*f, plans[p], p);
        EXPECT_EQ(a.mesh.numPoints(), standard.mesh.numPoints());
        EXPECT_EQ(triangleSet(a.mesh), triangleSet(standard.mesh));
        EXPECT_TRUE(
            sameBytes(a.mesh, runSlabs<vxiso::VxIsosurfaceParallelStandardCubes>(*f, plans[p], p + 7).mesh));
        const Result b = runSlabs<vxiso::VxIsosurfaceParallelCompactCubes>(*f, plans[p], p);
        EXPECT_EQ(countVertices(b.mesh, true), countVertices(compact.mesh, false));
        EXPECT_EQ(triangleSet(b.mesh), triangleSet(compact.mesh));
        EXPECT_EQ(b.dropped, compact.dropped);
        EXPECT_TRUE(
            sameBytes(b.mesh, runSlabs<vxiso::VxIsosurfaceParallelCompactCubes>(*f, plans[p], p + 7).mesh));
    }
}

TEST(ExtractorFrontEnd, ProgressStartsAtZeroNeverDecreasesAndEndsAtOne)
{
    // Records what the extractor shows the user.
    struct RecordingProgress : KxProgressInterface
    {
        void startWorking(const QString& t) override { text = t; }
        void setProgressValue(float v) override { values.push_back(v); }
        void stopWorking() override { text += " stopped"; }
        QString text;
        std::vector<float> values;
    };
    // Large enough for the 250 ms polls to forward values on the way, on both paths.
    KxHandle<VxUniformScalarField3> f = makeField<float>(240, 240, 240, sphere(120, 120, 120, 100));
    for (int64_t cores : {1, 2}) {
        oivInit();
        KxHandle<SoTriSurface> s = new SoTriSurface;
        RecordingProgress progress;
        VxIsosurfaceExtractor x(f, s, &progress);
        x.compact = 1;
        x.numberOfCores = cores;
        x.compute();
        EXPECT_EQ(progress.text, "Computing Isosurface... stopped");
        ASSERT_GE(progress.values.size(), 2u);
        EXPECT_TRUE(progress.values.front() == 0.f && progress.values.back() == 1.f &&
                    std::is_sorted(progress.values.begin(), progress.values.end()))
            << "cores " << cores;
    }
}

TEST(ExtractorFrontEnd, EmptyResultLeavesAnEmptySurfaceAndUnknownCubesComputeNothing)
{
    // No surface at 100, no cells in a field one node thick, no cubes policy 7.
    KxHandle<VxUniformScalarField3> ball = makeField<float>(20, 20, 20, sphere(9.5, 9.5, 9.5, 6)),
                                    thin = makeField<float>(9, 1, 9, sphere(4, 0, 4, 2));
    for (VxUniformScalarField3* f : {ball.get(), thin.get()})
        for (int64_t cores : {1, 2})
            for (int compact : {0, 1, 7}) {
                oivInit();
                KxHandle<SoTriSurface> s = new SoTriSurface;
                s->coords.setValues(0, 3, std::vector<SbVec3f>(3, SbVec3f(1, 2, 3)).data()); // an old surface
                s->triangles.setValue(SbVec3i32(0, 1, 2));
                VxIsosurfaceExtractor x(f, s, nullptr);
                x.isoValue = compact == 7 || f == thin.get() ? 0.f : 100.f;
                x.compact = compact;
                x.numberOfCores = cores;
                x.compute();
                EXPECT_EQ(s->getNumTriangles() + s->coords.getNum() + s->normals.getNum(), 0);
            }
}

// A field on borrowed values, extracted without a surface, gives the surface path's arrays, and the
// caller's values outlive the field (a lattice freeing them would crash on the vector's release).
TEST(ExtractorFrontEnd, BorrowedValuesWithoutSurfaceGiveTheSurfaceArrays)
{
    KxHandle<VxUniformScalarField3> owned = makeField<short>(23, 19, 17, sphere(11, 9, 8, 7, 20, 100));
    const std::vector<short> values(static_cast<const short*>(owned->lattice().dataPtr()),
                                    static_cast<const short*>(owned->lattice().dataPtr()) + 23 * 19 * 17);
    for (int64_t cores : {1, 3})
        for (int compact : {0, 1}) {
            const Result want = run(*owned, Undefined(*owned), compact, cores);
            auto* borrowed = new VxUniformScalarField3(KxDim3l{23, 19, 17}, KxPrimType::INT16,
                                                       const_cast<short*>(values.data()), VxBorrowedValues());
            const KxHandle<VxUniformScalarField3> hold(borrowed);
            EXPECT_EQ(borrowed->lattice().dataPtr(), values.data());
            VxIsosurfaceExtractor x(borrowed, nullptr, nullptr);
            x.isoValue = 100.f, x.compact = compact, x.numberOfCores = cores;
            x.compute();
            const KxDArray<KxVec3i> t = x.takeTriangles();
            const KxDArray<KxVec3f> c = x.takeCoords();
            ASSERT_GT(t.size(), 100u);
            ASSERT_EQ(t.size() * 3, want.mesh.triangles.size());
            ASSERT_EQ(c.size() * 3, want.mesh.coords.size());
            EXPECT_EQ(0, std::memcmp(t.data(), want.mesh.triangles.data(), t.size() * sizeof(KxVec3i)));
            EXPECT_EQ(0, std::memcmp(c.data(), want.mesh.coords.data(), c.size() * sizeof(KxVec3f)));
            EXPECT_TRUE(x.takeTriangles().empty()); // taken, not kept
        }
}

// An interruption reported by the caller's progress stops every path with KxInterrupted.
TEST(ExtractorFrontEnd, InterruptionStopsEveryPath)
{
    struct Interrupted : KxProgressInterface
    {
        void setProgressValue(float) override {}
        bool wasInterrupted() override { return true; }
    } progress;
    KxHandle<VxUniformScalarField3> f = makeField<float>(40, 40, 40, sphere(20, 20, 20, 15));
    for (int64_t cores : {1, 2})
        for (int compact : {0, 1}) {
            VxIsosurfaceExtractor x(f, nullptr, &progress);
            x.compact = compact, x.numberOfCores = cores;
            EXPECT_THROW(x.compute(), KxInterrupted) << "cores " << cores << ", compact " << compact;
        }
}
