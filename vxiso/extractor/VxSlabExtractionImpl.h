#pragma once
// The engine's slabs behind VxSlabExtraction: the parallel traversal and the emitters' merges of
// the threaded path, run on some of the slabs, with the shared layers at both ends handed over by
// the caller. Included by the instantiation units, which instantiate it for the undefined-value
// filter.
#include <vxiso/VxSlabExtraction.h>
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceParallelCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelStandardCubes.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <memory>
#include <vector>

namespace vxiso::detail {

template <class T, template <class, class> class Cubes, class Filter, class Axis>
class SlabExtractionOf final : public VxSlabExtraction
{
    using Accessor = tools::RegField3Accessor<T>;
    using Tools = tools::VxIsosurfaceTools<Accessor, tools::ComputeIndexScanline<Accessor>,
                                           tools::ComputeIntersection<Accessor>, Filter>;
    using Emitter = Cubes<Tools, Axis>;
    static constexpr bool compact = Emitter::snapsVertices;

public:
    SlabExtractionOf(const VxVolumeWindow& w, float iso, float snapFraction)
        : m_accessor(static_cast<const T*>(w.values), w.dims, w.origin, w.voxelSize, w.gradientSpacing,
                     w.first, w.stored),
          m_filter(w.values, w.type, w.first, w.stored, w.hasUndefined, w.undefinedValue),
          m_tools(m_accessor, iso, m_filter), m_cubes(m_tools, snapFraction)
    {
    }

    void run(const std::vector<Slab>& slabs, KxProgressInterface* sink) override
    {
        std::vector<SlabLayers> layers;
        int64_t owned = 0;
        for (const Slab& s : slabs) {
            layers.push_back({s.begin, s.end});
            owned += int64_t(s.end - s.begin);
        }
        const unsigned long n[3] = {(unsigned long)m_tools.nx, (unsigned long)m_tools.ny,
                                    (unsigned long)m_tools.nz};
        SlabProgress progress(sink, std::max<int64_t>(owned, 1));
        VxParallelIsosurfaceMarchingCubes<Tools, Emitter, Axis> body(m_tools, m_cubes, &progress);
        VXISO_HAPPENS_BEFORE(m_cubes.sync.handOver());
        runSlabs(body, layers, Axis::index, n);
        VXISO_HAPPENS_AFTER(m_cubes.sync.handBack());
        if constexpr (compact)
            m_cubes.joinSlabs();
        else
            m_cubes.finishAll(&progress);
    }

    uint64_t vertexCount() const override { return m_cubes.vertexCoords().size(); }

    std::vector<int32_t> topFaceTable(int64_t base) const override { return m_cubes.topFaceTable(base); }

    std::vector<Fold> joinBelow(const std::vector<int32_t>& table, int64_t base) override
    {
        std::vector<Fold> folds;
        if constexpr (compact) {
            for (const auto& f : m_cubes.joinFromBelow(table.data(), base))
                folds.push_back({f.vertex,
                                 {f.coords.x, f.coords.y, f.coords.z},
                                 {f.normals.x, f.normals.y, f.normals.z},
                                 f.count});
        } else {
            m_cubes.fillFromBelow(table.data(), base);
        }
        return folds;
    }

    void addFolds(const std::vector<Fold>& folds, int64_t base) override
    {
        if constexpr (compact) {
            std::vector<typename Emitter::Fold> in;
            for (const Fold& f : folds)
                in.push_back({f.vertex, KxVec3f(f.coords[0], f.coords[1], f.coords[2]),
                              KxVec3f(f.normals[0], f.normals[1], f.normals[2]), f.count});
            m_cubes.addFolds(in, base);
        }
    }

    // As the threaded path hands a compact surface over: the same steps in the same order.
    void finish() override
    {
        if constexpr (compact) {
            m_cubes.averageVertices();
            m_degenerate = m_cubes.degenerateCount() + m_cubes.triangleArray().removeIf(tools::isDegenerate);
            for (KxVec3f& v : m_cubes.vertexNormals()) v = tools::unitNormal(v);
        }
    }

    const KxDArray<KxVec3f>& coords() const override { return m_cubes.vertexCoords(); }
    const KxDArray<KxVec3f>& normals() const override { return m_cubes.vertexNormals(); }
    const KxDArray<KxVec3i>& triangles() const override { return m_cubes.triangleArray(); }
    uint64_t degenerateCount() const override { return m_degenerate; }

private:
    Accessor m_accessor;
    Filter m_filter;
    Tools m_tools;
    mutable Emitter m_cubes;
    uint64_t m_degenerate = 0;
};

template <class T, template <class, class> class Cubes, class Filter, class Axis>
std::unique_ptr<VxSlabExtraction> makeSlabExtraction(const VxVolumeWindow& window, float iso,
                                                     float snapFraction)
{
    return std::make_unique<SlabExtractionOf<T, Cubes, Filter, Axis>>(window, iso, snapFraction);
}

} // namespace vxiso::detail

// Explicit instantiations of the slab runs of one value type, per cubes policy and split axis.
#define VXISO_INSTANTIATE_SLABS(Accessor, Cubes, Axis)                                                       \
    template std::unique_ptr<VxSlabExtraction> vxiso::detail::makeSlabExtraction<                            \
        typename Accessor::ValueType, Cubes, vxiso::filter::UndefinedValue, Axis>(const VxVolumeWindow&,     \
                                                                                  float, float);
