#pragma once
// Definitions of the extractor's templates, included by the instantiation units only.
#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceMarchingCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>

#include <oiv/SoTriSurface.h>

#include <chrono>
#include <cmath>

namespace vxiso {
namespace detail {

template <class Accessor>
struct IntersectionOf
{
    using type = tools::ComputeIntersection<Accessor>;
};
template <>
struct IntersectionOf<tools::CurvField3Accessor>
{
    using type = tools::ComputeIntersectionWithoutNormal<tools::CurvField3Accessor>;
};

template <class Accessor, class Filter>
using ToolsFor = tools::VxIsosurfaceTools<Accessor, tools::ComputeIndexScanline<Accessor>,
                                          typename IntersectionOf<Accessor>::type, Filter>;

template <class CubesType>
CubesType makeCubes(float threshold)
{
    if constexpr (std::is_constructible<CubesType, float>::value)
        return CubesType(threshold);
    else
        return CubesType();
}

} // namespace detail
} // namespace vxiso

template <class Accessor, template <class> class Cubes, class Filter>
void VxIsosurfaceExtractor::doComputeRegScalarField3(const Filter& filter)
{
    using Tools = vxiso::detail::ToolsFor<Accessor, Filter>;
    const Accessor accessor(*m_field);
    const Tools tools(accessor, isoValue, filter);
    Cubes<Tools> cubes = vxiso::detail::makeCubes<Cubes<Tools>>(threshold);
    vxiso::VxIsosurfaceMarchingCubes<Tools, Cubes<Tools>> marchingCubes(tools, cubes);

    const auto start = std::chrono::steady_clock::now();
    marchingCubes.computeBox(KxBox3i(0, tools.nx, 0, tools.ny, 0, tools.nz), &m_workerProgress);
    cubes.finish();
    m_elapsedTime = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m_degenerateCount += cubes.degenerateCount();
    handOver(cubes);
}

template <class CubesType>
void VxIsosurfaceExtractor::handOver(CubesType& cubes)
{
    KxDArray<KxVec3i>& triangles = cubes.triangleArray();
    m_degenerateCount += triangles.removeIf(vxiso::tools::isDegenerate);
    if (!triangles.empty()) {
        triangles.shrinkToFit();
        const int n = int(triangles.size());
        m_surface->adoptTriangles(n, reinterpret_cast<int32_t*>(triangles.release()));
    } else {
        m_surface->triangles.setNum(0);
    }

    KxDArray<KxVec3f>& coords = cubes.vertexCoords();
    KxDArray<KxVec3f>& normals = cubes.vertexNormals();
    if (!coords.empty()) {
        coords.shrinkToFit();
        normals.shrinkToFit();
        // A zero-length normal stays zero rather than becoming NaN.
        for (KxVec3f& v : normals) {
            const float len = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
            if (len > 0.f) v = KxVec3f(v.x / len, v.y / len, v.z / len);
        }
        const int n = int(coords.size());
        m_surface->adoptCoords(n, reinterpret_cast<float*>(coords.release()));
        m_surface->adoptNormals(n, reinterpret_cast<float*>(normals.release()));
    } else {
        m_surface->coords.setNum(0);
        m_surface->normals.setNum(0);
    }
}

// Explicit instantiations of one accessor for both filters and both cubes policies.
#define VXISO_INSTANTIATE_SEQUENTIAL(Accessor)                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceStandardCubes, \
                                                                  vxiso::filter::UndefinedValue>(            \
        const vxiso::filter::UndefinedValue&);                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceStandardCubes, \
                                                                  vxiso::filter::LabelIsoSurfaceFilter>(     \
        const vxiso::filter::LabelIsoSurfaceFilter&);
#define VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(Accessor)                                                       \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceCompactCubes,  \
                                                                  vxiso::filter::UndefinedValue>(            \
        const vxiso::filter::UndefinedValue&);                                                               \
    template void VxIsosurfaceExtractor::doComputeRegScalarField3<Accessor, vxiso::VxIsosurfaceCompactCubes,  \
                                                                  vxiso::filter::LabelIsoSurfaceFilter>(     \
        const vxiso::filter::LabelIsoSurfaceFilter&);
