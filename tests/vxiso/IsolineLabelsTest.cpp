// Where labels go along contour lines and how the lines open under them: on circles and straight
// lines whose geometry is known.
#include <vxiso/isolines/VxIsolineLabelGeometry.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// A closed polyline of n segments around the origin in the plane z = 2.
std::vector<SbVec3f> circle(float radius, int n)
{
    std::vector<SbVec3f> p;
    for (int i = 0; i <= n; ++i) {
        const double a = 2 * M_PI * (i % n) / n;
        p.emplace_back(float(radius * std::cos(a)), float(radius * std::sin(a)), 2.f);
    }
    return p;
}

std::vector<std::pair<SbVec3f, SbVec3f>> walk(const std::vector<SbVec3f>& p, float gap)
{
    std::vector<std::pair<SbVec3f, SbVec3f>> anchors;
    vxWalkLabelAnchors(p.data(), int(p.size()), gap,
                       [&](const SbVec3f& a, const SbVec3f& t) { anchors.emplace_back(a, t); });
    return anchors;
}

VxIsolineLines linesOf(const std::vector<std::vector<SbVec3f>>& polylines, const std::vector<float>& values)
{
    VxIsolineLines lines;
    for (std::size_t l = 0; l < polylines.size(); ++l) {
        for (const SbVec3f& q : polylines[l]) lines.points.push_back(q);
        lines.numVertices.push_back(int32_t(polylines[l].size()));
        lines.lineValues.push_back(values[l]);
        lines.lineColors.push_back(uint32_t(0x10203000u + l));
    }
    return lines;
}

} // namespace

TEST(IsolineLabels, PointsBetweenPointsAndCrossings)
{
    const SbVec3f a(0, 0, 0), b(1, 0, 0);
    EXPECT_TRUE(vxIsPointBetweenPoints(a, a, b));
    EXPECT_TRUE(vxIsPointBetweenPoints(b, a, b));
    EXPECT_TRUE(vxIsPointBetweenPoints(SbVec3f(0.5f, 0, 0), a, b));
    EXPECT_FALSE(vxIsPointBetweenPoints(SbVec3f(0.5f, 0.01f, 0), a, b));
    EXPECT_FALSE(vxIsPointBetweenPoints(SbVec3f(1.5f, 0, 0), a, b));
    // From a centre inside the segment's reach, the crossing ahead; none when the sphere misses it.
    SbVec3f out;
    ASSERT_TRUE(vxFindInBetweenPoint(SbVec3f(0.2f, 0, 0), a, b, 0.5f, out));
    EXPECT_NEAR(out[0], 0.7f, 1e-6f);
    EXPECT_FALSE(vxFindInBetweenPoint(SbVec3f(0.5f, 3, 0), a, b, 0.5f, out));
    EXPECT_FALSE(vxFindInBetweenPoint(a, a, a, 0.5f, out));
}

// On a circle the anchors lie on the line gap apart, the tangent runs along it; on a straight line
// they stand at whole multiples of gap; a line shorter than gap gets none.
TEST(IsolineLabels, AnchorsLieOnTheirLineGapApart)
{
    const std::vector<SbVec3f> round = circle(10, 720);
    const float gap = 3;
    const auto anchors = walk(round, gap);
    ASSERT_GE(anchors.size(), 19u); // a perimeter of 62.8 holds 20 chords of 3
    SbVec3f previous = round[0];
    for (const auto& [anchor, tangent] : anchors) {
        EXPECT_NEAR((anchor - SbVec3f(0, 0, 2)).length(), 10, 1e-3);
        EXPECT_NEAR((anchor - previous).length(), gap, 1e-4);
        EXPECT_NEAR(tangent.dot(anchor - SbVec3f(0, 0, 2)), 0, 0.1) << "along the circle";
        EXPECT_NEAR(tangent.length(), 1, 1e-5);
        previous = anchor;
    }

    const std::vector<SbVec3f> straight = {{0, 0, 0}, {2.5f, 0, 0}, {4, 0, 0}, {10, 0, 0}};
    const auto onLine = walk(straight, 2);
    ASSERT_EQ(onLine.size(), 3u) << "one anchor a segment: the long last segment gets one";
    EXPECT_EQ(onLine[0].first, SbVec3f(2, 0, 0));
    EXPECT_EQ(onLine[1].first, SbVec3f(4, 0, 0));
    EXPECT_EQ(onLine[2].first, SbVec3f(6, 0, 0));
    EXPECT_EQ(onLine[0].second, SbVec3f(1, 0, 0));
    EXPECT_TRUE(walk({{0, 0, 0}, {1, 0, 0}, {1.5f, 0.5f, 0}}, 5).empty());
    EXPECT_TRUE(walk({{0, 0, 0}}, 0.1f).empty());
}

// Under contour clip nothing of a line stays inside its labels' circles, a piece that ends on a rim
// ends on the old line, a closed line with k labels falls into k pieces and an open one into k + 1;
// labels compare with the line's value truncated (0.4 and 0.6 both as 0), and other values pass.
TEST(IsolineLabels, ClipOpensTheLinesUnderTheirLabels)
{
    const std::vector<SbVec3f> round = circle(10, 360), inner = circle(9.5f, 360);
    const std::vector<SbVec3f> straight = {{-20, 15, 2}, {20, 15, 2}};
    const VxIsolineLines lines = linesOf({round, inner, straight}, {0.4f, 0.6f, 1.f});
    std::vector<VxIsolineTextVertex> labels = {
        {SbVec3f(10, 0, 2), 1.f, 0.f},  {SbVec3f(0, 10, 2), 1.f, 0.f}, {SbVec3f(-10, 0, 2), 1.f, 0.f},
        {SbVec3f(-5, 15, 2), 1.f, 1.f}, {SbVec3f(5, 15, 2), 1.f, 1.f}, {SbVec3f(0, -10, 2), 1.f, 7.f}};
    const VxIsolineLines clipped = vxClipUnderLabels(lines, labels);

    // The outer circle and the inner one, 0.5 away, lose an arc under each label of value 0; the
    // label of value 7 cuts nothing; the straight line of value 1 falls into three.
    ASSERT_EQ(clipped.getNumLines(), 3 + 3 + 3);
    const std::vector<float> values = {0.4f, 0.4f, 0.4f, 0.6f, 0.6f, 0.6f, 1, 1, 1};
    EXPECT_EQ(std::vector<float>(clipped.lineValues.begin(), clipped.lineValues.end()), values);
    EXPECT_EQ(clipped.lineColors[4], 0x10203001u) << "a piece keeps its line's colour";
    const SbVec3f* p = clipped.points.data();
    for (int l = 0; l < clipped.getNumLines(); ++l) {
        const int n = clipped.numVertices[std::size_t(l)];
        const float value = clipped.lineValues[std::size_t(l)];
        const std::vector<SbVec3f>& from = value == 1 ? straight : value < 0.5f ? round : inner;
        for (int i = 0; i < n; ++i)
            for (const VxIsolineTextVertex& t : labels) {
                if (t.value == float(int(value))) {
                    EXPECT_GE((p[i] - t.position).length(), t.radius * (1 - 1e-5f));
                }
            }
        for (const SbVec3f& end : {p[0], p[n - 1]}) {
            bool onOld = false;
            for (std::size_t i = 1; i < from.size(); ++i)
                onOld = onOld || vxIsPointBetweenPoints(end, from[i - 1], from[i]);
            EXPECT_TRUE(onOld) << "line " << l;
        }
        p += n;
    }
    // The circle's start (10, 0) lies under a label, so no piece runs through it; without that
    // label the last and first pieces join across the start.
    labels.erase(labels.begin());
    const VxIsolineLines joined = vxClipUnderLabels(linesOf({round}, {0.4f}), labels);
    ASSERT_EQ(joined.getNumLines(), 2);
    const SbVec3f* q = joined.points.data();
    bool throughStart = false;
    for (int i = 0; i < joined.numVertices[0]; ++i) throughStart = throughStart || q[i] == round[0];
    EXPECT_TRUE(throughStart);
    EXPECT_EQ(vxClipUnderLabels(linesOf({round}, {0.4f}), {}).getNumPoints(), int(round.size()));
}
