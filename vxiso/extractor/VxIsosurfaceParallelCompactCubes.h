#pragma once
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <kx/KxDArray.h>

#include <tbb/enumerable_thread_specific.h>

#include <cstring>
#include <utility>
#include <vector>

namespace vxiso::types {

// Output of the parallel compact merge: sums of positions and normals and their counts per vertex.
struct AccumulatedNodes
{
    KxDArray<KxVec3f> coords;
    KxDArray<KxVec3f> normals;
    KxDArray<unsigned long> counts;
};

struct TriangleNode
{
    int32_t triangle, corner;
};
struct CellEdge
{
    int32_t x, y, z, edge;
};

} // namespace vxiso::types

namespace vxiso {

// Vertex policy of the parallel path with sharing ("compactify"). Each slab snaps and merges in a
// record of its own; vertices on the layer two slabs share belong to the slab below. The merge points
// the upper slab's boundary corners at them and folds its own contributions to shared node vertices
// into them, so a node vertex ends as the mean of all intersections gathered at it.
template <class Tools, class Axis> class VxIsosurfaceParallelCompactCubes
{
    using Traits = tools::AxisTraits<Axis>;

public:
    enum EdgeIntersection
    {
        INSIDE = 0,
        FIRST_NODE = 1,
        SECOND_NODE = 2
    };
    // A triangle corner and the cell edge it lies on (a plain pair, so that arrays can hold it).
    struct CornerRecord
    {
        types::TriangleNode first;
        types::CellEdge second;
    };
    static constexpr uint64_t NO_VERTEX = ~uint64_t(0);

    struct ThreadSpecificData
    {
        KxDArray<KxVec3i> triangles;
        types::Nodes nodes;
        int32_t currentLayer = -1;
        KxDArray<uint64_t> lowerLayer, upperLayer;
        uint64_t droppedTriangles = 0;
        uint64_t firstLayer = 0;
        uint64_t lastLayer = 0;
        KxDArray<int> faceVertexIds;
        KxDArray<CornerRecord> takenCorners;
        KxDArray<CornerRecord> sharedCorners;
        uint64_t vertexOffset = 0;
        uint64_t triangleOffset = 0;
        const ThreadSpecificData* previous = nullptr;
    };

    VxIsosurfaceParallelCompactCubes(const Tools& tools, float snapFraction)
        : nx(uint64_t(tools.nx)), ny(uint64_t(tools.ny)), nz(uint64_t(tools.nz)), snapFraction(snapFraction),
          m_dims(tools.nx, tools.ny, tools.nz)
    {
    }

    const uint64_t nx, ny, nz;
    // An intersection this close to an end node, as a fraction of the edge, snaps onto the node.
    const float snapFraction;
    tbb::enumerable_thread_specific<std::vector<ThreadSpecificData>> store;
    const SlabSync sync;

    // Each slab is walked by the parallel traversal itself.
    static constexpr bool walksInFinish = false;
    // Vertices are merged by snapping: normals are means of sums, made unit at the hand-over, and a
    // triangle whose corners snapped together is dropped there.
    static constexpr bool snapsVertices = true;
    // No vertex is recorded for the edges a cell takes from its neighbours.
    static constexpr bool recordsEdges = false;
    // Triangles go one by one: degenerate ones are dropped.
    static constexpr bool addsCaseTriangles = false;

    KxDArray<KxVec3f>& vertexCoords() { return m_out.coords; }
    KxDArray<KxVec3f>& vertexNormals() { return m_out.normals; }
    KxDArray<KxVec3i>& triangleArray() { return m_triangles; }
    uint64_t degenerateCount() const { return m_dropped; }

    void prepare(ThreadSpecificData& d) const
    {
        d.lowerLayer.resize(nx * ny, NO_VERTEX);
        d.upperLayer.resize(nx * ny, NO_VERTEX);
        d.currentLayer = -1;
        d.droppedTriangles = 0;
        if (d.lastLayer != uint64_t(m_dims[Axis::index]))
            d.faceVertexIds.resize(std::size_t((2 * Traits::a(m_dims) - 1) * (2 * Traits::b(m_dims) - 1)),
                                   -1);
    }

    void beginBox(const Tools&, const KxBox3i&, ThreadSpecificData&) const {}
    void reserve(uint64_t vertices, uint64_t triangles, ThreadSpecificData& d) const
    {
        d.nodes.coords.reserve(vertices);
        d.nodes.normals.reserve(vertices);
        d.nodes.counts.reserve(vertices);
        d.triangles.reserve(triangles);
    }

    int addNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell, int edge,
                ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c != 0 && c == box.min(Axis::index) && Traits::isFirstPlaneEdge(edge))
            return -1; // the slab below's

        if (cell.z == d.currentLayer + 1) {
            d.lowerLayer.swap(d.upperLayer);
            d.upperLayer.fill(NO_VERTEX);
        } else if (cell.z != d.currentLayer) {
            d.lowerLayer.fill(NO_VERTEX);
            d.upperLayer.fill(NO_VERTEX);
        }
        d.currentLayer = cell.z;

        KxVec3f p, n;
        const float t = Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const EdgeIntersection placement = placementOf(t);
        int k;
        if (placement == INSIDE) {
            k = d.nodes.push_back(p, n);
        } else {
            const int* off =
                tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][placement == FIRST_NODE ? 0 : 1]];
            KxDArray<uint64_t>& layer = off[2] == 0 ? d.lowerLayer : d.upperLayer;
            uint64_t& entry = layer[std::size_t(cell.y + off[1]) * nx + std::size_t(cell.x + off[0])];
            if (entry != NO_VERTEX) {
                d.nodes.accumulate(entry, p, n);
                k = int(entry);
            } else {
                entry = d.nodes.size();
                k = d.nodes.push_back(p, n);
            }
        }
        recordEndPlane(cell, edge, k, placement, d);
        return k;
    }

    // A vertex on edge 6, 7 or 12 of a cell with a neighbour below on every axis: as any other.
    int addOwnNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell, int edge,
                   ThreadSpecificData& d) const
    {
        return addNode(tools, box, cell, edge, d);
    }

    // Face-table entries are written where a vertex is made: every cell sharing an end-plane edge, or
    // an axis edge snapped onto the end plane, lies in the slab's last cell layer.
    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i&, int, int, ThreadSpecificData&) const {}

    void addTriangle(const Tools& tools, const KxVec3i& cell, const int* edges, const KxVec3i& t,
                     ThreadSpecificData& d) const
    {
        if ((t.x == t.y && t.x != -1) || (t.y == t.z && t.y != -1) || (t.x == t.z && t.x != -1)) {
            ++d.droppedTriangles;
            return;
        }
        const int32_t index = int32_t(d.triangles.size());
        d.triangles.push_back(t);
        const int c = cell[Axis::index];
        if (c == 0 || uint64_t(c) != d.firstLayer) return;
        for (int corner = 0; corner < 3; ++corner) {
            const CornerRecord r{{index, corner}, {cell.x, cell.y, cell.z, edges[corner]}};
            if (t[corner] == -1)
                d.takenCorners.push_back(r);
            else if (Traits::isAlongAxis(edges[corner]) &&
                     placementOnEdge(tools, cell, edges[corner]) == FIRST_NODE)
                d.sharedCorners.push_back(r);
        }
    }

    // A slab's contribution to a vertex of the slab below, when that slab's output is elsewhere.
    struct Fold
    {
        int64_t vertex;
        KxVec3f coords, normals;
        uint64_t count;
    };

    // The slabs have reported their progress as they were walked.
    void finishAll(SlabProgress* = nullptr)
    {
        joinSlabs();
        averageVertices();
    }

    // The merge up to the sums: every slab copied to the output and joined to the slab below it.
    // When the lowest slab begins on a layer it shares with a slab that ran elsewhere, its boundary
    // corners wait for joinFromBelow.
    void joinSlabs()
    {
        uint64_t vertices = 0, triangles = 0;
        std::vector<ThreadSpecificData*> slabs = orderSlabs<ThreadSpecificData>(
            store, [](const ThreadSpecificData& r) { return r.nodes.size(); },
            [](const ThreadSpecificData& r) { return r.triangles.size(); }, vertices, triangles);
        tools::checkSurfaceSize(vertices, triangles);
        m_dropped = 0;
        for (const ThreadSpecificData* d : slabs) m_dropped += d->droppedTriangles;
        m_out.coords.resize(vertices);
        m_out.normals.resize(vertices);
        m_out.counts.resize(vertices);
        m_triangles.resize(triangles);
        // Fixing adds into vertices that copying has written: the two passes must not overlap.
        forEachSlab(slabs, [this](ThreadSpecificData& d) { copySlab(d); });
        forEachSlab(slabs, [this](ThreadSpecificData& d) {
            if (!d.previous) return;
            joinSlab(d, d.previous->faceVertexIds.data(), int64_t(d.previous->vertexOffset),
                     [this](int64_t g, const KxVec3f& p, const KxVec3f& n, uint64_t c) {
                         addInto(std::size_t(g), p, n, c);
                     });
        });
        m_slabs = std::move(slabs);
    }

    // Joins the lowest slab to the slab below it that ran elsewhere: corners become vertexOffset +
    // the face table's entries (vertexOffset may be negative), and what the slab snapped onto those
    // vertices comes back as folds, in the order the slab below must add them.
    std::vector<Fold> joinFromBelow(const int* faceVertexIds, int64_t vertexOffset)
    {
        std::vector<Fold> folds;
        if (m_slabs.empty()) return folds;
        joinSlab(*m_slabs.front(), faceVertexIds, vertexOffset,
                 [&](int64_t g, const KxVec3f& p, const KxVec3f& n, uint64_t c) {
                     folds.push_back({g, p, n, c});
                 });
        return folds;
    }

    // Adds the slab above's folds into this output's vertices; vertex numbers start at base.
    void addFolds(const std::vector<Fold>& folds, int64_t base)
    {
        for (const Fold& f : folds) addInto(std::size_t(f.vertex - base), f.coords, f.normals, f.count);
    }

    // The highest slab's end-layer table (doubled grid) with its vertices numbered from base on.
    std::vector<int32_t> topFaceTable(int64_t base) const { return numberedFaceTable(m_slabs, base); }

    // Sums to means: a merged vertex becomes the mean of the intersections gathered at its node.
    void averageVertices()
    {
        for (std::size_t v = 0; v < m_out.coords.size(); ++v) {
            const float count = float(m_out.counts[v]);
            m_out.coords[v] =
                KxVec3f(m_out.coords[v].x / count, m_out.coords[v].y / count, m_out.coords[v].z / count);
            m_out.normals[v] =
                KxVec3f(m_out.normals[v].x / count, m_out.normals[v].y / count, m_out.normals[v].z / count);
        }
    }

private:
    EdgeIntersection placementOf(float t) const
    {
        return t <= snapFraction ? FIRST_NODE : t >= 1.f - snapFraction ? SECOND_NODE : INSIDE;
    }

    // The placement a vertex got when it was made; recomputed exactly for vertices handed on by a
    // neighbouring cell.
    EdgeIntersection placementOnEdge(const Tools& tools, const KxVec3i& cell, int edge) const
    {
        KxVec3i a, b;
        KxVec3f p;
        return placementOf(tools::interpolateEdge(tools.accessor, tools.iso, cell, edge, a, b, p));
    }

    void recordEndPlane(const KxVec3i& cell, int edge, int k, EdgeIntersection placement,
                        ThreadSpecificData& d) const
    {
        const int c = cell[Axis::index];
        if (c >= m_dims[Axis::index] - 1 || uint64_t(c) + 1 != d.lastLayer) return;
        const bool endPlane = Traits::isEndPlaneEdge(edge);
        if (endPlane) d.faceVertexIds[std::size_t(Traits::doubledPlace(cell, edge, m_dims))] = k;
        if ((endPlane && placement != INSIDE) || (Traits::isAlongAxis(edge) && placement == SECOND_NODE)) {
            KxVec3i a, b;
            tools::edgeNodes(cell, edge, a, b);
            d.faceVertexIds[std::size_t(Traits::nodePlace(placement == FIRST_NODE ? a : b, m_dims))] = k;
        }
    }

    // Writes one slab into its own ranges of the output.
    void copySlab(const ThreadSpecificData& d)
    {
        const std::size_t n = d.nodes.size();
        if (n) {
            std::memcpy(&m_out.coords[d.vertexOffset], d.nodes.coords.data(), n * sizeof(KxVec3f));
            std::memcpy(&m_out.normals[d.vertexOffset], d.nodes.normals.data(), n * sizeof(KxVec3f));
            for (std::size_t v = 0; v < n; ++v)
                m_out.counts[d.vertexOffset + v] = (unsigned long)d.nodes.counts[v];
        }
        const int32_t offset = int32_t(d.vertexOffset);
        KxVec3i* out = m_triangles.data() + d.triangleOffset;
        for (std::size_t t = 0; t < d.triangles.size(); ++t)
            out[t] = KxVec3i(d.triangles[t].x + offset, d.triangles[t].y + offset, d.triangles[t].z + offset);
    }

    void addInto(std::size_t g, const KxVec3f& p, const KxVec3f& n, uint64_t c)
    {
        m_out.coords[g] += p;
        m_out.normals[g] += n;
        m_out.counts[g] += (unsigned long)c;
    }

    // Points the slab's corners on its first plane at the vertices of the slab below (numbered from
    // belowOffset on), handing what it snapped onto shared nodes to fold(vertex, sums, count).
    template <class FoldInto>
    void joinSlab(ThreadSpecificData& d, const int* belowIds, int64_t belowOffset, FoldInto fold)
    {
        KxVec3i* out = m_triangles.data() + d.triangleOffset;
        for (const CornerRecord& r : d.takenCorners) {
            const KxVec3i cell(r.second.x, r.second.y, r.second.z);
            const int id = belowIds[std::size_t(Traits::doubledPlace(cell, r.second.edge, m_dims))];
            out[r.first.triangle][r.first.corner] = int32_t(belowOffset + id);
        }
        for (const CornerRecord& r : d.sharedCorners) {
            const KxVec3i cell(r.second.x, r.second.y, r.second.z);
            const int id = belowIds[std::size_t(Traits::doubledPlace(cell, r.second.edge, m_dims))];
            if (id == -1) continue; // the slab below has no vertex there: this slab's stays
            int32_t& corner = out[r.first.triangle][r.first.corner];
            const std::size_t k = std::size_t(corner - int32_t(d.vertexOffset));
            const int64_t g = belowOffset + id;
            corner = int32_t(g);
            // Fold this slab's contribution in once; later corners on the same vertex add nothing.
            fold(g, d.nodes.coords[k], d.nodes.normals[k], uint64_t(d.nodes.counts[k]));
            d.nodes.coords[k] = KxVec3f();
            d.nodes.normals[k] = KxVec3f();
            d.nodes.counts[k] = 0;
        }
    }

    KxVec3i m_dims;
    types::AccumulatedNodes m_out;
    KxDArray<KxVec3i> m_triangles;
    uint64_t m_dropped = 0;
    // The slabs in layer order, once joined.
    std::vector<ThreadSpecificData*> m_slabs;
};

} // namespace vxiso
