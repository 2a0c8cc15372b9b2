// What one cell of the traversal rests on. The case table is checked against the cube's geometry
// (what each row must say follows from the node and edge layout, computed here independently of
// the rows); then scan-line classification, intersections, gradients and node filters.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceByteCaseTable.h>
#include <vxiso/extractor/VxIsosurfaceTables.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace vxtest;
using namespace vxiso::tools;
using namespace vxiso::tables;

namespace {

const int* endNode(int e, int end)
{
    return g_nodeCoords[g_edgeEndNodeIds[e][end]];
}

int axisOfEdge(int e)
{
    for (int axis = 0; axis < 3; ++axis)
        if (endNode(e, 0)[axis] != endNode(e, 1)[axis]) return axis;
    return -1;
}

} // namespace

TEST(CaseTable, EdgesAndBoundaryOffsetsFollowFromTheCube)
{
    std::set<std::pair<int, int>> seen;
    for (int e = 1; e <= 12; ++e) {
        SCOPED_TRACE("edge " + std::to_string(e));
        const int axis = axisOfEdge(e);
        const int *a = endNode(e, 0), *b = endNode(e, 1);
        ASSERT_GE(axis, 0);
        // One cube edge, run from its lower node, no two alike.
        EXPECT_EQ((a[0] != b[0]) + (a[1] != b[1]) + (a[2] != b[2]), 1);
        EXPECT_LT(a[axis], b[axis]);
        EXPECT_TRUE(seen.insert({g_edgeEndNodeIds[e][0], g_edgeEndNodeIds[e][1]}).second);
        for (int split = 0; split < 3; ++split) {
            const int u = (split + 1) % 3, v = (split + 2) % 3; // the in-plane axes, cyclic
            EXPECT_EQ(g_edgeOffsets[split][e][0], axis == split ? 0 : a[u]);
            EXPECT_EQ(g_edgeOffsets[split][e][1], axis == split ? 0 : 2 * a[v] + (axis == v));
            // Doubled grid: twice the midpoint, projected onto the plane.
            EXPECT_EQ(g_ccEdgeOffsets[split][e][0], 2 * a[u] + (axis == u));
            EXPECT_EQ(g_ccEdgeOffsets[split][e][1], 2 * a[v] + (axis == v));
        }
    }
    // The deliberate order of the vertical edges.
    EXPECT_EQ(g_edgeEndNodeIds[11][0], 3);
    EXPECT_EQ(g_edgeEndNodeIds[12][0], 2);
}

TEST(CaseTable, EveryRowFollowsFromItsCaseIndex)
{
    // The first n entries of a padded list, sorted, once the padding is checked.
    auto entries = [](const int* p, int n, int width) {
        EXPECT_EQ(std::count(p + n, p + width, 0), width - n);
        std::vector<int> v(p, p + n);
        std::sort(v.begin(), v.end());
        return v;
    };
    // A row's triangles, each from its smallest edge on, optionally reversed.
    auto triangles = [](int c, bool reversed) {
        const int* t = g_marchingCases[c] + TRIANGLES;
        std::multiset<std::vector<int>> out;
        for (int k = 0; k < 3 * g_marchingCases[c][TRIANGLE_COUNT]; k += 3) {
            std::vector<int> tri = {t[k], t[k + (reversed ? 2 : 1)], t[k + (reversed ? 1 : 2)]};
            std::rotate(tri.begin(), std::min_element(tri.begin(), tri.end()), tri.end());
            out.insert(tri);
        }
        return out;
    };
    auto mid = [](int e) { // twice the edge's midpoint
        const int *a = endNode(e, 0), *b = endNode(e, 1);
        return KxVec3f(float(a[0] + b[0]), float(a[1] + b[1]), float(a[2] + b[2]));
    };
    int asymmetric = 0;
    for (int c = 0; c < 256; ++c) {
        SCOPED_TRACE("case " + std::to_string(c));
        const int* row = g_marchingCases[c];
        for (int w = 0; w < ROW_LENGTH; ++w) ASSERT_EQ(int(LUT[c][w]), row[w]) << "byte table, word " << w;
        // Nodes above are the set bits (1-based); cut edges those whose ends lie on different
        // sides, each once; the triangles use exactly the cut edges, at most five of them.
        std::vector<int> above, cut;
        for (int n = 0; n < 8; ++n)
            if (c >> n & 1) above.push_back(n + 1);
        for (int e = 1; e <= 12; ++e)
            if ((c >> g_edgeEndNodeIds[e][0] & 1) != (c >> g_edgeEndNodeIds[e][1] & 1)) cut.push_back(e);
        EXPECT_EQ(entries(row + NODES, row[NODE_COUNT], 8), above);
        EXPECT_EQ(entries(row + EDGES, row[EDGE_COUNT], 12), cut);
        ASSERT_LE(row[TRIANGLE_COUNT], 5);
        std::vector<int> used = entries(row + TRIANGLES, 3 * row[TRIANGLE_COUNT], 15);
        used.erase(std::unique(used.begin(), used.end()), used.end());
        EXPECT_EQ(used, cut);
        // Each triangle faces from the nodes above toward those below: the normal of its edge
        // midpoints has a positive component along every cut edge run from above to below.
        for (int t = 0; t < 3 * row[TRIANGLE_COUNT]; t += 3) {
            const int* e = row + TRIANGLES + t;
            const KxVec3f n = (mid(e[1]) - mid(e[0])).cross(mid(e[2]) - mid(e[0]));
            float along = 0;
            for (int k = 0; k < 3; ++k)
                along += (c >> g_edgeEndNodeIds[e[k]][0] & 1 ? 1.f : -1.f) * n[axisOfEdge(e[k])];
            EXPECT_GT(along, 0.f) << "triangle " << t / 3;
        }
        asymmetric += triangles(c, false) != triangles(255 - c, true);
    }
    // Complements share their cut edges but not always their triangles: the ambiguous faces are
    // resolved one way for both.
    EXPECT_EQ(asymmetric, 158);
    // The corner order within a triangle fixes the order in written files: case 1 is 1-4-9.
    const int* one = g_marchingCases[1];
    EXPECT_EQ(std::vector<int>(one + TRIANGLES, one + TRIANGLES + 3), (std::vector<int>{1, 4, 9}));
}

TEST(Tools, ScanLinesVisitCountAndClassifyExactlyTheCutCellsOfTheBox)
{
    // Rows longer than two 64-bit words, boxes that start inside the grid, a long run of empty
    // cells, nodes equal to the iso value (they count as below).
    std::mt19937 rng(5);
    KxHandle<VxUniformScalarField3> field = makeField<short>(157, 9, 7, [&](double x, double y, double) {
        return x > 60 && x < 130 ? -1.0 : double(int(rng() % 7) - 3 + int(y) % 2);
    });
    const RegField3Accessor<short> acc = VxIsosurfaceExtractor::uniformAccessor<short>(*field);
    auto above = [&](int i, int j, int k) { return acc.value(i, j, k) > 0.f; };
    for (const KxBox3i& box :
         {KxBox3i(0, 157, 0, 9, 0, 7), KxBox3i(3, 129, 1, 8, 2, 7), KxBox3i(63, 66, 0, 2, 0, 2)}) {
        SCOPED_TRACE(::testing::Message() << "box from " << box.xmin << " " << box.ymin << " " << box.zmin);
        ComputeIndexScanline<RegField3Accessor<short>> lines;
        lines.beginBox(acc, 0.f, box);
        // Also over the node slices after the first, as a walk in parts counts them.
        uint64_t edges = 0, triangles = 0, edgesAbove = 0, trianglesAbove = 0;
        for (int k = box.zmin; k < box.zmax; ++k)
            for (int j = box.ymin; j < box.ymax; ++j)
                for (int i = box.xmin; i < box.xmax; ++i) {
                    const uint64_t cut = (i + 1 < box.xmax && above(i, j, k) != above(i + 1, j, k)) +
                                         (j + 1 < box.ymax && above(i, j, k) != above(i, j + 1, k)) +
                                         (k + 1 < box.zmax && above(i, j, k) != above(i, j, k + 1));
                    edges += cut;
                    edgesAbove += k > box.zmin ? cut : 0;
                }
        for (int k = box.zmin; k < box.zmax - 1; ++k) {
            for (int j = box.ymin; j < box.ymax - 1; ++j) {
                std::vector<std::pair<int, unsigned>> visited, expected;
                lines.forEachCutCellAt(lines.sliceOffset(k), j,
                                       [&](int i, unsigned c) { visited.emplace_back(i, c); });
                for (int i = box.xmin; i < box.xmax - 1; ++i) {
                    unsigned c = 0;
                    for (int n = 0; n < 8; ++n) {
                        const int* o = vxiso::tables::g_nodeCoords[n];
                        c |= unsigned(above(i + o[0], j + o[1], k + o[2])) << n;
                    }
                    const unsigned t =
                        unsigned(vxiso::tables::g_marchingCases[c][vxiso::tables::TRIANGLE_COUNT]);
                    triangles += t;
                    trianglesAbove += k > box.zmin ? t : 0;
                    if (c != 0 && c != 255) expected.emplace_back(i, c);
                }
                ASSERT_EQ(visited, expected) << "row " << j << " slice " << k;
            }
        }
        EXPECT_EQ(lines.countCutEdges(), edges);
        EXPECT_EQ(lines.countTriangles(), triangles);
        EXPECT_EQ(lines.countCutEdges(box.zmin + 1, box.zmax - 1), edgesAbove);
        EXPECT_EQ(lines.countTriangles(box.zmin + 1, box.zmax - 1), trianglesAbove);
    }
}

TEST(Tools, GradientsAndIntersections)
{
    // f = x^2 on spacing 0.5: central differences are exact for a parabola, one-sided ones are not.
    KxHandle<VxUniformScalarField3> parabola = makeField<double>(
        5, 3, 3, [](double x, double, double) { return x * x; }, 0.5f);
    const RegField3Accessor<double> p = VxIsosurfaceExtractor::uniformAccessor<double>(*parabola);
    EXPECT_EQ(p.gradient(2, 1, 1), KxVec3f(2.f, 0.f, 0.f));       // 2x at x = 1
    EXPECT_FLOAT_EQ(p.gradient(0, 1, 1).x, (0.25f - 0.f) / 0.5f); // forward, one step
    EXPECT_FLOAT_EQ(p.gradient(4, 1, 1).x, (4.f - 2.25f) / 0.5f); // backward, one step
    // Edge 3 runs from node 3 (0,1,0) to node 2 (1,1,0), here of values 2 and 6; the normal is
    // minus the interpolated gradient, not normalised.
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(2, 2, 2, [](double x, double y, double z) { return 4 * x + 2 * y + z; });
    const RegField3Accessor<float> acc = VxIsosurfaceExtractor::uniformAccessor<float>(*field);
    KxVec3f at, n;
    EXPECT_EQ(ComputeIntersection<RegField3Accessor<float>>::compute(acc, 3.f, {0, 0, 0}, 3, at, n), 0.25f);
    EXPECT_EQ(at, KxVec3f(0.25f, 1.f, 0.f));
    EXPECT_EQ(n, KxVec3f(-4.f, -2.f, -1.f));
    // Spacings that are powers of two multiply by their inverse instead of dividing: the same
    // floats, on values whose differences round.
    for (const float spacing : {0.5f, 1.f, 4.f, 0.7f, 3.f}) {
        KxHandle<VxUniformScalarField3> wavy = makeField<float>(
            4, 4, 4,
            [](double x, double y, double z) { return std::sin(1.7 * x + 0.3) * 1e-3 + y / 3 + z * z / 7; },
            spacing);
        const RegField3Accessor<float> w = VxIsosurfaceExtractor::uniformAccessor<float>(*wavy);
        const float* v = static_cast<const float*>(wavy->lattice().dataPtr());
        const KxVec3f step = wavy->getVoxelSize();
        const auto at = [&](int i, int j, int k) { return v[(k * 4 + j) * 4 + i]; };
        for (int i = 1; i < 3; ++i) {
            const KxVec3f g = w.gradient(i, 1, 2);
            EXPECT_EQ(g.x, (at(i + 1, 1, 2) - at(i - 1, 1, 2)) / 2.f / step.x) << spacing;
            EXPECT_EQ(g.y, (at(i, 2, 2) - at(i, 0, 2)) / 2.f / step.y) << spacing;
            EXPECT_EQ(g.z, (at(i, 1, 3) - at(i, 1, 1)) / 2.f / step.z) << spacing;
        }
    }
}

TEST(Tools, FiltersAcceptPositiveLabelsAndValuesOtherThanTheUndefinedOne)
{
    // 16777217 is not a float: through single precision it would equal the 16777216 of node 0.
    KxHandle<VxUniformScalarField3> field = makeField<int>(3, 1, 1, [](double x, double, double) {
        return x == 0 ? 16777216.0 : x == 1 ? 7.0 : 16777217.0;
    });
    VxLabelLattice3 labels(KxDim3l(3, 1, 1), KxPrimType::UINT16);
    for (int i = 0; i < 3; ++i) labels.setLabel(i, i);
    vxiso::filter::LabelIsoSurfaceFilter mask(*field, &labels);
    EXPECT_FALSE(mask.acceptNode({0, 0, 0}));
    EXPECT_TRUE(mask.acceptNode({2, 0, 0}));
    field->setUndefinedValue(16777217.0);
    vxiso::filter::LabelIsoSurfaceFilter both(*field, &labels);
    EXPECT_TRUE(both.acceptNode({1, 0, 0}));
    EXPECT_FALSE(both.acceptNode({2, 0, 0})); // labelled but undefined
    vxiso::filter::UndefinedValue undefined(*field);
    EXPECT_TRUE(undefined.acceptNode({0, 0, 0}));
    EXPECT_FALSE(undefined.acceptNode({2, 0, 0}));
}
