#pragma once
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxBox3.h>
#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>

#include <utility>
#include <vector>

namespace vxiso {

// The user data of the sequential path: nothing.
struct NoUserData
{
};

// Where a cell finds the vertex of each edge that a neighbour visited before it has made: one of
// the slots of the cell before it in the row (edges 2, 6, 10, 12 of that cell), of the cell below
// in the row buffer (11, 3, 12, 7), of the cell below in the slice buffer (6, 7), or nowhere. The
// slice holds two edges per cell, as a plane holds two per node; the cell below's edges 5 and 8 are
// edge 7 of the cell before it in y (buffer 4) and edge 6 of the cell before it in x (buffer 5),
// which on the box's first row and column are slots of their own before the first cell. Which
// neighbours exist depends on the cell's place (bit 0: a cell before it in the row, bit 1: a row
// below, bit 2: a slice below), so there is one table per place: a lookup instead of a branch per
// edge, which the order of edges in the cases makes hard to predict.
struct EdgeSource
{
    // buffer: 0 the cell before, 1 the row, 2 the slice, 3 none, 4 and 5 the slice before y and x
    unsigned char buffer, slot;
};

constexpr EdgeSource edgeSource(int place, int e)
{
    const bool cellBefore = place & 1, rowBelow = place & 2, sliceBelow = place & 4;
    constexpr EdgeSource none{3, 0};
    switch (e) {
    case 1:
        return rowBelow ? EdgeSource{1, 1} : sliceBelow ? EdgeSource{4, 1} : none;
    case 2:
        return sliceBelow ? EdgeSource{2, 0} : none;
    case 3:
        return sliceBelow ? EdgeSource{2, 1} : none;
    case 4:
        return cellBefore ? EdgeSource{0, 0} : sliceBelow ? EdgeSource{5, 0} : none;
    case 5:
        return rowBelow ? EdgeSource{1, 3} : none;
    case 8:
        return cellBefore ? EdgeSource{0, 1} : none;
    case 9:
        return cellBefore ? EdgeSource{0, 2} : rowBelow ? EdgeSource{1, 0} : none;
    case 10:
        return rowBelow ? EdgeSource{1, 2} : none;
    case 11:
        return cellBefore ? EdgeSource{0, 3} : none;
    default:
        return none; // edges 6, 7 and 12 are first met by the cell itself
    }
}

struct EdgeSourceTable
{
    EdgeSource at[8][13];
    constexpr EdgeSourceTable() : at{}
    {
        for (int place = 0; place < 8; ++place)
            for (int e = 0; e < 13; ++e) at[place][e] = edgeSource(place, e);
    }
};
inline constexpr EdgeSourceTable g_edgeSources;

// A case's edges split for cells with a neighbour below on every axis: the edges those neighbours
// have made, then the edges the cell makes itself (6, 7 and 12, the only ones on none of its lower
// faces), each part in the case's order. Two loops of known length instead of a test per edge
// whose outcome the case decides.
struct SplitCase
{
    unsigned char shared, made, edges[12];
};

struct SplitCaseTable
{
    SplitCase at[256];
    constexpr SplitCaseTable() : at{}
    {
        for (int c = 0; c < 256; ++c) {
            const int* row = tables::g_marchingCases[c];
            SplitCase& s = at[c];
            int n = 0;
            for (int pass = 0; pass < 2; ++pass)
                for (int i = 0; i < row[tables::EDGE_COUNT]; ++i) {
                    const int e = row[tables::EDGES + i];
                    const bool own = e == 6 || e == 7 || e == 12;
                    if (own != (pass == 1)) continue;
                    s.edges[n++] = (unsigned char)e;
                    (own ? s.made : s.shared)++;
                }
        }
    }
};
inline constexpr SplitCaseTable g_splitCases;

// Walks the cells of a box (i fastest, then j, then k), classifies each cell and emits the
// triangles of its case. Every cut grid edge gets a single vertex index: the indices of edges
// shared with cells already visited are handed on through the previous cell's slots, a row buffer
// and a slice buffer, so the vertex policy (Cubes) is asked only once per edge.
//
// Cubes provides: int addNode(tools, box, cell, edge, userData) for a new vertex (addOwnNode for edges
// 6, 7 and 12 of cells with a neighbour below on every axis); edgeVertex(tools, box, cell, edge,
// index, userData) called once the edge's index is known (on cells with a neighbour below on every
// axis, with recordsEdges false only for the edges they make; with it true, for all their edges
// where recordsEdgesOf(cell, userData) says so; on other cells for every edge); and
// addTriangle(tools, cell, edges, t, userData) for each triangle whose edges all carry vertices (with
// addsCaseTriangles true and no filter, addCaseTriangles(tools, cell, caseRow, edgeVertices, inner,
// userData) for all of a cell's at once, inner telling whether it has a neighbour below on every axis);
// reserve(vertices, triangles, userData) with upper bounds of both, before the first cell.
template <class Tools, class Cubes> class VxIsosurfaceMarchingCubes
{
public:
    // Vertex markers of the edge slots.
    static constexpr int NOT_MADE = -1;
    static constexpr int REJECTED = -2;
    static constexpr int s_notMade = NOT_MADE; // the slot of edges that no neighbour has made

    using Index = typename Tools::Index;

    VxIsosurfaceMarchingCubes(const Tools& tools, Cubes& cubes)
        : m_tools(tools), m_cubes(cubes), m_index(m_ownIndex)
    {
    }
    // A traversal of a box that `classified` has classified already (Index::beginBox), so that the
    // cut edges and triangles of many boxes can be counted before any of them is walked.
    VxIsosurfaceMarchingCubes(const Tools& tools, Cubes& cubes, Index& classified)
        : m_tools(tools), m_cubes(cubes), m_index(classified)
    {
    }

    // Traverses the cells whose lower corner lies in [min, max - 1) per axis of the node box.
    template <class UserData>
    void computeBox(const KxBox3i& box, UserData& userData, KxProgressInterface* progress = nullptr);
    // The traversal of computeBox without the classification, counting and reservation before it.
    template <class UserData>
    void walkBox(const KxBox3i& box, UserData& userData, KxProgressInterface* progress = nullptr);
    void computeBox(const KxBox3i& box, KxProgressInterface* progress = nullptr)
    {
        NoUserData none;
        computeBox(box, none, progress);
    }
    // After a walk: the vertex numbers of the top edges of the cells of the box's last cell layer,
    // read with topEdge; meaningful for edges some surface crosses.
    std::vector<int> takeLastLayerTopEdges()
    {
        std::vector<int>& last = m_prevSlice == m_slices[0].data() ? m_slices[0] : m_slices[1];
        m_bufferCellsX = m_bufferCellsY = -1; // the buffer leaves with the caller
        return std::move(last);
    }
    // Top edge 5, 6, 7 or 8 of cell (i, j) of such a layer, counted from the box's corner; cellsX is
    // the box's cells along x.
    static int topEdge(const std::vector<int>& layer, int cellsX, int i, int j, int edge)
    {
        const std::size_t stride = 2 * std::size_t(cellsX + 1);
        const std::size_t at = stride * std::size_t(j + 1) + 2 * std::size_t(i + 1);
        return edge == 5   ? layer[at - stride + 1]
               : edge == 8 ? layer[at - 2]
                           : layer[at + std::size_t(edge - 6)];
    }

private:
    template <class UserData> void computeRow(const KxBox3i& box, int j, int k, UserData& userData);
    template <class UserData>
    int vertexFor(const KxBox3i& box, const KxVec3i& cell, int edge, const EdgeSource* place,
                  const int* const* sources, UserData& userData);

    void sizeBuffers(int cellsX, int cellsY);

    // The edges that a cell with a neighbour below on every axis takes from them: all but 6, 7, 12.
    using SharedEdges = std::integer_sequence<int, 1, 2, 3, 4, 5, 8, 9, 10, 11>;
    template <int... E>
    [[gnu::always_inline]] void takeSharedEdges(const int* const* sources, std::integer_sequence<int, E...>)
    {
        ((m_edge[E] = sources[g_edgeSources.at[7][E].buffer][g_edgeSources.at[7][E].slot]), ...);
    }

    const Tools& m_tools;
    Cubes& m_cubes;
    Index m_ownIndex;
    Index& m_index;

    int m_edge[13] = {};
    // Edges 2, 6, 10, 12 of the cell just left in the row.
    int m_prevCell[4] = {};
    // Per cell of a row: edges 11, 3, 12, 7; per cell of a slice: edges 6, 7, after a row and a
    // column of slots for the edges 5 and 8 of the box's first row and column.
    std::vector<int> m_rows[2], m_slices[2];
    int* m_prevRow = nullptr;
    int* m_curRow = nullptr;
    int* m_prevSlice = nullptr;
    int* m_curSlice = nullptr;
    int m_rowsDone = 0, m_slicesDone = 0;
    std::size_t m_cursor = 0; // the walk's place in the classification, which walks may share
    int m_bufferCellsX = -1, m_bufferCellsY = -1;
};

template <class Tools, class Cubes>
void VxIsosurfaceMarchingCubes<Tools, Cubes>::sizeBuffers(int cellsX, int cellsY)
{
    if (cellsX != m_bufferCellsX || cellsY != m_bufferCellsY) {
        for (auto& r : m_rows) r.assign(std::size_t(4) * std::size_t(cellsX), NOT_MADE);
        for (auto& s : m_slices)
            s.assign(std::size_t(2) * std::size_t(cellsX + 1) * std::size_t(cellsY + 1), NOT_MADE);
        m_bufferCellsX = cellsX;
        m_bufferCellsY = cellsY;
    }
    m_prevRow = m_rows[0].data();
    m_curRow = m_rows[1].data();
    m_prevSlice = m_slices[0].data();
    m_curSlice = m_slices[1].data();
}

template <class Tools, class Cubes>
template <class UserData>
void VxIsosurfaceMarchingCubes<Tools, Cubes>::computeBox(const KxBox3i& box, UserData& userData,
                                                         KxProgressInterface* progress)
{
    if (!tools::hasCells(box)) return;
    m_index.beginBox(m_tools.accessor, m_tools.iso, box);
    m_cubes.beginBox(m_tools, box, userData);
    // Room for every vertex and triangle up front: no array is copied while it grows.
    const uint64_t vertices = m_index.countCutEdges(), triangles = m_index.countTriangles();
    tools::checkSurfaceSize(vertices, triangles);
    m_cubes.reserve(vertices, triangles, userData);
    walkBox(box, userData, progress);
}

template <class Tools, class Cubes>
template <class UserData>
void VxIsosurfaceMarchingCubes<Tools, Cubes>::walkBox(const KxBox3i& box, UserData& userData,
                                                      KxProgressInterface* progress)
{
    const int cellsX = box.xmax - 1 - box.xmin;
    const int cellsY = box.ymax - 1 - box.ymin;
    const int cellsZ = box.zmax - 1 - box.zmin;
    if (!tools::hasCells(box)) return;

    sizeBuffers(cellsX, cellsY);
    m_slicesDone = 0;

    if (progress) progress->setProgressValue(0.f);
    const float step = 1.f / float(cellsZ);
    constexpr int releaseStep = 16;
    int released = box.zmin + 1;
    for (int k = box.zmin; k < box.zmax - 1; ++k) {
        if (progress) {
            if (progress->wasInterrupted()) throw KxInterrupted();
            progress->setProgressValue(float(m_slicesDone) * step);
        }
        m_rowsDone = 0;
        m_cursor = m_index.sliceOffset(k);
        for (int j = box.ymin; j < box.ymax - 1; ++j) {
            computeRow(box, j, k, userData);
            std::swap(m_prevRow, m_curRow);
            ++m_rowsDone;
        }
        std::swap(m_prevSlice, m_curSlice);
        ++m_slicesDone;
        // The node slices before k + 1 are behind the walk. The box's first one may be the last of a
        // neighbouring box walked elsewhere at the same time, so it is kept.
        if (k + 1 - released >= releaseStep || k + 2 == box.zmax) {
            m_index.releaseSlices(released, k + 1);
            released = k + 1;
        }
    }
    if (progress) progress->setProgressValue(1.f);
}

template <class Tools, class Cubes>
template <class UserData>
void VxIsosurfaceMarchingCubes<Tools, Cubes>::computeRow(const KxBox3i& box, int j, int k, UserData& userData)
{
    using namespace tables;
    const std::size_t sliceStride = 2 * std::size_t(box.xmax - box.xmin);
    const std::size_t sliceBase = sliceStride * std::size_t(m_rowsDone + 1) + 2;
    const bool firstRow = m_rowsDone == 0;
    // What is the same for the whole row, in locals: the cells' stores through int pointers could
    // otherwise change members as far as the compiler knows, which it would then read again.
    const int rowPlace = (m_rowsDone > 0) << 1 | (m_slicesDone > 0) << 2;
    const bool filtered = m_tools.filter.active();
    int* const prevRow = m_prevRow;
    int* const curRow = m_curRow;
    int* const prevSlice = m_prevSlice + sliceBase;
    int* const curSlice = m_curSlice + sliceBase;
    // Empty cells are never visited: their buffer slots stay stale, which is safe because no
    // neighbour asks for an edge that is not cut.
    m_index.forEachCutCellAt(m_cursor, j, [&](int i, unsigned c) {
        const KxVec3i cell(i, j, k);
        if (!m_tools.filter.acceptCell(cell)) return;
        const std::size_t rowPos = 4 * std::size_t(i - box.xmin), slicePos = 2 * std::size_t(i - box.xmin);
        const int* row = g_marchingCases[c];
        const int placeIndex = int(i > box.xmin) | rowPlace;
        const EdgeSource* place = g_edgeSources.at[placeIndex];
        const int* const sources[6] = {m_prevCell,
                                       prevRow + rowPos,
                                       prevSlice + slicePos,
                                       &s_notMade,
                                       prevSlice + slicePos - sliceStride,
                                       prevSlice + slicePos - 2};
        if (placeIndex == 7 && !filtered) {
            // Inside the box every shared edge was made by a neighbour (or left open by one on the
            // box's first plane, which this cell is not on). Every shared edge's slot is copied,
            // cut or not: nine loads instead of a loop whose length the case decides. Uncut edges
            // get stale numbers that no triangle reads.
            takeSharedEdges(sources, SharedEdges{});
            const SplitCase& split = g_splitCases.at[c];
            const unsigned char* e = split.edges;
            bool records = false;
            if constexpr (Cubes::recordsEdges) {
                records = m_cubes.recordsEdgesOf(cell, userData);
                if (records)
                    for (const unsigned char* end = e + split.shared; e != end; ++e)
                        m_cubes.edgeVertex(m_tools, box, cell, *e, m_edge[*e], userData);
            }
            e = split.edges + split.shared;
            for (const unsigned char* end = e + split.made; e != end; ++e) {
                const int v = m_cubes.addOwnNode(m_tools, box, cell, *e, userData);
                m_edge[*e] = v;
                if (!Cubes::recordsEdges || records) m_cubes.edgeVertex(m_tools, box, cell, *e, v, userData);
            }
        } else {
            const int nEdges = row[EDGE_COUNT];
            for (int n = 0; n < nEdges; ++n) {
                const int e = row[EDGES + n];
                m_edge[e] = vertexFor(box, cell, e, place, sources, userData);
            }
        }

        m_prevCell[0] = m_edge[2];
        m_prevCell[1] = m_edge[6];
        m_prevCell[2] = m_edge[10];
        m_prevCell[3] = m_edge[12];
        int* r = curRow + rowPos;
        r[0] = m_edge[11];
        r[1] = m_edge[3];
        r[2] = m_edge[12];
        r[3] = m_edge[7];
        int* s = curSlice + slicePos;
        s[0] = m_edge[6];
        s[1] = m_edge[7];
        if (firstRow) *(s - sliceStride + 1) = m_edge[5];
        if (i == box.xmin) s[-2] = m_edge[8];

        if constexpr (Cubes::addsCaseTriangles) {
            if (!filtered) {
                m_cubes.addCaseTriangles(m_tools, cell, row, m_edge, placeIndex == 7, userData);
                return;
            }
        }
        const int nTriangles = row[TRIANGLE_COUNT];
        for (int t = 0; t < nTriangles; ++t) {
            const int* edges = row + TRIANGLES + 3 * t;
            const KxVec3i tri(m_edge[edges[0]], m_edge[edges[1]], m_edge[edges[2]]);
            if (filtered && (tri.x == REJECTED || tri.y == REJECTED || tri.z == REJECTED)) continue;
            m_cubes.addTriangle(m_tools, cell, edges, tri, userData);
        }
    });
}

// Index of the vertex on edge e of the cell: rejected by the filter, taken from a neighbour that
// has made it already, or new. sources are the cell's six buffers in EdgeSource's order.
template <class Tools, class Cubes>
template <class UserData>
int VxIsosurfaceMarchingCubes<Tools, Cubes>::vertexFor(const KxBox3i& box, const KxVec3i& cell, int e,
                                                       const EdgeSource* place, const int* const* sources,
                                                       UserData& userData)
{
    if (m_tools.filter.active()) {
        KxVec3i a, b;
        tools::edgeNodes(cell, e, a, b);
        if (!m_tools.filter.acceptNode(a) || !m_tools.filter.acceptNode(b)) return REJECTED;
    }
    int v = sources[place[e].buffer][place[e].slot];
    if (v == NOT_MADE) v = m_cubes.addNode(m_tools, box, cell, e, userData);
    m_cubes.edgeVertex(m_tools, box, cell, e, v, userData);
    return v;
}

} // namespace vxiso
