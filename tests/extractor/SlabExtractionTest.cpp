// The slab engine of processes that each hold a part of a volume, played here in one process: the
// parts joined as the ranks join them must give the arrays of the threaded extractor cut into the
// same slabs, and a part must read nothing outside the nodes it holds.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/VxSlabExtraction.h>

#include <kx/KxException.h>
#include <kx/KxHandle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using namespace vxtest;

namespace {

struct Arrays
{
    std::vector<KxVec3f> coords, normals;
    std::vector<KxVec3i> triangles;
};

template <class T> bool sameBytes(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

Arrays threaded(const VxRegScalarField3& field, int compact, int slabs, float iso)
{
    VxIsosurfaceExtractor x(&field, nullptr, nullptr);
    x.isoValue = iso;
    x.compact = compact;
    x.numberOfCores = 2;
    x.slabCount = slabs;
    x.compute();
    EXPECT_EQ(x.getSlabCount(), std::size_t(slabs));
    const KxDArray<KxVec3f> c = x.takeCoords(), n = x.takeNormals();
    const KxDArray<KxVec3i> t = x.takeTriangles();
    return {{c.begin(), c.end()}, {n.begin(), n.end()}, {t.begin(), t.end()}};
}

// What a rank holds: its slabs' nodes and one layer more on each side, copied out of the field so
// that a read past them finds the guard values instead of the field's.
struct Part
{
    std::vector<VxSlabExtraction::Slab> slabs;
    std::vector<char> values;
    std::unique_ptr<VxSlabExtraction> extraction;
    uint64_t firstVertex = 0;
};

Arrays ranks(const VxRegScalarField3& field, int compact, int slabs, int count, float iso)
{
    const KxDim3l& d = field.getDims();
    const int axis = VxIsosurfaceExtractor::splitAxis(d.nx, d.ny, d.nz);
    const uint64_t n = uint64_t(d[axis]);
    const auto all = VxSlabExtraction::evenSlabs(0, n - 1, uint64_t(slabs), n);
    const KxBox3f box = field.getBoundingBox();
    const int size = int(field.primType().size());
    std::vector<Part> parts(static_cast<std::size_t>(count));
    uint64_t vertices = 0;
    for (int r = 0; r < count; ++r) {
        Part& p = parts[std::size_t(r)];
        p.slabs.assign(all.begin() + r * slabs / count, all.begin() + (r + 1) * slabs / count);
        VxVolumeWindow w;
        w.type = field.primType();
        w.dims = w.stored = KxVec3i(int(d.nx), int(d.ny), int(d.nz));
        const int lo = std::max(int(p.slabs.front().begin) - 1, 0);
        const int hi = std::min(int(p.slabs.back().end) + 1, int(n) - 1);
        w.first[axis] = lo;
        w.stored[axis] = hi - lo + 1;
        p.values.assign(std::size_t(w.stored.x) * w.stored.y * w.stored.z * std::size_t(size), char(0x7f));
        const char* from = static_cast<const char*>(field.lattice().dataPtr());
        for (int k = 0; k < w.stored.z; ++k)
            for (int j = 0; j < w.stored.y; ++j)
                std::memcpy(&p.values[(std::size_t(k) * w.stored.y + j) * w.stored.x * std::size_t(size)],
                            from + ((std::size_t(k + w.first.z) * d.ny + std::size_t(j + w.first.y)) * d.nx +
                                    std::size_t(w.first.x)) *
                                       std::size_t(size),
                            std::size_t(w.stored.x) * std::size_t(size));
        w.values = p.values.data();
        w.origin = box.getMin();
        w.voxelSize =
            KxVec3f((box.xmax - box.xmin) / float(d.nx - 1), (box.ymax - box.ymin) / float(d.ny - 1),
                    (box.zmax - box.zmin) / float(d.nz - 1));
        w.gradientSpacing = w.voxelSize;
        w.hasUndefined = field.hasUndefinedValue();
        w.undefinedValue = field.getUndefinedValue();
        p.extraction = VxSlabExtraction::create(w, axis, compact == 1, iso, 0.5f);
        p.extraction->run(p.slabs, nullptr);
        p.firstVertex = vertices;
        vertices += p.extraction->vertexCount();
    }
    // Each rank's table up, the folds back down, in the order the ranks make them.
    for (int r = 1; r < count; ++r) {
        Part &below = parts[std::size_t(r - 1)], &p = parts[std::size_t(r)];
        auto folds = p.extraction->joinBelow(below.extraction->topFaceTable(int64_t(below.firstVertex)),
                                             -int64_t(p.firstVertex));
        for (auto& f : folds) f.vertex += int64_t(p.firstVertex);
        below.extraction->addFolds(folds, int64_t(below.firstVertex));
    }
    Arrays out;
    for (Part& p : parts) {
        p.extraction->finish();
        const auto& c = p.extraction->coords();
        const auto& nv = p.extraction->normals();
        out.coords.insert(out.coords.end(), c.begin(), c.end());
        out.normals.insert(out.normals.end(), nv.begin(), nv.end());
        for (const KxVec3i& t : p.extraction->triangles()) {
            const int32_t b = int32_t(p.firstVertex);
            out.triangles.emplace_back(t.x + b, t.y + b, t.z + b);
        }
    }
    return out;
}

// Waves with noise along every axis, with undefined nodes scattered in.
template <class T> KxHandle<VxRegScalarField3> waves(int nx, int ny, int nz)
{
    std::mt19937 rng(5);
    KxHandle<VxRegScalarField3> f(makeField<T>(nx, ny, nz, [&](double x, double y, double z) {
        return 50 + 40 * std::sin(0.5 * x) * std::cos(0.4 * y) + 30 * std::sin(0.35 * z) +
               std::uniform_real_distribution<>(-3, 3)(rng);
    }));
    for (int i = 0; i < 200; ++i)
        static_cast<T*>(f->lattice().dataPtr())[rng() % uint32_t(f->getDims().count())] = T(7);
    f->setUndefinedValue(7.0);
    return f;
}

} // namespace

// Both cubes, split along x and z, on 1 to 4 parts: the threaded extractor's arrays, bit for bit.
TEST(SlabExtraction, PartsJoinedAsRanksGiveTheThreadedArrays)
{
    const KxHandle<VxRegScalarField3> fields[] = {waves<float>(17, 13, 41), waves<short>(38, 15, 12)};
    for (const auto& field : fields)
        for (int compact : {0, 1}) {
            const Arrays want = threaded(*field, compact, 6, 52.f);
            ASSERT_GT(want.triangles.size(), 500u);
            for (int count : {1, 2, 3, 4}) {
                SCOPED_TRACE("compact " + std::to_string(compact) + ", " + std::to_string(count) + " parts");
                const Arrays got = ranks(*field, compact, 6, count, 52.f);
                EXPECT_TRUE(sameBytes(got.coords, want.coords));
                EXPECT_TRUE(sameBytes(got.normals, want.normals));
                EXPECT_TRUE(sameBytes(got.triangles, want.triangles));
            }
        }
}

// A count that the cell layers cannot give is refused by the threaded path too.
TEST(SlabExtraction, SlabCountsBeyondTheCellLayersAreRefused)
{
    const KxHandle<VxRegScalarField3> field = waves<float>(9, 8, 7);
    VxIsosurfaceExtractor x(field.get(), nullptr, nullptr);
    x.numberOfCores = 2;
    x.slabCount = 9;
    EXPECT_THROW(x.compute(), KxException);
    x.slabCount = 8;
    EXPECT_NO_THROW(x.compute());
    EXPECT_EQ(x.getSlabCount(), 8u);
}
