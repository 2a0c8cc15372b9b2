#pragma once
#include <kx/KxDArray.h>

#include <cstddef>
#include <cstdint>

class KxProgressInterface;

// The level set of values on the nodes of a tetrahedral mesh, one tetrahedron after the other: a
// node at or above the threshold counts as above it, each cut edge gets one vertex shared by every
// tetrahedron around it, and a tetrahedron with a NaN value carries no surface. Triangles are
// oriented per tetrahedron (see the case table in the unit). Plain arrays in and out, so that the
// module and other callers (the Python module) share it.
struct VxTetraSurface
{
    KxDArray<float> xyz;         // 3 floats a vertex
    KxDArray<int32_t> triangles; // 3 vertex indices a triangle
    int32_t numVertices = 0;
    std::size_t numTriangles = 0;

    // nodes: 3 floats a node; tetras: the 4 node indices of tetrahedron t at tetras[t * stride],
    // each below numNodes; values: one a node. progress, when given, sees the share done, and an
    // interruption it reports stops the run with KxInterrupted.
    static VxTetraSurface extract(const float* nodes, int32_t numNodes, const int32_t* tetras,
                                  std::size_t stride, std::size_t numTetras, const float* values,
                                  float threshold, KxProgressInterface* progress);
};
