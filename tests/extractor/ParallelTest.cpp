// The parallel path must give the sequential surface, whatever the slabs.
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
#include <random>
#include <set>
#include <thread>

using namespace vxtest;
using vxiso::tools::RegField3Accessor;

namespace {

struct Result
{
    Mesh mesh;
    unsigned long long dropped = 0;
    std::size_t slabs = 0;
    int axis = -1;
};

template <class Filter>
Result run(const VxRegScalarField3& field, const Filter& filter, int compact, int64_t cores, float iso = 0.f)
{
    oivInit();
    KxHandle<SoTriSurface> surface = new SoTriSurface;
    VxIsosurfaceExtractor x(&field, surface, nullptr);
    x.isoValue = iso;
    x.compact = compact;
    x.snapFraction = 0.5f;
    x.numberOfCores = cores;
    x.compute(filter);
    return {meshOf(*surface), x.getDegenerateCount(), x.getSlabCount(), x.getSplitAxis()};
}

// Positions of the vertices that triangles use.
std::multiset<std::vector<float>> referencedVertices(const Mesh& m)
{
    std::set<int> used;
    for (const KxVec3i& t : m.triangles) used.insert({t.x, t.y, t.z});
    std::multiset<std::vector<float>> out;
    for (int v : used)
        out.insert({m.coords[std::size_t(v)].x, m.coords[std::size_t(v)].y, m.coords[std::size_t(v)].z});
    return out;
}

std::multiset<std::vector<float>> allVertices(const Mesh& m)
{
    std::multiset<std::vector<float>> out;
    for (const KxVec3f& p : m.coords) out.insert({p.x, p.y, p.z});
    return out;
}

// A field with several closed pieces, longest along the given axis, some nodes undefined.
KxHandle<VxUniformScalarField3> field(int longAxis, bool undefined)
{
    int n[3] = {23, 21, 19};
    n[longAxis] = 70;
    FieldFunc f = [=](double x, double y, double z) {
        double c[3] = {11, 10, 9};
        double best = 1e9;
        for (int b = 0; b < 4; ++b) { // four balls strung along the long axis
            c[longAxis] = 9.3 + 16.7 * b;
            best = std::min(best, sphere(c[0], c[1], c[2], 7.2)(x, y, z));
        }
        return best;
    };
    KxHandle<VxUniformScalarField3> fld = makeField<float>(n[0], n[1], n[2], f);
    if (undefined) {
        auto* v = static_cast<float*>(fld->lattice().dataPtr());
        std::mt19937 rng(3);
        for (int i = 0; i < 300; ++i) v[rng() % uint32_t(fld->getDims().count())] = -77.f;
        fld->setUndefinedValue(-77.0);
    }
    return fld;
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

// Equal up to order; standard cubes make no vertex twice, compact cubes may leave unused ones.
TEST_F(SlabThreads, BothCubesEqualSequentialForEveryAxisAndSlabCount)
{
    for (int compact : {0, 1})
        for (int axis = 0; axis < 3; ++axis)
            for (bool undefined : {false, true}) {
                KxHandle<VxUniformScalarField3> f = field(axis, undefined);
                const vxiso::filter::UndefinedValue filter(*f);
                const Result seq = run(*f, filter, compact, 1);
                std::set<std::size_t> slabCounts;
                for (unsigned threads : {1u, 2u, 3u, 4u}) {
                    SCOPED_TRACE("compact " + std::to_string(compact) + " axis " + std::to_string(axis) +
                                 " undefined " + std::to_string(undefined) + " threads " +
                                 std::to_string(threads));
                    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(threads);
                    const Result par = run(*f, filter, compact, 2);
                    EXPECT_EQ(par.axis, axis);
                    slabCounts.insert(par.slabs);
                    EXPECT_EQ(compact ? referencedVertices(par.mesh) : allVertices(par.mesh),
                              allVertices(seq.mesh));
                    EXPECT_EQ(triangleSet(par.mesh), triangleSet(seq.mesh));
                    EXPECT_EQ(par.dropped, seq.dropped);
                }
                EXPECT_GE(slabCounts.size(), 2u); // the hook really cut the field differently
            }
}

// Numbers of vertices and triangles are 32-bit: a surface with more is refused, with its counts,
// before its arrays are made, on every path; the refusal reaches the caller from the worker thread
// and from the slabs' threads (each slab below the limit, their sum above it). Counts made ahead
// bound the standard surface, so that one always fits.
TEST_F(SlabThreads, SurfacesTooLargeToNumberAreRefusedOnEveryPath)
{
    KxHandle<VxUniformScalarField3> f = field(0, false);
    const vxiso::filter::UndefinedValue filter(*f);
    auto most = [](const Mesh& m) { return uint64_t(std::max(m.coords.size(), m.triangles.size())); };
    const uint64_t standard = most(run(*f, filter, 0, 1).mesh);
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(4);
    for (int compact : {0, 1})
        for (int64_t cores : {1, 2}) {
            SCOPED_TRACE("compact " + std::to_string(compact) + " cores " + std::to_string(cores));
            vxiso::tools::setMaxSurfaceElements(standard);
            const uint64_t made = most(run(*f, filter, compact, cores).mesh);
            vxiso::tools::setMaxSurfaceElements(made - 1);
            try {
                run(*f, filter, compact, cores);
                ADD_FAILURE() << "not refused";
            } catch (const KxException& e) {
                EXPECT_TRUE(e.text().startsWith("the surface would have ")) << e.what();
                EXPECT_TRUE(e.text().contains(QString("; a surface holds at most %1 of each").arg(made - 1)))
                    << e.what();
            }
        }
}

// Infinite and NaN values (also doubles beyond the float range) have no proportion to interpolate:
// every vertex and normal still comes out finite.
TEST_F(SlabThreads, InfiniteAndNaNValuesGiveFiniteVerticesAndNormals)
{
    const double odd[] = {HUGE_VAL, -HUGE_VAL, NAN, 1e300, -1e300};
    KxHandle<VxUniformScalarField3> floats = field(0, false);
    KxHandle<VxUniformScalarField3> doubles =
        makeField<double>(70, 21, 19, [&](double x, double y, double z) {
            return double(
                static_cast<const float*>(floats->lattice().dataPtr())[(int(z) * 21 + int(y)) * 70 + int(x)]);
        });
    std::mt19937 rng(5);
    for (int i = 0; i < 900; ++i) {
        const uint32_t n = rng() % uint32_t(floats->getDims().count());
        static_cast<float*>(floats->lattice().dataPtr())[n] = float(odd[i % 3]);
        static_cast<double*>(doubles->lattice().dataPtr())[n] = odd[i % 5];
    }
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(3);
    for (VxUniformScalarField3* f : {floats.get(), doubles.get()})
        for (int compact : {0, 1})
            for (int64_t cores : {1, 2}) {
                const Mesh m = run(*f, vxiso::filter::UndefinedValue(*f), compact, cores).mesh;
                EXPECT_GT(m.triangles.size(), 100u);
                std::size_t bad = 0;
                for (const std::vector<KxVec3f>* a : {&m.coords, &m.normals})
                    for (const KxVec3f& p : *a)
                        bad += !(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
                EXPECT_EQ(bad, 0u) << "compact " << compact << " cores " << cores;
            }
}

TEST_F(SlabThreads, LabelMaskRestrictsTheParallelSurfaceLikeTheSequentialOne)
{
    KxHandle<VxUniformScalarField3> f = field(2, false);
    const KxDim3l& d = f->getDims();
    VxLabelLattice3 labels(d);
    for (int64_t i = 0; i < d.count(); ++i) labels.setLabel(i, (i / 7) % 3 ? 1 : 0);
    const vxiso::filter::LabelIsoSurfaceFilter filter(*f, &labels);
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(3);
    for (int compact : {0, 1}) {
        const Result seq = run(*f, filter, compact, 1);
        const Result par = run(*f, filter, compact, 2);
        EXPECT_GT(par.slabs, 1u);
        EXPECT_EQ(triangleSet(par.mesh), triangleSet(seq.mesh)) << "compact " << compact;
        const Result unmasked = run(*f, vxiso::filter::UndefinedValue(*f), compact, 1);
        EXPECT_LT(seq.mesh.triangles.size(), unmasked.mesh.triangles.size());
    }
}

TEST_F(SlabThreads, FewLayersPerThreadMakeOneSlabEqualToSequential)
{
    KxHandle<VxUniformScalarField3> f = makeField<short>(30, 20, 20, sphere(14, 9.5, 9.5, 7, 100));
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(2); // 30 / 2 = 15 layers: not split
    for (int compact : {0, 1}) {
        const Result seq = run(*f, vxiso::filter::UndefinedValue(*f), compact, 1);
        const Result par = run(*f, vxiso::filter::UndefinedValue(*f), compact, 2);
        EXPECT_EQ(par.slabs, 1u);
        EXPECT_TRUE(sameBytes(par.mesh, seq.mesh)) << "compact " << compact;
    }
}

// Drives the slab body directly with chosen slabs, run from several threads in shuffled order: the
// merge must not depend on how the range was cut or who ran what.
template <template <class, class> class Cubes, class Axis>
Mesh runSlabs(const VxRegScalarField3& f, const std::vector<unsigned long>& cuts, unsigned seed, float s,
              unsigned long long* dropped)
{
    using Accessor = RegField3Accessor<float>;
    using Filter = vxiso::filter::UndefinedValue;
    using Tools = vxiso::detail::ToolsFor<Accessor, Filter>;
    const Accessor accessor = VxIsosurfaceExtractor::uniformAccessor<float>(f);
    const Filter filter(f);
    const Tools tools(accessor, 0.f, filter);
    Cubes<Tools, Axis> cubes(tools, s);
    vxiso::VxParallelIsosurfaceMarchingCubes<Tools, Cubes<Tools, Axis>, Axis> body(tools, cubes, nullptr);
    const unsigned long n[3] = {(unsigned long)tools.nx, (unsigned long)tools.ny, (unsigned long)tools.nz};
    std::vector<tbb::blocked_range3d<unsigned long, unsigned long, unsigned long>> ranges;
    for (std::size_t c = 0; c + 1 < cuts.size(); ++c) {
        unsigned long lo[3] = {0, 0, 0}, hi[3] = {n[0], n[1], n[2]};
        lo[Axis::index] = cuts[c];
        hi[Axis::index] = cuts[c + 1];
        ranges.emplace_back(lo[2], hi[2], lo[1], hi[1], lo[0], hi[0]);
    }
    std::shuffle(ranges.begin(), ranges.end(), std::mt19937(seed));
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t r = t; r < ranges.size(); r += 3) body(ranges[r]);
        });
    for (auto& th : threads) th.join();
    cubes.finishAll();
    Mesh m;
    m.coords.assign(cubes.vertexCoords().begin(), cubes.vertexCoords().end());
    m.triangles.assign(cubes.triangleArray().begin(), cubes.triangleArray().end());
    if (dropped) *dropped = cubes.degenerateCount();
    std::vector<KxVec3i> kept;
    for (const KxVec3i& t : m.triangles)
        if (!vxiso::tools::isDegenerate(t))
            kept.push_back(t);
        else if (dropped)
            ++*dropped;
    m.triangles = kept;
    return m;
}

TEST(ParallelSlabs, AnySetOfSlabsGivesTheSequentialSurface)
{
    KxHandle<VxUniformScalarField3> f = field(1, true);
    const unsigned long ny = (unsigned long)f->getDims().ny;
    const vxiso::filter::UndefinedValue filter(*f);
    const Result seqStd = run(*f, filter, 0, 1);
    const Result seqCC = run(*f, filter, 1, 1);
    const Mesh seqZero = extract(*f, 0.f, 1, 0.f);
    // 1, 2, 3, 7 and 16 slabs, some of them one or two layers thin.
    const std::vector<std::vector<unsigned long>> plans = {
        {0, ny},
        {0, 35, ny},
        {0, 1, 2, ny},
        {0, 9, 10, 20, 33, 41, 60, ny},
        {0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 69, ny},
    };
    for (std::size_t p = 0; p < plans.size(); ++p) {
        SCOPED_TRACE("plan with " + std::to_string(plans[p].size() - 1) + " slabs");
        const Mesh a = runSlabs<vxiso::VxIsosurfaceParallelStandardCubes, vxiso::tools::Yaxis>(
            *f, plans[p], unsigned(p), 0.5f, nullptr);
        EXPECT_EQ(a.coords.size(), seqStd.mesh.coords.size());
        EXPECT_EQ(triangleSet(a), triangleSet(seqStd.mesh));
        unsigned long long dropped = 0;
        const Mesh b = runSlabs<vxiso::VxIsosurfaceParallelCompactCubes, vxiso::tools::Yaxis>(
            *f, plans[p], unsigned(p), 0.5f, &dropped);
        EXPECT_EQ(referencedVertices(b), allVertices(seqCC.mesh));
        EXPECT_EQ(triangleSet(b), triangleSet(seqCC.mesh));
        EXPECT_EQ(dropped, seqCC.dropped);
        const Mesh c = runSlabs<vxiso::VxIsosurfaceParallelCompactCubes, vxiso::tools::Yaxis>(
            *f, plans[p], unsigned(p), 0.f, nullptr);
        EXPECT_EQ(triangleSet(c), triangleSet(seqZero));
    }
}

TEST(ParallelSlabs, RepeatedRunsAreByteIdentical)
{
    KxHandle<VxUniformScalarField3> f =
        makeField<unsigned char>(90, 40, 36, torus(45, 19.5, 17.5, 14, 5, 10, 100));
    const vxiso::filter::UndefinedValue filter(*f);
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(4);
    for (int compact : {0, 1}) {
        const Result first = run(*f, filter, compact, 0, 100.f);
        EXPECT_GT(first.slabs, 1u);
        for (int again = 1; again < 20; ++again)
            ASSERT_TRUE(sameBytes(run(*f, filter, compact, 0, 100.f).mesh, first.mesh))
                << "compact " << compact;
    }
    VxIsosurfaceExtractor::setHardwareThreadsForSlabs(0);
}

namespace {

// Records what the extractor shows the user.
class RecordingProgress : public KxProgressInterface
{
public:
    void startWorking(const QString& text) override
    {
        this->text = text;
        started = true;
    }
    void setProgressValue(float v) override { values.push_back(v); }
    void stopWorking() override { stopped = true; }

    QString text;
    bool started = false, stopped = false;
    std::vector<float> values;
};

} // namespace

TEST(ExtractorFrontEnd, ProgressStartsAtZeroNeverDecreasesAndEndsAtOne)
{
    // Large enough for the 250 ms polls to forward values on the way, on both paths.
    KxHandle<VxUniformScalarField3> f = makeField<float>(240, 240, 240, [](double x, double y, double z) {
        return std::sin(x * 0.3) * std::cos(y * 0.3) + std::sin(y * 0.3) * std::cos(z * 0.3) +
               std::sin(z * 0.3) * std::cos(x * 0.3);
    });
    for (int64_t cores : {1, 2}) {
        oivInit();
        KxHandle<SoTriSurface> s = new SoTriSurface;
        RecordingProgress progress;
        VxIsosurfaceExtractor x(f, s, &progress);
        x.compact = 1;
        x.numberOfCores = cores;
        x.compute();
        EXPECT_TRUE(progress.started && progress.stopped);
        EXPECT_EQ(progress.text, "Computing Isosurface...");
        ASSERT_GE(progress.values.size(), 2u);
        EXPECT_EQ(progress.values.front(), 0.f);
        EXPECT_EQ(progress.values.back(), 1.f);
        EXPECT_TRUE(std::is_sorted(progress.values.begin(), progress.values.end())) << "cores " << cores;
        EXPECT_GT(s->getNumTriangles(), 0);
    }
}

TEST(ExtractorFrontEnd, SplitAxisIsTheLongestWithTiesToXThenY)
{
    EXPECT_EQ(VxIsosurfaceExtractor::splitAxis(10, 10, 10), 0);
    EXPECT_EQ(VxIsosurfaceExtractor::splitAxis(9, 10, 10), 1);
    EXPECT_EQ(VxIsosurfaceExtractor::splitAxis(9, 9, 10), 2);
    EXPECT_EQ(VxIsosurfaceExtractor::splitAxis(11, 10, 11), 0);
}

TEST(ExtractorFrontEnd, EmptyResultLeavesAnEmptySurfaceAndUnknownCubesComputeNothing)
{
    KxHandle<VxUniformScalarField3> f = makeField<float>(20, 20, 20, sphere(9.5, 9.5, 9.5, 6));
    for (int64_t cores : {1, 2})
        for (int compact : {0, 1, 7}) {
            oivInit();
            KxHandle<SoTriSurface> s = new SoTriSurface;
            s->coords.setValues(0, 3, std::vector<SbVec3f>(3, SbVec3f(1, 2, 3)).data()); // an old surface
            s->triangles.setValue(SbVec3i32(0, 1, 2));
            VxIsosurfaceExtractor x(f, s, nullptr);
            x.isoValue = compact == 7 ? 0.f : 100.f; // no surface at 100; cubes policy 7 does not exist
            x.compact = compact;
            x.numberOfCores = cores;
            x.compute();
            EXPECT_EQ(s->getNumTriangles(), 0);
            EXPECT_EQ(s->coords.getNum(), 0);
            EXPECT_EQ(s->normals.getNum(), 0);
        }
}
