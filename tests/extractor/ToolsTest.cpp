// The per-cell policies: case index with scan-line reuse, intersections, gradients, filters.
#include "../support/TestFields.h"

#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxHandle.h>

#include <gtest/gtest.h>

#include <climits>
#include <random>

using namespace vxtest;
using namespace vxiso::tools;

namespace {

// The case index of one cell, reusing the shared face of the cell before it in the same row: the
// cell-by-cell classification that the scan lines must agree with.
template <class Accessor> class CellIndex
{
public:
    unsigned computeIndex(const Accessor& a, float iso, const KxVec3i& cell)
    {
        const int i = cell.x, j = cell.y, k = cell.z;
        unsigned index;
        if (i == m_last.x + 1 && j == m_last.y && k == m_last.z) {
            // Nodes 1, 5 become nodes 0, 4 and nodes 2, 6 become nodes 3, 7.
            index = ((m_lastIndex & 34u) >> 1) | ((m_lastIndex & 68u) << 1);
        } else {
            index = 0;
            if (a.value(i, j, k) > iso) index |= 1;
            if (a.value(i, j + 1, k) > iso) index |= 8;
            if (a.value(i, j + 1, k + 1) > iso) index |= 128;
            if (a.value(i, j, k + 1) > iso) index |= 16;
        }
        if (a.value(i + 1, j, k) > iso) index |= 2;
        if (a.value(i + 1, j + 1, k) > iso) index |= 4;
        if (a.value(i + 1, j + 1, k + 1) > iso) index |= 64;
        if (a.value(i + 1, j, k + 1) > iso) index |= 32;
        m_last = cell;
        m_lastIndex = index;
        return index;
    }

private:
    KxVec3i m_last{INT32_MIN, INT32_MIN, INT32_MIN};
    unsigned m_lastIndex = 0;
};

} // namespace

TEST(Tools, ScanlineIndexEqualsDirectClassificationInAnyVisitOrder)
{
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> v(0, 9);
    KxHandle<VxUniformScalarField3> field =
        makeField<unsigned char>(9, 8, 7, [&](double, double, double) { return double(v(rng)); });
    const RegField3Accessor<unsigned char> acc =
        VxIsosurfaceExtractor::uniformAccessor<unsigned char>(*field);
    CellIndex<RegField3Accessor<unsigned char>> index;
    auto direct = [&](int i, int j, int k) {
        unsigned c = 0;
        for (int n = 0; n < 8; ++n) {
            const int* o = vxiso::tables::g_nodeCoords[n];
            if (acc.value(i + o[0], j + o[1], k + o[2]) > 4.5f) c |= 1u << n;
        }
        return c;
    };
    // Rows in order (reuse), then cells in random order (jumps).
    for (int k = 0; k < 6; ++k)
        for (int j = 0; j < 7; ++j)
            for (int i = 0; i < 8; ++i) ASSERT_EQ(index.computeIndex(acc, 4.5f, {i, j, k}), direct(i, j, k));
    for (int n = 0; n < 500; ++n) {
        const int i = int(rng() % 8), j = int(rng() % 7), k = int(rng() % 6);
        ASSERT_EQ(index.computeIndex(acc, 4.5f, {i, j, k}), direct(i, j, k));
    }
}

TEST(Tools, GradientIsCentralInsideAndOneSidedOnTheBorder)
{
    // f = x^2 on spacing 0.5: central differences are exact for a parabola, one-sided ones are not.
    KxHandle<VxUniformScalarField3> field = makeField<double>(
        5, 3, 3, [](double x, double, double) { return x * x; }, 0.5f);
    const RegField3Accessor<double> acc = VxIsosurfaceExtractor::uniformAccessor<double>(*field);
    EXPECT_FLOAT_EQ(acc.gradient(2, 1, 1).x, 2.f * 1.0f);           // 2x at x = 1
    EXPECT_FLOAT_EQ(acc.gradient(0, 1, 1).x, (0.25f - 0.f) / 0.5f); // forward, one step
    EXPECT_FLOAT_EQ(acc.gradient(4, 1, 1).x, (4.f - 2.25f) / 0.5f); // backward, one step
    EXPECT_FLOAT_EQ(acc.gradient(2, 0, 1).y, 0.f);
}

TEST(Tools, IntersectionRunsFromTheLowerNode)
{
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(2, 2, 2, [](double x, double y, double z) { return 4 * x + 2 * y + z; });
    const RegField3Accessor<float> acc = VxIsosurfaceExtractor::uniformAccessor<float>(*field);
    KxVec3f p, n;
    // Edge 3 runs from node 3 (0,1,0) to node 2 (1,1,0): values 2 and 6.
    const float t = ComputeIntersection<RegField3Accessor<float>>::compute(acc, 3.f, {0, 0, 0}, 3, p, n);
    EXPECT_FLOAT_EQ(t, 0.25f);
    EXPECT_EQ(p, KxVec3f(0.25f, 1.f, 0.f));
    EXPECT_EQ(n, KxVec3f(-4.f, -2.f, -1.f)); // minus the gradient, not normalised
}

TEST(Tools, LabelFilterAcceptsPositiveLabelsThatAreDefined)
{
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(3, 1, 1, [](double x, double, double) { return x; });
    VxLabelLattice3 labels(KxDim3l(3, 1, 1), KxPrimType::UINT16);
    labels.setLabel(0, 0);
    labels.setLabel(1, 2);
    labels.setLabel(2, 5);
    vxiso::filter::LabelIsoSurfaceFilter noMask(*field, nullptr);
    EXPECT_FALSE(noMask.active());
    vxiso::filter::LabelIsoSurfaceFilter mask(*field, &labels);
    EXPECT_FALSE(mask.acceptNode({0, 0, 0}));
    EXPECT_TRUE(mask.acceptNode({1, 0, 0}));
    field->setUndefinedValue(2.0);
    vxiso::filter::LabelIsoSurfaceFilter both(*field, &labels);
    EXPECT_FALSE(both.acceptNode({2, 0, 0})); // labelled but undefined
    EXPECT_TRUE(both.acceptNode({1, 0, 0}));
    vxiso::filter::LabelIsoSurfaceFilter undefOnly(*field, nullptr);
    EXPECT_TRUE(undefOnly.acceptNode({0, 0, 0}));
    EXPECT_FALSE(undefOnly.acceptNode({2, 0, 0}));
}

TEST(Tools, UndefinedValueComparesExactlyInDouble)
{
    // 16777217 is not a float: through single precision it would equal 16777216.
    KxHandle<VxUniformScalarField3> field =
        makeField<int>(2, 1, 1, [](double x, double, double) { return x == 0 ? 16777216.0 : 16777217.0; });
    field->setUndefinedValue(16777217.0);
    vxiso::filter::UndefinedValue f(*field);
    EXPECT_TRUE(f.active());
    EXPECT_TRUE(f.acceptNode({0, 0, 0}));
    EXPECT_FALSE(f.acceptNode({1, 0, 0}));
}

TEST(Tools, DegenerateTriangles)
{
    EXPECT_TRUE(isDegenerate({1, 1, 2}));
    EXPECT_TRUE(isDegenerate({1, 2, 1}));
    EXPECT_TRUE(isDegenerate({2, 1, 1}));
    EXPECT_FALSE(isDegenerate({0, 1, 2}));
}

TEST(Tools, ScanLinesVisitExactlyTheCutCellsWithTheirIndex)
{
    // Rows longer than one 64-bit word, boxes that start inside the grid, runs of empty cells.
    std::mt19937 rng(5);
    KxHandle<VxUniformScalarField3> field = makeField<short>(157, 6, 5, [&](double x, double y, double) {
        if (x > 60 && x < 130) return 0.0;          // a long empty run
        return double(int(rng() % 7) - 3 + int(y)); // mixed elsewhere
    });
    const RegField3Accessor<short> acc = VxIsosurfaceExtractor::uniformAccessor<short>(*field);
    for (const KxBox3i& box :
         {KxBox3i(0, 157, 0, 6, 0, 5), KxBox3i(3, 129, 1, 6, 1, 4), KxBox3i(63, 66, 0, 2, 0, 2)}) {
        ComputeIndexScanline<RegField3Accessor<short>> lines;
        CellIndex<RegField3Accessor<short>> single;
        lines.beginBox(acc, 0.5f, box);
        for (int k = box.zmin; k < box.zmax - 1; ++k) {
            for (int j = box.ymin; j < box.ymax - 1; ++j) {
                std::vector<std::pair<int, unsigned>> visited, expected;
                lines.forEachCutCell(j, [&](int i, unsigned c) { visited.emplace_back(i, c); });
                for (int i = box.xmin; i < box.xmax - 1; ++i) {
                    const unsigned c = single.computeIndex(acc, 0.5f, {i, j, k});
                    if (c != 0 && c != 255) expected.emplace_back(i, c);
                }
                ASSERT_EQ(visited, expected) << "row " << j << " slice " << k;
            }
            lines.nextSlice(acc, 0.5f, k);
        }
    }
}

TEST(Tools, ScanLinesCountCutEdgesAndTrianglesOfTheBox)
{
    std::mt19937 rng(11);
    KxHandle<VxUniformScalarField3> field =
        makeField<float>(131, 9, 7, [&](double, double, double) { return double(int(rng() % 5)) - 2.0; });
    const RegField3Accessor<float> acc = VxIsosurfaceExtractor::uniformAccessor<float>(*field);
    for (const KxBox3i& box :
         {KxBox3i(0, 131, 0, 9, 0, 7), KxBox3i(5, 70, 2, 8, 3, 7), KxBox3i(64, 65, 0, 9, 0, 7)}) {
        ComputeIndexScanline<RegField3Accessor<float>> lines;
        CellIndex<RegField3Accessor<float>> single;
        lines.beginBox(acc, 0.f, box);
        uint64_t edges = 0, triangles = 0;
        for (int k = box.zmin; k < box.zmax; ++k)
            for (int j = box.ymin; j < box.ymax; ++j)
                for (int i = box.xmin; i < box.xmax; ++i) {
                    const bool above = acc.value(i, j, k) > 0.f;
                    if (i + 1 < box.xmax) edges += above != (acc.value(i + 1, j, k) > 0.f);
                    if (j + 1 < box.ymax) edges += above != (acc.value(i, j + 1, k) > 0.f);
                    if (k + 1 < box.zmax) edges += above != (acc.value(i, j, k + 1) > 0.f);
                    if (i + 1 < box.xmax && j + 1 < box.ymax && k + 1 < box.zmax)
                        triangles +=
                            unsigned(vxiso::tables::g_marchingCases[single.computeIndex(acc, 0.f, {i, j, k})]
                                                                   [vxiso::tables::TRIANGLE_COUNT]);
                }
        EXPECT_EQ(lines.countCutEdges(), edges);
        EXPECT_EQ(lines.countTriangles(), triangles);
    }
}
