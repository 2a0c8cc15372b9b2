#pragma once
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <kx/KxDArray.h>

#include <tbb/enumerable_thread_specific.h>

#include <atomic>
#include <cstring>
#include <memory>
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
// Without a node filter the counts are exact, and each slab is walked in chunks of its cell layers
// along z (the walk's outermost loop), which the scheduler hands to whichever thread is free: a
// slab with more surface than its neighbour, or a thread that the machine takes away for a while,
// no longer holds the others up. Chunks number their vertices as the slab's one walk would, so the
// output is the same whatever the chunks; a chunk leaves the cut edges of its first plane open, and
// the finish fills them from the top edges of the chunk below's last layer.
//
// With a node filter the counts are upper bounds (the filter rejects edges the classification
// counts): each slab is one chunk, written at provisional offsets that the finish moves down, in
// order.
template <class Tools, class Axis> class VxIsosurfaceParallelStandardCubes
{
    using Traits = tools::AxisTraits<Axis>;
    using Self = VxIsosurfaceParallelStandardCubes<Tools, Axis>;

public:
    struct PendingCorner
    {
        int32_t triangle, corner, x, y, z, edge;
    };

    struct ThreadSpecificData;

    // A run of a slab's cell layers along z, walked by one thread.
    struct Chunk
    {
        ThreadSpecificData* slab = nullptr;          // set once all slabs are classified
        KxBox3i box;                                 // its node box: the slab's, cut along z
        uint64_t vertexStart = 0, triangleStart = 0; // its first vertex and triangle in the slab's numbering
        uint64_t vertexRoom = 0, triangleRoom = 0;
        uint64_t verticesMade = 0, trianglesMade = 0;
        int64_t layersOwned = 0; // its share of the slab's layers, for progress
        // Set once the output is allocated, so that a cell reaches its ranges without the slab's
        // record: where its vertices and triangles go, the slab's first output vertex, and the
        // cell layer whose cells write the slab's face table.
        KxVec3f* coordsOut = nullptr;
        KxVec3f* normalsOut = nullptr;
        KxVec3i* trianglesOut = nullptr;
        int32_t vertexOffset = 0;
        int recordLayer = 0;
        KxDArray<PendingCorner> slabCorners;  // open corners that the slab below fills
        KxDArray<PendingCorner> chunkCorners; // open corners that the chunk below fills
        std::vector<int> lastLayerTopEdges;   // for the chunk above, until it has taken them
    };

    struct ThreadSpecificData
    {
        typename Tools::Index index; // the slab's node classification, kept from the first pass
        KxBox3i box;
        std::vector<Chunk> chunks;
        // Per chunk above another: how many of the two have been walked. The second to finish
        // fills the upper one's open corners and frees the lower one's last layer, so that a layer
        // is kept while its neighbour runs, not until every chunk of the volume is done.
        std::unique_ptr<std::atomic<int>[]> walkedBelow;
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

    // Chunks a slab is walked in, without a filter; each gets at least minChunkLayers cell layers.
    static constexpr int chunksPerSlab = 4;
    static constexpr int minChunkLayers = 4;

    // First pass, per slab: the classification, the slab's chunks and the room each needs. The cut
    // edges in the slab's first plane are the slab below's vertices, those in a chunk's first z
    // plane the chunk below's.
    void classify(const KxBox3i& box, ThreadSpecificData& d) const
    {
        d.box = box;
        if (!tools::hasCells(box)) return;
        d.index.beginBox(m_tools.accessor, m_tools.iso, box);
        const int cellLayers = box.zmax - 1 - box.zmin;
        const int chunks =
            m_tools.filter.active() ? 1 : std::clamp(cellLayers / minChunkLayers, 1, chunksPerSlab);
        d.chunks.resize(std::size_t(chunks));
        const int64_t owned = ownedLayers(d);
        for (int c = 0; c < chunks; ++c) {
            Chunk& ch = d.chunks[std::size_t(c)];
            const int k0 = box.zmin + int(int64_t(cellLayers) * c / chunks);
            const int k1 = box.zmin + int(int64_t(cellLayers) * (c + 1) / chunks); // its last node slice
            ch.box = KxBox3i(box.xmin, box.xmax, box.ymin, box.ymax, k0, k1 + 1);
            ch.layersOwned = owned * (c + 1) / chunks - owned * c / chunks;
            ch.vertexStart = d.vertexRoom;
            ch.triangleStart = d.triangleRoom;
            ch.vertexRoom = d.index.countCutEdges(k0, k1);
            if (c > 0) ch.vertexRoom -= d.index.countCutEdgesInPlane(2, k0);
            // The slab's first plane: across z it is the first chunk's first plane; across x or y it
            // crosses every chunk, meeting a chunk's first plane on a line that was subtracted above.
            if (d.firstLayer != 0 && (Axis::index != 2 || c == 0)) {
                ch.vertexRoom -= d.index.countCutEdgesInPlane(Axis::index, int(d.firstLayer), k0, k1);
                if (Axis::index != 2 && c > 0)
                    ch.vertexRoom += d.index.countCutEdgesOnLine(Axis::index, int(d.firstLayer), k0);
            }
            ch.triangleRoom = d.index.countTriangles(k0, k1);
            d.vertexRoom += ch.vertexRoom;
            d.triangleRoom += ch.triangleRoom;
        }
    }

    void beginBox(const Tools&, const KxBox3i&, ThreadSpecificData&) const {}
    void reserve(uint64_t, uint64_t, ThreadSpecificData&) const {}

    // Vertices are numbered within the slab; a chunk's numbers follow those of the chunks below it.
    [[gnu::always_inline]] int addNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell, int edge,
                                       Chunk& ch) const
    {
        const ThreadSpecificData& d = *ch.slab;
        if (onSlabsFirstPlane(d, cell, edge)) return -1;   // the slab below's
        if (onChunksFirstPlane(ch, cell, edge)) return -1; // the chunk below's
        return addOwnNode(tools, box, cell, edge, ch);
    }

    // A vertex on edge 6, 7 or 12 of a cell with a neighbour below on every axis: such an edge
    // lies on neither the slab's nor the chunk's first plane.
    [[gnu::always_inline]] int addOwnNode(const Tools& tools, const KxBox3i&, const KxVec3i& cell, int edge,
                                          Chunk& ch) const
    {
        KxVec3f p, n;
        Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const uint64_t made = ch.verticesMade++;
        ch.coordsOut[made] = p;
        ch.normalsOut[made] = tools::unitNormal(n);
        return int(ch.vertexStart + made);
    }

    // The face table is written by the cells of the slab's last layer, whatever made their edges.
    static constexpr bool recordsEdges = true;
    bool recordsEdgesOf(const KxVec3i& cell, const Chunk& ch) const
    {
        return cell[Axis::index] == ch.recordLayer;
    }

    // Open edges are left to the chunk below, which writes the slab's face table there itself.
    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i& cell, int edge, int k, Chunk& ch) const
    {
        const int c = cell[Axis::index];
        if (k >= 0 && c < m_dims[Axis::index] - 1 && c == ch.recordLayer && Traits::isEndPlaneEdge(edge))
            ch.slab->faceVertexIds[std::size_t(Traits::edgePlace(cell, edge, m_dims))] = k;
    }

    // All triangles of a cell's case at once (no filter). A cell with a neighbour below on every
    // axis (inner) has no open corner; while the chunk's range has room, four of its triangles are
    // written whatever their count, fixed work instead of a loop whose length the case decides,
    // and the writes past the count are overwritten by the next cell.
    static constexpr bool addsCaseTriangles = true;
    [[gnu::always_inline]] void addCaseTriangles(const Tools& tools, const KxVec3i& cell, const int* row,
                                                 const int* edge, bool inner, Chunk& ch) const
    {
        const int n = row[tables::TRIANGLE_COUNT];
        const int* e = row + tables::TRIANGLES;
        if (__builtin_expect(inner && n <= 4 && ch.trianglesMade + 4 <= ch.triangleRoom, 1)) {
            KxVec3i* out = ch.trianglesOut + ch.trianglesMade;
            const int32_t offset = ch.vertexOffset;
            for (int t = 0; t < 4; ++t, e += 3)
                out[t] = KxVec3i(edge[e[0]] + offset, edge[e[1]] + offset, edge[e[2]] + offset);
            ch.trianglesMade += uint64_t(n);
            return;
        }
        for (int t = 0; t < n; ++t, e += 3)
            addTriangle(tools, cell, e, KxVec3i(edge[e[0]], edge[e[1]], edge[e[2]]), ch);
    }

    // Corners are written as output numbers at the slab's offset; open corners stay -1 and are
    // recorded for the finish.
    void addTriangle(const Tools&, const KxVec3i& cell, const int* edges, const KxVec3i& t, Chunk& ch) const
    {
        const ThreadSpecificData& d = *ch.slab;
        const int32_t index = int32_t(ch.triangleStart + ch.trianglesMade);
        const int32_t offset = ch.vertexOffset;
        ch.trianglesOut[ch.trianglesMade++] =
            KxVec3i(t.x < 0 ? t.x : t.x + offset, t.y < 0 ? t.y : t.y + offset, t.z < 0 ? t.z : t.z + offset);
        if (t.x >= 0 && t.y >= 0 && t.z >= 0) return;
        for (int corner = 0; corner < 3; ++corner)
            if (t[corner] == -1) {
                const PendingCorner r{index, corner, cell.x, cell.y, cell.z, edges[corner]};
                if (onSlabsFirstPlane(d, cell, edges[corner]))
                    ch.slabCorners.push_back(r);
                else
                    ch.chunkCorners.push_back(r);
            }
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
        std::vector<Chunk*> chunks;
        for (ThreadSpecificData* d : slabs) {
            d->walkedBelow = std::make_unique<std::atomic<int>[]>(d->chunks.size());
            for (Chunk& ch : d->chunks) {
                ch.slab = d; // records have stopped moving: the slabs are all made
                ch.coordsOut = m_coordsOut + d->vertexOffset + ch.vertexStart;
                ch.normalsOut = m_normalsOut + d->vertexOffset + ch.vertexStart;
                ch.trianglesOut = m_trianglesOut + d->triangleOffset + ch.triangleStart;
                ch.vertexOffset = int32_t(d->vertexOffset);
                ch.recordLayer = int(d->lastLayer) - 1;
                chunks.push_back(&ch);
            }
        }
        forEachSlab(chunks, [this, progress](Chunk& ch) {
            ThreadSpecificData& d = *ch.slab;
            VxIsosurfaceMarchingCubes<Tools, Self> walk(m_tools, *this, d.index);
            walk.walkBox(ch.box, ch, progress ? progress->interruption() : nullptr);
            const std::size_t c = std::size_t(&ch - d.chunks.data());
            if (c + 1 < d.chunks.size()) {
                ch.lastLayerTopEdges = walk.takeLastLayerTopEdges();
                joinWhenBothWalked(d, c + 1);
            }
            if (c > 0) joinWhenBothWalked(d, c);
            if (progress) progress->slabDone(ch.layersOwned);
        });
        for (ThreadSpecificData* d : slabs) joinChunks(*d);
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
    std::vector<int32_t> topFaceTable(int64_t base) const { return numberedFaceTable(m_slabs, base); }

private:
    // An edge on the slab's first plane, in a slab above another: the slab below makes its vertex.
    static bool onSlabsFirstPlane(const ThreadSpecificData& d, const KxVec3i& cell, int edge)
    {
        return d.firstLayer != 0 && uint64_t(cell[Axis::index]) == d.firstLayer &&
               Traits::isFirstPlaneEdge(edge);
    }
    // An edge on the chunk's first z plane, in a chunk above another of its slab.
    static bool onChunksFirstPlane(const Chunk& ch, const KxVec3i& cell, int edge)
    {
        return cell.z == ch.box.zmin && ch.box.zmin != ch.slab->box.zmin &&
               tools::AxisTraits<tools::Zaxis>::isFirstPlaneEdge(edge);
    }

    // Called by chunks c - 1 and c of a slab once walked; the second fills chunk c's open corners on
    // its first z plane from the chunk below (bottom edges 1 to 4 are that cell's top edges 5 to 8)
    // and frees what they were filled from. The counter orders the one's writes before the other's
    // reads.
    void joinWhenBothWalked(ThreadSpecificData& d, std::size_t c)
    {
        if (d.walkedBelow[c].fetch_add(1, std::memory_order_acq_rel) != 1) return;
        Chunk& ch = d.chunks[c];
        std::vector<int>& below = d.chunks[c - 1].lastLayerTopEdges;
        const int cellsX = d.box.xmax - 1 - d.box.xmin;
        for (const PendingCorner& r : ch.chunkCorners) {
            m_trianglesOut[d.triangleOffset + uint64_t(r.triangle)][r.corner] =
                int32_t(d.vertexOffset) + VxIsosurfaceMarchingCubes<Tools, Self>::topEdge(
                                              below, cellsX, r.x - d.box.xmin, r.y - d.box.ymin, r.edge + 4);
        }
        std::vector<int>().swap(below);
        ch.chunkCorners = KxDArray<PendingCorner>();
    }

    // After the walks, per slab: the chunks' open corners on the slab's first plane gathered for
    // the close, and the slab's counts summed. Counts made ahead are exact here: a difference would
    // mean overlapping or lost vertices.
    void joinChunks(ThreadSpecificData& d)
    {
        for (Chunk& ch : d.chunks) {
            if (!m_tools.filter.active() &&
                (ch.verticesMade != ch.vertexRoom || ch.trianglesMade != ch.triangleRoom))
                throw KxException("isosurface: a chunk made other counts than its classification");
            for (const PendingCorner& r : ch.slabCorners) d.pendingCorners.push_back(r);
            d.verticesMade += ch.verticesMade;
            d.trianglesMade += ch.trianglesMade;
        }
        d.chunks.clear();
        d.walkedBelow.reset();
        d.index = typename Tools::Index(); // the classification's memory, no longer needed
    }

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
