#pragma once
// Definitions of the extractor's traversal stages, included by the instantiation units only, which
// also include the filters they instantiate for (vxiso/VxIsosurfaceFilter.h). Everything of the
// host that the stages need comes through the front end: accessors from the field, arrays to the
// surface.
#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceMarchingCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <chrono>
#include <type_traits>

namespace vxiso::detail {

template <class Accessor> struct IntersectionOf
{
    using type = tools::ComputeIntersection<Accessor>;
};
template <> struct IntersectionOf<tools::CurvField3Accessor>
{
    using type = tools::ComputeIntersectionWithoutNormal<tools::CurvField3Accessor>;
};

template <class Accessor, class Filter>
using ToolsFor = tools::VxIsosurfaceTools<Accessor, tools::ComputeIndexScanline<Accessor>,
                                          typename IntersectionOf<Accessor>::type, Filter>;

// The accessor of a field, as the front end builds it.
template <class Accessor> Accessor accessorOf(const VxRegScalarField3& field)
{
    if constexpr (std::is_same<Accessor, tools::CurvField3Accessor>::value)
        return VxIsosurfaceExtractor::curvilinearAccessor(field);
    else
        return VxIsosurfaceExtractor::uniformAccessor<typename Accessor::ValueType>(field);
}

template <class CubesType> CubesType makeCubes(float snapFraction)
{
    if constexpr (std::is_constructible<CubesType, float>::value)
        return CubesType(snapFraction);
    else
        return CubesType();
}

} // namespace vxiso::detail

template <class Accessor, template <class> class Cubes, class Filter>
void VxIsosurfaceExtractor::doComputeRegScalarField3(const Filter& filter)
{
    using Tools = vxiso::detail::ToolsFor<Accessor, Filter>;
    const Accessor accessor = vxiso::detail::accessorOf<Accessor>(*m_field);
    const Tools tools(accessor, isoValue, filter);
    Cubes<Tools> cubes = vxiso::detail::makeCubes<Cubes<Tools>>(snapFraction);
    vxiso::VxIsosurfaceMarchingCubes<Tools, Cubes<Tools>> marchingCubes(tools, cubes);

    const auto start = std::chrono::steady_clock::now();
    marchingCubes.computeBox(KxBox3i(0, tools.nx, 0, tools.ny, 0, tools.nz), &m_workerProgress);
    cubes.finish();
    m_elapsedTime = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m_degenerateCount += cubes.degenerateCount();
    m_slabCount = 1;
    handOver(cubes.triangleArray(), cubes.vertexCoords(), cubes.vertexNormals(), Cubes<Tools>::snapsVertices);
}

template <class Accessor, template <class, class> class Cubes, class Filter, class Axis>
void VxIsosurfaceExtractor::computeParallel(const Filter& filter)
{
    using Tools = vxiso::detail::ToolsFor<Accessor, Filter>;
    using Emitter = Cubes<Tools, Axis>;
    const Accessor accessor = vxiso::detail::accessorOf<Accessor>(*m_field);
    const Tools tools(accessor, isoValue, filter);
    Emitter cubes(tools, snapFraction);

    const auto start = std::chrono::steady_clock::now();
    const unsigned long n[3] = {(unsigned long)tools.nx, (unsigned long)tools.ny, (unsigned long)tools.nz};
    const unsigned long extent = n[Axis::index];
    vxiso::SlabProgress progress(&m_workerProgress, int64_t(std::max(extent, 1ul)));
    vxiso::VxParallelIsosurfaceMarchingCubes<Tools, Emitter, Axis> body(tools, cubes, &progress);
    VXISO_HAPPENS_BEFORE(cubes.sync.handOver());
    if (slabCount > 0) {
        // A fixed number of even slabs, whatever the machine: the cut another run can repeat.
        vxiso::tools::checkSlabCount(extent, uint64_t(slabCount), Axis::index);
        vxiso::runSlabs(body, vxiso::evenSlabs(0, extent - 1, uint64_t(slabCount), extent), Axis::index, n);
    } else {
        // Slabs are at most extent / threads node layers thick; with 16 or fewer layers per thread
        // the field is not split at all.
        unsigned long threads = hardwareThreadsForSlabs();
        if (extent / threads <= 16) threads = 1;
        unsigned long grain[3] = {std::max(n[0], 1ul), std::max(n[1], 1ul), std::max(n[2], 1ul)};
        grain[Axis::index] = std::max(extent / threads, 1ul);
        const tbb::blocked_range3d<unsigned long, unsigned long, unsigned long> range(
            0, n[2], grain[2], 0, n[1], grain[1], 0, n[0], grain[0]);
        tbb::affinity_partitioner partitioner;
        tbb::parallel_for(range, body, partitioner);
    }
    VXISO_HAPPENS_AFTER(cubes.sync.handBack());
    m_slabCount = 0;
    for (const auto& perThread : cubes.store) m_slabCount += perThread.size();
    cubes.finishAll(&progress);

    m_elapsedTime = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m_degenerateCount += cubes.degenerateCount();
    handOver(cubes.triangleArray(), cubes.vertexCoords(), cubes.vertexNormals(), Emitter::snapsVertices);
}

// Explicit instantiations of one accessor for both filters, per cubes policy (and split axis).
#define VXISO_INSTANTIATE_PARALLEL(Accessor, Cubes, Axis)                                                    \
    template void VxIsosurfaceExtractor::computeParallel<Accessor, Cubes, vxiso::filter::UndefinedValue,     \
                                                         Axis>(const vxiso::filter::UndefinedValue&);        \
    template void                                                                                            \
    VxIsosurfaceExtractor::computeParallel<Accessor, Cubes, vxiso::filter::LabelIsoSurfaceFilter, Axis>(     \
        const vxiso::filter::LabelIsoSurfaceFilter&);
#define VXISO_INSTANTIATE_SEQUENTIAL(Accessor)                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<                                           \
        Accessor, vxiso::VxIsosurfaceStandardCubes, vxiso::filter::UndefinedValue>(                          \
        const vxiso::filter::UndefinedValue&);                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<                                           \
        Accessor, vxiso::VxIsosurfaceStandardCubes, vxiso::filter::LabelIsoSurfaceFilter>(                   \
        const vxiso::filter::LabelIsoSurfaceFilter&);
#define VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(Accessor)                                                       \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceCompactCubes, \
                                                                  vxiso::filter::UndefinedValue>(            \
        const vxiso::filter::UndefinedValue&);                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceCompactCubes, \
                                                                  vxiso::filter::LabelIsoSurfaceFilter>(     \
        const vxiso::filter::LabelIsoSurfaceFilter&);

// Every value type of the uniform accessor, through one of the macros above.
#define VXISO_FOR_EACH_UNIFORM_ACCESSOR(Macro, ...)                                                          \
    Macro(vxiso::tools::RegField3Accessor<unsigned char> __VA_OPT__(, ) __VA_ARGS__)                         \
        Macro(vxiso::tools::RegField3Accessor<signed char> __VA_OPT__(, ) __VA_ARGS__)                       \
            Macro(vxiso::tools::RegField3Accessor<unsigned short> __VA_OPT__(, ) __VA_ARGS__)                \
                Macro(vxiso::tools::RegField3Accessor<short> __VA_OPT__(, ) __VA_ARGS__)                     \
                    Macro(vxiso::tools::RegField3Accessor<unsigned int> __VA_OPT__(, ) __VA_ARGS__)          \
                        Macro(vxiso::tools::RegField3Accessor<int> __VA_OPT__(, ) __VA_ARGS__)               \
                            Macro(vxiso::tools::RegField3Accessor<float> __VA_OPT__(, ) __VA_ARGS__)         \
                                Macro(vxiso::tools::RegField3Accessor<double> __VA_OPT__(, ) __VA_ARGS__)
