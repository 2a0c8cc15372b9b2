#pragma once
#include <vxiso/extractor/VxIsosurfaceTables.h>

#include <kx/KxVec3.h>

#include <cstdint>

// The split axes of the parallel traversal, and what the slab decomposition along one needs to know
// about a cell's edges and the boundary planes between slabs, derived at compile time from the node
// and edge tables.

namespace vxiso::tools {

// Split axes; each names its block of the boundary offset tables.
struct Xaxis
{
    static constexpr int index = 0;
};
struct Yaxis
{
    static constexpr int index = 1;
};
struct Zaxis
{
    static constexpr int index = 2;
};

template <class Axis> struct AxisTraits
{
    static constexpr int s = Axis::index;
    // In-plane axes (u, v), taken cyclically: X (y, z), Y (z, x), Z (x, y).
    static constexpr int u = (s + 1) % 3;
    static constexpr int v = (s + 2) % 3;

    static constexpr int offset(int edge, int end, int axis)
    {
        return tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][end]][axis];
    }
    static constexpr unsigned maskOf(int side)
    {
        unsigned m = 0;
        for (int e = 1; e <= 12; ++e)
            if (offset(e, 0, s) == side && offset(e, 1, s) == side) m |= 1u << e;
        return m;
    }
    static constexpr unsigned alongMask()
    {
        unsigned m = 0;
        for (int e = 1; e <= 12; ++e)
            if (offset(e, 0, s) != offset(e, 1, s)) m |= 1u << e;
        return m;
    }
    // Edges on the cell's face at its lower / upper side along the axis, and edges along the axis.
    static constexpr unsigned firstPlaneEdges = maskOf(0);
    static constexpr unsigned endPlaneEdges = maskOf(1);
    static constexpr unsigned alongAxisEdges = alongMask();

    static bool isFirstPlaneEdge(int e) { return (firstPlaneEdges >> e) & 1u; }
    static bool isEndPlaneEdge(int e) { return (endPlaneEdges >> e) & 1u; }
    static bool isAlongAxis(int e) { return (alongAxisEdges >> e) & 1u; }

    // Node counts of the two other axes in x, y, z order (the face table is (2a - 1)(2b - 1)).
    static int64_t a(const KxVec3i& n) { return s == 0 ? n.y : n.x; }
    static int64_t b(const KxVec3i& n) { return s == 2 ? n.y : n.z; }

    // Face-table place of edge e of the cell with lower corner c: rows of edges along u and along v.
    static int64_t edgePlace(const KxVec3i& c, int e, const KxVec3i& n)
    {
        const int* d = tables::g_edgeOffsets[s][e];
        return (2 * int64_t(c[v]) + d[1]) * n[u] + (c[u] + d[0]);
    }
    // Place in the doubled node-and-edge grid: edges at their midpoint, axis edges at their node.
    static int64_t doubledPlace(const KxVec3i& c, int e, const KxVec3i& n)
    {
        const int* d = tables::g_ccEdgeOffsets[s][e];
        return (2 * int64_t(c[v]) + d[1]) * (2 * int64_t(n[u]) - 1) + (2 * int64_t(c[u]) + d[0]);
    }
    // Place of a node (in-plane coordinates of node p) in the doubled grid.
    static int64_t nodePlace(const KxVec3i& p, const KxVec3i& n)
    {
        return 2 * int64_t(p[v]) * (2 * int64_t(n[u]) - 1) + 2 * int64_t(p[u]);
    }
};

static_assert(AxisTraits<Xaxis>::firstPlaneEdges == ((1u << 4) | (1u << 8) | (1u << 9) | (1u << 11)),
              "X first");
static_assert(AxisTraits<Xaxis>::endPlaneEdges == ((1u << 2) | (1u << 6) | (1u << 10) | (1u << 12)), "X end");
static_assert(AxisTraits<Yaxis>::firstPlaneEdges == ((1u << 1) | (1u << 5) | (1u << 9) | (1u << 10)),
              "Y first");
static_assert(AxisTraits<Yaxis>::endPlaneEdges == ((1u << 3) | (1u << 7) | (1u << 11) | (1u << 12)), "Y end");
static_assert(AxisTraits<Zaxis>::firstPlaneEdges == ((1u << 1) | (1u << 2) | (1u << 3) | (1u << 4)),
              "Z first");
static_assert(AxisTraits<Zaxis>::endPlaneEdges == ((1u << 5) | (1u << 6) | (1u << 7) | (1u << 8)), "Z end");
static_assert(AxisTraits<Zaxis>::alongAxisEdges == ((1u << 9) | (1u << 10) | (1u << 11) | (1u << 12)),
              "Z along");

} // namespace vxiso::tools
