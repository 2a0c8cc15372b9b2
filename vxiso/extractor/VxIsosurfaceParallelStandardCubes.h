#pragma once
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <kx/KxDArray.h>

#include <tbb/enumerable_thread_specific.h>

#include <cstring>
#include <vector>

namespace vxiso {

// Vertex policy of the parallel path without sharing. A vertex on the layer two slabs share is made
// by the slab below; the slab above leaves that corner open and records where it is, and the merge
// fills it from the slab below's face table. The result has exactly the sequential vertices.
template <class Tools, class Axis> class VxIsosurfaceParallelStandardCubes
{
    using Traits = tools::AxisTraits<Axis>;

public:
    struct PendingCorner
    {
        int32_t triangle, corner, x, y, z, edge;
    };

    struct ThreadSpecificData
    {
        KxDArray<KxVec3i> triangles;
        KxDArray<KxVec3f> coords;
        KxDArray<KxVec3f> normals;
        uint64_t firstLayer = 0;
        uint64_t lastLayer = 0;
        KxDArray<int> faceVertexIds;
        KxDArray<PendingCorner> pendingCorners;
        uint64_t vertexOffset = 0;
        uint64_t triangleOffset = 0;
        const ThreadSpecificData* previous = nullptr;
    };

    VxIsosurfaceParallelStandardCubes(const Tools& tools, float)
        : nx(uint64_t(tools.nx)), ny(uint64_t(tools.ny)), nz(uint64_t(tools.nz)),
          m_dims(tools.nx, tools.ny, tools.nz)
    {
    }

    const uint64_t nx, ny, nz;
    tbb::enumerable_thread_specific<std::vector<ThreadSpecificData>> store;
    const SlabSync sync;

    // Normals are stored at unit length as they are made: one pass over the vertices less.
    static constexpr bool normalsAreUnit = true;

    KxDArray<KxVec3f>& vertexCoords() { return m_coords; }
    KxDArray<KxVec3f>& vertexNormals() { return m_normals; }
    KxDArray<KxVec3i>& triangleArray() { return m_triangles; }
    uint64_t degenerateCount() const { return 0; }

    // Slab start: the face table, sized (2a - 1)(2b - 1); compared against n on purpose, so every
    // slab, the last included, carries one.
    void prepare(ThreadSpecificData& d) const
    {
        if (d.lastLayer != uint64_t(m_dims[Axis::index]))
            d.faceVertexIds.resize(std::size_t((2 * Traits::a(m_dims) - 1) * (2 * Traits::b(m_dims) - 1)),
                                   -1);
    }

    void beginBox(const Tools&, const KxBox3i&, ThreadSpecificData&) const {}
    void reserve(uint64_t vertices, uint64_t triangles, ThreadSpecificData& d) const
    {
        d.coords.reserve(vertices);
        d.normals.reserve(vertices);
        d.triangles.reserve(triangles);
    }

    int addNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell, int edge,
                ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c != 0 && c == box.min(Axis::index) && Traits::isFirstPlaneEdge(edge))
            return -1; // the slab below's
        KxVec3f p, n;
        Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const int index = int(d.coords.size());
        d.coords.push_back(p);
        d.normals.push_back(tools::unitNormal(n));
        return index;
    }

    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i& cell, int edge, int k,
                    ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c < m_dims[Axis::index] - 1 && uint64_t(c) + 1 == d.lastLayer && Traits::isEndPlaneEdge(edge))
            d.faceVertexIds[std::size_t(Traits::edgePlace(cell, edge, m_dims))] = k;
    }

    void addTriangle(const Tools&, const KxVec3i& cell, const int* edges, const KxVec3i& t,
                     ThreadSpecificData& d) const
    {
        const int32_t index = int32_t(d.triangles.size());
        d.triangles.push_back(t);
        if (d.firstLayer == 0 || uint64_t(cell[Axis::index]) != d.firstLayer) return;
        for (int corner = 0; corner < 3; ++corner)
            if (t[corner] == -1)
                d.pendingCorners.push_back({index, corner, cell.x, cell.y, cell.z, edges[corner]});
    }

    // After all slabs: concatenate them in layer order and fill the open corners from below.
    void finishAll()
    {
        uint64_t vertices = 0, triangles = 0;
        std::vector<ThreadSpecificData*> slabs = orderSlabs<ThreadSpecificData>(
            store, [](const ThreadSpecificData& r) { return r.coords.size(); }, vertices, triangles);
        tools::checkSurfaceSize(vertices, triangles);
        m_coords.resize(vertices);
        m_normals.resize(vertices);
        m_triangles.resize(triangles);
        forEachSlab(slabs, [this](ThreadSpecificData& d) { placeSlab(d); });
    }

private:
    // Writes one slab into its own ranges of the output and fills its open corners from the slab
    // below.
    void placeSlab(const ThreadSpecificData& d)
    {
        if (!d.coords.empty()) {
            std::memcpy(&m_coords[d.vertexOffset], d.coords.data(), d.coords.size() * sizeof(KxVec3f));
            std::memcpy(&m_normals[d.vertexOffset], d.normals.data(), d.normals.size() * sizeof(KxVec3f));
        }
        const int32_t offset = int32_t(d.vertexOffset);
        KxVec3i* out = m_triangles.data() + d.triangleOffset;
        for (std::size_t t = 0; t < d.triangles.size(); ++t)
            out[t] = KxVec3i(d.triangles[t].x + offset, d.triangles[t].y + offset, d.triangles[t].z + offset);
        for (const PendingCorner& r : d.pendingCorners) {
            const KxVec3i cell(r.x, r.y, r.z);
            out[r.triangle][r.corner] =
                int32_t(d.previous->vertexOffset) +
                d.previous->faceVertexIds[std::size_t(Traits::edgePlace(cell, r.edge, m_dims))];
        }
    }

    KxVec3i m_dims;
    KxDArray<KxVec3f> m_coords;
    KxDArray<KxVec3f> m_normals;
    KxDArray<KxVec3i> m_triangles;
};

} // namespace vxiso
