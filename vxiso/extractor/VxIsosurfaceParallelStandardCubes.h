#pragma once
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <kx/KxDArray.h>

#include <tbb/enumerable_thread_specific.h>

#include <cstring>
#include <vector>

namespace vxiso {

// Vertex policy of the parallel path without sharing, in two passes. The first classifies each slab's
// nodes and counts the vertices it will make and its triangles; with those counts every slab gets its
// ranges of the output, which is allocated once, and the second pass walks the slabs, each writing
// straight into its ranges: no slab-local copy of the surface, no merge copy, and the output's pages
// are first touched by the thread that fills them. A vertex on the layer two slabs share is made by
// the slab below; the slab above leaves that corner open and records where it is, and the finish
// fills it from the slab below's face table. The result has exactly the sequential vertices, in the
// sequential order.
//
// With a node filter the counts are upper bounds (the filter rejects edges the classification
// counts): the slabs then write at provisional offsets and the finish moves them down, in order.
template <class Tools, class Axis> class VxIsosurfaceParallelStandardCubes
{
    using Traits = tools::AxisTraits<Axis>;
    using Self = VxIsosurfaceParallelStandardCubes<Tools, Axis>;

public:
    struct PendingCorner
    {
        int32_t triangle, corner, x, y, z, edge;
    };

    struct ThreadSpecificData
    {
        typename Tools::Index index; // the slab's node classification, kept from the first pass
        KxBox3i box;
        uint64_t vertexRoom = 0, triangleRoom = 0; // counted in the first pass
        uint64_t verticesMade = 0, trianglesMade = 0;
        uint64_t firstLayer = 0;
        uint64_t lastLayer = 0;
        KxDArray<int> faceVertexIds;
        KxDArray<PendingCorner> pendingCorners;
        uint64_t vertexOffset = 0;
        uint64_t triangleOffset = 0;
        const ThreadSpecificData* previous = nullptr;
    };

    VxIsosurfaceParallelStandardCubes(const Tools& tools, float)
        : nx(uint64_t(tools.nx)), ny(uint64_t(tools.ny)), nz(uint64_t(tools.nz)), m_tools(tools),
          m_dims(tools.nx, tools.ny, tools.nz)
    {
    }

    const uint64_t nx, ny, nz;
    tbb::enumerable_thread_specific<std::vector<ThreadSpecificData>> store;
    const SlabSync sync;

    // The parallel traversal classifies the slabs only; finishAll walks them.
    static constexpr bool walksInFinish = true;
    // Normals are stored at unit length as they are made, and every triangle has three distinct
    // vertices (one per cut edge): the hand-over passes over neither array.
    static constexpr bool snapsVertices = false;

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

    // First pass, per slab: the classification and the room the slab needs. The cut edges in the
    // slab's first plane are the slab below's vertices.
    void classify(const KxBox3i& box, ThreadSpecificData& d) const
    {
        d.box = box;
        if (!tools::hasCells(box)) return;
        d.index.beginBox(m_tools.accessor, m_tools.iso, box);
        d.vertexRoom = d.index.countCutEdges();
        if (d.firstLayer != 0) d.vertexRoom -= d.index.countCutEdgesInPlane(Axis::index, int(d.firstLayer));
        d.triangleRoom = d.index.countTriangles();
    }

    void beginBox(const Tools&, const KxBox3i&, ThreadSpecificData&) const {}
    void reserve(uint64_t, uint64_t, ThreadSpecificData&) const {}

    int addNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell, int edge,
                ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c != 0 && c == box.min(Axis::index) && Traits::isFirstPlaneEdge(edge))
            return -1; // the slab below's
        KxVec3f p, n;
        Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const uint64_t at = d.vertexOffset + d.verticesMade;
        m_coordsOut[at] = p;
        m_normalsOut[at] = tools::unitNormal(n);
        return int(d.verticesMade++);
    }

    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i& cell, int edge, int k,
                    ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c < m_dims[Axis::index] - 1 && uint64_t(c) + 1 == d.lastLayer && Traits::isEndPlaneEdge(edge))
            d.faceVertexIds[std::size_t(Traits::edgePlace(cell, edge, m_dims))] = k;
    }

    // Corners are written as output numbers at the slab's offset; open corners stay -1.
    void addTriangle(const Tools&, const KxVec3i& cell, const int* edges, const KxVec3i& t,
                     ThreadSpecificData& d) const
    {
        const int32_t index = int32_t(d.trianglesMade++);
        const int32_t offset = int32_t(d.vertexOffset);
        m_trianglesOut[d.triangleOffset + uint64_t(index)] =
            KxVec3i(t.x < 0 ? t.x : t.x + offset, t.y < 0 ? t.y : t.y + offset, t.z < 0 ? t.z : t.z + offset);
        if (d.firstLayer == 0 || uint64_t(cell[Axis::index]) != d.firstLayer) return;
        for (int corner = 0; corner < 3; ++corner)
            if (t[corner] == -1)
                d.pendingCorners.push_back({index, corner, cell.x, cell.y, cell.z, edges[corner]});
    }

    // After the first pass: ranges for the slabs in layer order, the output allocated once, the
    // slabs walked into it, and the open corners filled from below. When the lowest slab begins on a
    // layer it shares with a slab that ran elsewhere (another process), its open corners stay -1
    // until fillFromBelow.
    void finishAll(SlabProgress* progress = nullptr)
    {
        uint64_t vertices = 0, triangles = 0;
        std::vector<ThreadSpecificData*> slabs = orderSlabs<ThreadSpecificData>(
            store, [](const ThreadSpecificData& r) { return r.vertexRoom; },
            [](const ThreadSpecificData& r) { return r.triangleRoom; }, vertices, triangles);
        tools::checkSurfaceSize(vertices, triangles);
        m_coords.resize(vertices);
        m_normals.resize(vertices);
        m_triangles.resize(triangles);
        m_coordsOut = m_coords.data();
        m_normalsOut = m_normals.data();
        m_trianglesOut = m_triangles.data();
        forEachSlab(slabs, [this, progress](ThreadSpecificData& d) {
            VxIsosurfaceMarchingCubes<Tools, Self> walk(m_tools, *this, d.index);
            walk.walkBox(d.box, d, progress ? progress->interruption() : nullptr);
            d.index = typename Tools::Index(); // the classification's memory, no longer needed
            if (progress) progress->slabDone(ownedLayers(d));
        });
        uint64_t vertexEnd = 0, triangleEnd = 0;
        for (ThreadSpecificData* d : slabs) {
            closeSlab(*d, vertexEnd, triangleEnd);
            if (d->previous)
                fillOpenCorners(*d, d->previous->faceVertexIds.data(), int64_t(d->previous->vertexOffset));
        }
        m_coords.resize(vertexEnd);
        m_normals.resize(vertexEnd);
        m_triangles.resize(triangleEnd);
        m_slabs = std::move(slabs);
    }

    // The lowest slab's open corners, from the face table of the slab below it that ran elsewhere;
    // a corner becomes vertexOffset + the table's entry (vertexOffset may be negative: numbers below
    // this output's first vertex).
    void fillFromBelow(const int* faceVertexIds, int64_t vertexOffset)
    {
        m_trianglesOut = m_triangles.data();
        if (!m_slabs.empty()) fillOpenCorners(*m_slabs.front(), faceVertexIds, vertexOffset);
    }

    // The highest slab's end-layer face table with its vertices numbered from base on; -1 where
    // the slab made no vertex. What the slab above, running elsewhere, fills its corners from.
    std::vector<int32_t> topFaceTable(int64_t base) const
    {
        std::vector<int32_t> table;
        if (m_slabs.empty()) return table;
        const ThreadSpecificData& top = *m_slabs.back();
        table.assign(top.faceVertexIds.begin(), top.faceVertexIds.end());
        for (int32_t& id : table)
            if (id != -1) id = int32_t(base + int64_t(top.vertexOffset) + id);
        return table;
    }

private:
    // The layers a slab owns: all it reads but the last, which is the next slab's first, if any.
    int64_t ownedLayers(const ThreadSpecificData& d) const
    {
        const bool top = d.lastLayer + 1 == uint64_t(m_dims[Axis::index]);
        return int64_t(d.lastLayer - d.firstLayer) + (top ? 1 : 0);
    }

    // Moves a slab down to the end of the slabs before it (only a filter leaves room between them),
    // then points its open corners at the slab below's vertices, which have their final numbers.
    void closeSlab(ThreadSpecificData& d, uint64_t& vertexEnd, uint64_t& triangleEnd)
    {
        KxVec3i* tri = m_trianglesOut + triangleEnd;
        if (vertexEnd != d.vertexOffset) {
            std::memmove(m_coordsOut + vertexEnd, m_coordsOut + d.vertexOffset,
                         d.verticesMade * sizeof(KxVec3f));
            std::memmove(m_normalsOut + vertexEnd, m_normalsOut + d.vertexOffset,
                         d.verticesMade * sizeof(KxVec3f));
            const int32_t shift = int32_t(d.vertexOffset - vertexEnd);
            for (uint64_t t = 0; t < d.trianglesMade; ++t) {
                const KxVec3i& in = m_trianglesOut[d.triangleOffset + t];
                tri[t] = KxVec3i(in.x < 0 ? in.x : in.x - shift, in.y < 0 ? in.y : in.y - shift,
                                 in.z < 0 ? in.z : in.z - shift);
            }
        } else if (triangleEnd != d.triangleOffset) {
            std::memmove(tri, m_trianglesOut + d.triangleOffset, d.trianglesMade * sizeof(KxVec3i));
        }
        d.vertexOffset = vertexEnd;
        d.triangleOffset = triangleEnd;
        vertexEnd += d.verticesMade;
        triangleEnd += d.trianglesMade;
    }

    // Points a slab's open corners at the vertices of the slab below, whose numbers start at offset.
    void fillOpenCorners(const ThreadSpecificData& d, const int* belowIds, int64_t offset)
    {
        KxVec3i* tri = m_trianglesOut + d.triangleOffset;
        for (const PendingCorner& r : d.pendingCorners) {
            const KxVec3i cell(r.x, r.y, r.z);
            tri[r.triangle][r.corner] =
                int32_t(offset + belowIds[std::size_t(Traits::edgePlace(cell, r.edge, m_dims))]);
        }
    }

    const Tools& m_tools;
    KxVec3i m_dims;
    KxDArray<KxVec3f> m_coords;
    KxDArray<KxVec3f> m_normals;
    KxDArray<KxVec3i> m_triangles;
    // The output's blocks, written by the slabs' walks at disjoint ranges.
    KxVec3f* m_coordsOut = nullptr;
    KxVec3f* m_normalsOut = nullptr;
    KxVec3i* m_trianglesOut = nullptr;
    // The slabs in layer order, once finished.
    std::vector<ThreadSpecificData*> m_slabs;
};

} // namespace vxiso
