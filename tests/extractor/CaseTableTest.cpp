// The case table is checked against the cube's geometry: what each row must say follows from the
// node and edge layout, computed here independently of the row contents.
#include <vxiso/extractor/VxIsosurfaceByteCaseTable.h>
#include <vxiso/extractor/VxIsosurfaceTables.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

using namespace vxiso::tables;

namespace {

int axisOfEdge(int e)
{
    const int* a = g_nodeCoords[g_edgeEndNodeIds[e][0]];
    const int* b = g_nodeCoords[g_edgeEndNodeIds[e][1]];
    for (int axis = 0; axis < 3; ++axis)
        if (a[axis] != b[axis]) return axis;
    return -1;
}

std::set<int> cutEdgesOf(int c)
{
    std::set<int> cut;
    for (int e = 1; e <= 12; ++e) {
        const bool a = c & (1 << g_edgeEndNodeIds[e][0]);
        const bool b = c & (1 << g_edgeEndNodeIds[e][1]);
        if (a != b) cut.insert(e);
    }
    return cut;
}

struct P
{
    double x, y, z;
};
P midpoint(int e)
{
    const int* a = g_nodeCoords[g_edgeEndNodeIds[e][0]];
    const int* b = g_nodeCoords[g_edgeEndNodeIds[e][1]];
    return {(a[0] + b[0]) / 2.0, (a[1] + b[1]) / 2.0, (a[2] + b[2]) / 2.0};
}

} // namespace

TEST(CaseTable, EdgesRunUpwardAlongOneAxis)
{
    EXPECT_EQ(g_edgeEndNodeIds[0][0], -1);
    std::set<std::pair<int, int>> seen;
    for (int e = 1; e <= 12; ++e) {
        const int axis = axisOfEdge(e);
        ASSERT_GE(axis, 0) << "edge " << e;
        const int* a = g_nodeCoords[g_edgeEndNodeIds[e][0]];
        const int* b = g_nodeCoords[g_edgeEndNodeIds[e][1]];
        int differing = 0;
        for (int k = 0; k < 3; ++k) differing += a[k] != b[k];
        EXPECT_EQ(differing, 1) << "edge " << e << " is not a cube edge";
        EXPECT_LT(a[axis], b[axis]) << "edge " << e << " must run from its lower node";
        EXPECT_TRUE(seen.insert({g_edgeEndNodeIds[e][0], g_edgeEndNodeIds[e][1]}).second);
    }
    // The deliberate order of the vertical edges.
    EXPECT_EQ(g_edgeEndNodeIds[11][0], 3);
    EXPECT_EQ(g_edgeEndNodeIds[12][0], 2);
}

TEST(CaseTable, RowsAgreeWithTheirCaseIndex)
{
    for (int c = 0; c < 256; ++c) {
        const int* row = g_marchingCases[c];
        SCOPED_TRACE("case " + std::to_string(c));
        // Nodes above: exactly the set bits, padded with zeros.
        ASSERT_EQ(row[NODE_COUNT], __builtin_popcount(unsigned(c)));
        std::set<int> nodes;
        for (int n = 0; n < 8; ++n) {
            if (n < row[NODE_COUNT]) {
                ASSERT_GE(row[NODES + n], 1);
                ASSERT_LE(row[NODES + n], 8);
                nodes.insert(row[NODES + n] - 1);
            } else {
                EXPECT_EQ(row[NODES + n], 0);
            }
        }
        std::set<int> expectedNodes;
        for (int n = 0; n < 8; ++n)
            if (c & (1 << n)) expectedNodes.insert(n);
        EXPECT_EQ(nodes, expectedNodes);

        // Cut edges: exactly those whose ends lie on different sides, no repeats, padded.
        std::set<int> edges;
        for (int n = 0; n < 12; ++n) {
            if (n < row[EDGE_COUNT])
                EXPECT_TRUE(edges.insert(row[EDGES + n]).second);
            else
                EXPECT_EQ(row[EDGES + n], 0);
        }
        EXPECT_EQ(edges, cutEdgesOf(c));

        // Triangles use only cut edges, and every cut edge is used.
        ASSERT_LE(row[TRIANGLE_COUNT], 5);
        std::set<int> used;
        for (int t = 0; t < 15; ++t) {
            if (t < 3 * row[TRIANGLE_COUNT]) {
                EXPECT_NE(row[TRIANGLES + t], 0) << "edge 0 referenced";
                used.insert(row[TRIANGLES + t]);
            } else {
                EXPECT_EQ(row[TRIANGLES + t], 0);
            }
        }
        EXPECT_EQ(used, edges);
    }
}

TEST(CaseTable, TrianglesFaceFromAboveTowardBelow)
{
    for (int c = 1; c < 255; ++c) {
        const int* row = g_marchingCases[c];
        for (int t = 0; t < row[TRIANGLE_COUNT]; ++t) {
            const int* e = row + TRIANGLES + 3 * t;
            const P a = midpoint(e[0]), b = midpoint(e[1]), d = midpoint(e[2]);
            const P u{b.x - a.x, b.y - a.y, b.z - a.z}, v{d.x - a.x, d.y - a.y, d.z - a.z};
            const P n{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
            // Each cut edge runs from its node above to its node below; the normal follows them.
            double along = 0;
            for (int k = 0; k < 3; ++k) {
                const int n0 = g_edgeEndNodeIds[e[k]][0], n1 = g_edgeEndNodeIds[e[k]][1];
                const int from = (c & (1 << n0)) ? n0 : n1, to = from == n0 ? n1 : n0;
                const int* pf = g_nodeCoords[from];
                const int* pt = g_nodeCoords[to];
                along += n.x * (pt[0] - pf[0]) + n.y * (pt[1] - pf[1]) + n.z * (pt[2] - pf[2]);
            }
            EXPECT_GT(along, 0) << "case " << c << " triangle " << t;
        }
    }
    // The corner order within a triangle fixes the order in written files: case 1 is 1-4-9.
    const int* one = g_marchingCases[1];
    EXPECT_EQ(std::vector<int>(one + TRIANGLES, one + TRIANGLES + 3), (std::vector<int>{1, 4, 9}));
}

TEST(CaseTable, ByteTableIsIdentical)
{
    for (int c = 0; c < 256; ++c)
        for (int w = 0; w < ROW_LENGTH; ++w) ASSERT_EQ(int(LUT[c][w]), g_marchingCases[c][w]);
}

TEST(CaseTable, ComplementsShareEdgesButNotAlwaysTriangles)
{
    // A row's triangles by their smallest edge first, optionally with the orientation reversed.
    auto triangles = [](int c, bool reversed) {
        const int* row = g_marchingCases[c];
        std::multiset<std::vector<int>> out;
        for (int t = 0; t < row[TRIANGLE_COUNT]; ++t) {
            std::vector<int> tri(row + TRIANGLES + 3 * t, row + TRIANGLES + 3 * t + 3);
            std::rotate(tri.begin(), std::min_element(tri.begin(), tri.end()), tri.end());
            if (reversed) std::swap(tri[1], tri[2]);
            out.insert(tri);
        }
        return out;
    };
    int differing = 0;
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(cutEdgesOf(c), cutEdgesOf(255 - c));
        differing += triangles(c, true) != triangles(255 - c, false);
    }
    EXPECT_EQ(differing, 158);
}

// In-plane axes (u, v) of each split axis, taken cyclically.
static const int kPlaneAxes[3][2] = {{1, 2}, {2, 0}, {0, 1}};

TEST(CaseTable, BoundaryOffsetsFollowFromEdgeGeometry)
{
    for (int split = 0; split < 3; ++split) {
        const int u = kPlaneAxes[split][0], v = kPlaneAxes[split][1];
        EXPECT_EQ(g_edgeOffsets[split][0][0], 0);
        EXPECT_EQ(g_edgeOffsets[split][0][1], 0);
        for (int e = 1; e <= 12; ++e) {
            const int axis = axisOfEdge(e);
            const int* first = g_nodeCoords[g_edgeEndNodeIds[e][0]];
            SCOPED_TRACE("split " + std::to_string(split) + " edge " + std::to_string(e));
            if (axis == split) {
                EXPECT_EQ(g_edgeOffsets[split][e][0], 0);
                EXPECT_EQ(g_edgeOffsets[split][e][1], 0);
            } else {
                EXPECT_EQ(g_edgeOffsets[split][e][0], first[u]);
                EXPECT_EQ(g_edgeOffsets[split][e][1], 2 * first[v] + (axis == v ? 1 : 0));
            }
            // Doubled grid: twice the midpoint, projected onto the plane.
            EXPECT_EQ(g_ccEdgeOffsets[split][e][0], 2 * first[u] + (axis == u ? 1 : 0));
            EXPECT_EQ(g_ccEdgeOffsets[split][e][1], 2 * first[v] + (axis == v ? 1 : 0));
        }
    }
}
