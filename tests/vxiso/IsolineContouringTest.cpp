// Contour lines: on fields whose level sets are known, one cell at a time, against contourpy on the
// same samples, and the cut of tetrahedra against the sampling of the same field.
#include "../support/TestCellGrids.h"
#include "../support/TestFiles.h"

#include <vxiso/isolines/VxIsolineContouring.h>
#include <vxiso/isolines/VxIsolineFieldLocation.h>

#include <meshkit/MeshKit.h>
#include <meshkit/PoCartesianGrid2D.h>
#include <meshkit/PoMeshContouring.h>

#include <vx/VxTetraScalarField3.h>

#include <kx/KxHandle.h>

#include <array>
#include <functional>
#include <random>
#include <set>
#include <sstream>

namespace {

using namespace vxtest;
using Polyline = std::vector<SbVec3f>;

struct Location : VxIsolineFieldLocation
{
    explicit Location(std::function<float(const SbVec3f&)> field) : f(std::move(field)) {}
    bool set(const SbVec3f& q) override { return p = q, true; }
    bool move(const SbVec3f& q) override { return set(q); }
    bool evaluate(float& v) override { return v = f(p), true; }
    std::function<float(const SbVec3f&)> f;
    SbVec3f p;
};

const auto closed = [](const Polyline& l) { return l.size() > 2 && l.front() == l.back(); };
const auto onBorder = [](const SbVec3f& p) { return std::fabs(p[0]) == 1 || std::fabs(p[1]) == 1; };

// The polylines of the lines. Chained lines have no point in two places but the end of a closed
// polyline: a point with two predecessors would be.
std::vector<Polyline> polylines(const VxIsolineLines& lines, bool chained = true)
{
    std::vector<Polyline> out;
    std::set<std::tuple<float, float, float>> seen;
    const SbVec3f* p = lines.points.data();
    for (int n : lines.numVertices) {
        out.emplace_back(p, p + n);
        for (int i = 0; chained && i + closed(out.back()) < n; ++i)
            EXPECT_TRUE(seen.insert({p[i][0], p[i][1], p[i][2]}).second) << "a point in two places";
        p += n;
    }
    return out;
}

// res x res samples over [-1, 1]^2, at positions exact in float.
VxIsolineLines contour(std::function<float(float, float)> f, std::vector<float> values, int res = 129,
                       KxBox3f box = {-2, 2, -2, 2, -1, 1})
{
    VxIsolineContouring c;
    c.setIsoValues(values.data(), int(values.size()));
    Location location([&](const SbVec3f& p) { return f(p[0], p[1]); });
    const float h = 2.f / float(res - 1);
    c.doGeneric(VxIsolineSampling{{-1, -1, 0}, {h, 0, 0}, {0, h, 0}, res}, box, location);
    return c.lines();
}

TEST(IsolineSampling, LinesOfKnownLevelSets)
{
    const auto bowl = [](float x, float y) { return x * x + y * y; };
    const auto ramp = [](float x, float y) { return 0.3f * x + 0.7f * y; };
    const auto bowlCut = [](float x, float y) { return x > 0.5f ? std::nanf("") : x * x + y * y; };
    struct Case
    {
        const char* name;
        std::function<float(float, float)> f;
        std::vector<float> values;
        int closedLines, openLines;
        float endX;      // open lines end on this column (NaN: on the border of the sampled square)
        float tolerance; // of |f - value| on the points: float precision where f is linear
        KxBox3f box = {-2, 2, -2, 2, -1, 1};
    };
    const float none = std::nanf("");
    // Where lines are drawn, no sample equals a value: each point then lies on an edge of its own.
    const Case cases[] = {
        {"circles", bowl, {0.45f, 0.3f}, 2, 0, none, 2e-4f},
        {"ramp", ramp, {-0.213f, 0.1037f, 0.3311f}, 0, 3, none, 1e-6f},
        {"constant", [](float, float) { return 1.f; }, {1.f, 0.5f}, 0, 0, none, 0},
        {"values out of range or NaN", bowl, {-1.f, none, 2.5f}, 0, 0, none, 0},
        // Invalid samples and the slice's box leave out the same cells: lines end on x = 0.5.
        {"NaN beyond x = 0.5", bowlCut, {0.45f}, 0, 1, 0.5f, 2e-4f},
        {"box up to x = 0.5", bowl, {0.45f}, 0, 1, 0.5f, 2e-4f, {-2, 0.5f, -2, 2, -1, 1}},
    };
    for (const Case& c : cases) {
        const VxIsolineLines lines = contour(c.f, c.values, 129, c.box);
        const std::vector<Polyline> all = polylines(lines);
        ASSERT_EQ(lines.lineValues.size(), all.size()) << c.name;
        int nClosed = 0, nOpen = 0;
        for (std::size_t i = 0, value = 0; i < all.size(); ++i) {
            // Lines in the order of their values; each point on its own value's level set.
            while (value < c.values.size() && c.values[value] != lines.lineValues[i]) ++value;
            ASSERT_LT(value, c.values.size()) << c.name << ": line " << i << " out of order";
            for (const SbVec3f& p : all[i])
                EXPECT_NEAR(c.f(p[0], p[1]), c.values[value], c.tolerance) << c.name;
            (closed(all[i]) ? nClosed : nOpen)++;
            if (closed(all[i])) continue;
            for (const SbVec3f& end : {all[i].front(), all[i].back()})
                EXPECT_TRUE(std::isnan(c.endX) ? onBorder(end) : end[0] == c.endX) << c.name;
        }
        EXPECT_EQ(std::make_pair(nClosed, nOpen), std::make_pair(c.closedLines, c.openLines)) << c.name;
    }
    EXPECT_EQ(polylines(contour(bowlCut, {0.45f})), polylines(contour(bowl, {0.45f}, 129, cases[5].box)));
}

// One cell, corners (0, 0), (0, 1), (1, 1), (1, 0), after eight points that other cells made.
TEST(IsolineSampling, CellMakesAndLinksItsPointsInOrder)
{
    struct Case
    {
        const char* name;
        float values[4], iso;
        int rowCarry, columnCarry;
        std::vector<std::pair<int, int>> links; // first point -> second point
        int newPoints, rowCarryAfter, columnCarryAfter;
    };
    // Where lines are drawn, no sample equals a value: each point then lies on an edge of its own.
    const Case cases[] = {
        {"saddle, centre = value: 0 and 2 joined", {1, 0, 1, 0}, .5f, -1, -1, {{8, 9}, {10, 11}}, 4, 10, 9},
        {"saddle, corner 0 below: from edge 3", {0, 1, 0, 1}, .5f, -1, -1, {{8, 9}, {10, 11}}, 4, 11, 10},
        {"saddle, carries as found", {1, 0, 1, 0}, .5f, 7, 4, {{7, 8}, {9, 4}}, 2, 9, 8},
        // The mean in single precision is 8388610 (8388609.5 exactly): not above the value.
        {"centre in floats", {16777216, 3, 16777216, 3}, 8388610.f, -1, -1, {{8, 9}, {10, 11}}, 4, 10, 9},
        {"flipped, both carried", {0, 1, 1, 1}, .5f, 7, 4, {{4, 7}}, 0, -1, -1},
        {"equal is not below", {.5f, 0, 0, 0}, .5f, -1, -1, {{8, 9}}, 2, -1, -1},
    };
    for (const Case& c : cases) {
        KxDArray<SbVec3f> points(8, SbVec3f(9, 9, 9));
        KxDArray<int> links(8, -1);
        SbVec3f corners[4] = {{0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {1, 0, 0}};
        float values[4] = {c.values[0], c.values[1], c.values[2], c.values[3]};
        int row = c.rowCarry, column = c.columnCarry;
        VxIsolineContouring().processCell(c.iso, corners, values, points, links, column, row);
        std::vector<std::pair<int, int>> got;
        for (std::size_t i = 0; i < links.size(); ++i)
            if (links[i] >= 0) got.push_back({int(i), links[i]});
        EXPECT_EQ(got, c.links) << c.name;
        EXPECT_EQ(int(points.size()) - 8, c.newPoints) << c.name;
        EXPECT_EQ(std::make_pair(row, column), std::make_pair(c.rowCarryAfter, c.columnCarryAfter)) << c.name;
    }
}

// The same segments as contourpy finds on the same samples (NaN ones masked), but in saddle cells.
// The noise makes one cut cell in ten a saddle: polylines() sees each point in one place only.
TEST(IsolineSampling, SegmentsAsContourpyFindsThem)
{
    const int rows = 48, cols = 64;
    std::vector<float> z;
    std::mt19937 random(4);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            z.push_back(std::sin(c * 0.21f) * std::cos(r * 0.17f) +
                        std::uniform_real_distribution<float>(-.6f, .6f)(random));
    std::fill(z.begin() + 20 * cols + 10, z.begin() + 20 * cols + 30, std::nanf(""));
    const float levels[] = {-0.55f, 0.05f, 0.61f};
    // Ours on a cols x cols sampling, x the column and y the row: the rows past the last are NaN.
    VxIsolineContouring c;
    c.setIsoValues(levels, 3);
    Location location(
        [&](const SbVec3f& p) { return p[1] < rows ? z[std::size_t(p[1] * cols + p[0])] : std::nanf(""); });
    c.doGeneric(VxIsolineSampling{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cols}, {0, 1e4f, 0, 1e4f, -1, 1},
                location);
    std::string ours;
    std::size_t i = 0;
    for (const Polyline& l : polylines(c.lines())) {
        ours += std::to_string(c.lines().lineValues[i++]);
        for (const SbVec3f& p : l) ours += " " + std::to_string(p[0]) + " " + std::to_string(p[1]);
        ours += "\n";
    }
    QTemporaryDir dir;
    const std::string at = dir.path().toStdString();
    spit(at + "/grid.raw", std::string(reinterpret_cast<const char*>(z.data()), z.size() * sizeof(float)));
    spit(at + "/ours.txt", ours);
    const std::string out = runPython("contourpy", VXISO_SOURCE_DIR "/tests/vxiso/contourpy_lines.py " + at +
                                                       "/grid.raw 48 64 " + at + "/ours.txt");
    if (out.empty()) GTEST_SKIP() << "python3 with contourpy is not available; install python3-contourpy";
    std::istringstream lines(out);
    int n = 0;
    for (std::string line; std::getline(lines, line); ++n) {
        EXPECT_EQ(line.substr(line.find("differ")), "differ 0") << line;
        EXPECT_GT(std::stoi(line.substr(line.find("ours ") + 5)), 100) << line;
    }
    EXPECT_EQ(n, 3) << out;
}

// The plane's crossing of an edge, and a quadrilateral (values 0, 2, 1, 3 around it) that is
// ambiguous at 1.5: that value and all after it give nothing, those before stay.
TEST(IsolinePolygons, AmbiguousQuadrilateralEndsItsValues)
{
    VxIsolineContouring::Vertex3 out{};
    VxIsolineContouring::intersect({{0, 0, 0}, 1.f, 2.f}, {{2, 0, 0}, -3.f, 6.f}, out);
    EXPECT_TRUE(out.xyz == SbVec3f(0.5f, 0, 0) && out.value == 3.f);
    VxIsolineContouring::intersect({{0, 0, 0}, 1e-12f, 2.f}, {{2, 0, 0}, 0.f, 6.f}, out);
    EXPECT_TRUE(out.xyz == SbVec3f(1, 0, 0) && out.value == 2.f) << "the midpoint keeps the first value";
    const VxIsolineContouring::Polygon quad{
        4, {{{0, 0, 0}, 0, 0}, {{1, 0, 0}, 0, 2}, {{1, 1, 0}, 0, 1}, {{0, 1, 0}, 0, 3}}};
    const std::pair<std::vector<float>, std::vector<float>> cases[] = {
        {{0.5f, 1.5f, 2.5f}, {0.5f}}, {{2.5f, 1.5f, 0.5f}, {2.5f}}, {{0.5f, 2.5f, 3.f}, {0.5f, 2.5f, 3.f}}};
    for (const auto& [values, lineValues] : cases) {
        VxIsolineContouring c;
        c.setIsoValues(values.data(), int(values.size()));
        c.isoPoly4(quad);
        EXPECT_EQ(std::vector<float>(c.lines().lineValues.begin(), c.lines().lineValues.end()), lineValues);
    }
}

// Distance from p to the segments (points 0-1, 2-3, ...; with step 1: 0-1, 1-2, ...).
double distance(const SbVec3f& p, const std::vector<SbVec3f>& segments, std::size_t step = 2)
{
    double best = 1e30;
    for (std::size_t i = 0; i + 1 < segments.size(); i += step) {
        const SbVec3f a = segments[i], ab = segments[i + 1] - a;
        const float t = std::clamp(ab.dot(p - a) / std::max(ab.dot(ab), 1e-20f), 0.f, 1.f);
        best = std::min(best, double((a + ab * t - p).length()));
    }
    return best;
}

// On a tilted plane through the Kuhn grid of a bowl, the tetrahedra's segments and the sampled lines
// of the same (piecewise linear) field lie within a fraction of a sample step of each other.
TEST(IsolinePolygons, TetrahedraCutAsTheSamplingSeesThem)
{
    const int n = 17, res = 225;
    const std::vector<float> xyz = latticeNodes(n, n, n);
    std::vector<float> f;
    for (std::size_t i = 0; i < xyz.size(); i += 3)
        f.push_back((xyz[i] - 8) * (xyz[i] - 8) + (xyz[i + 1] - 8) * (xyz[i + 1] - 8) + 0.3f * xyz[i + 2]);
    KxHandle<VxTetraScalarField3> field(new VxTetraScalarField3(kuhnGrid(n, true), f));
    const SbVec3f u(1, 0, -0.1f), v(0, 1, -0.05f), centre(8, 8, 6);
    const float values[] = {9.f, 25.f};
    VxIsolineContouring cut, sampled;
    cut.setIsoValues(values, 2);
    cut.doIntersection(*field, centre, u.cross(v), u, v);
    // The field in the cube's tetrahedron that holds p: the one of the order of p's offsets.
    Location location([&](const SbVec3f& p) {
        int node = 0, axes[3] = {0, 1, 2};
        float t[3];
        for (int a = 2; a >= 0; --a) {
            const int base = std::clamp(int(p[a]), 0, n - 2);
            node = node * n + base;
            t[a] = p[a] - float(base);
        }
        std::sort(axes, axes + 3, [&](int a, int b) { return t[a] > t[b]; });
        float value = (1 - t[axes[0]]) * f[std::size_t(node)];
        for (int s = 0; s < 3; ++s) {
            node += axes[s] == 0 ? 1 : axes[s] == 1 ? n : n * n;
            value += (s < 2 ? t[axes[s]] - t[axes[s + 1]] : t[axes[2]]) * f[std::size_t(node)];
        }
        return value;
    });
    sampled.setIsoValues(values, 2);
    sampled.doGeneric(
        VxIsolineSampling{centre - u * 7 - v * 7, u * (14.f / (res - 1)), v * (14.f / (res - 1)), res},
        KxBox3f(0, 16, 0, 16, 0, 16), location);
    const std::vector<Polyline> cutLines = polylines(cut.lines(), false),
                                sampledLines = polylines(sampled.lines());
    ASSERT_EQ(sampledLines.size(), 2u);
    for (std::size_t k = 0; k < 2; ++k) {
        std::vector<SbVec3f> fromCut;
        for (std::size_t i = 0; i < cutLines.size(); ++i)
            if (cut.lines().lineValues[i] == values[k])
                fromCut.insert(fromCut.end(), cutLines[i].begin(), cutLines[i].end());
        EXPECT_TRUE(closed(sampledLines[k]));
        ASSERT_GT(fromCut.size(), 40u) << values[k];
        for (const SbVec3f& p : fromCut) EXPECT_LT(distance(p, sampledLines[k], 1), 0.02) << values[k];
        for (const SbVec3f& p : sampledLines[k]) EXPECT_LT(distance(p, fromCut), 0.02) << values[k];
    }
    // Through a transform (here the identity) the plane's normal is the cross product of its vectors.
    const SbMatrix identity = SbMatrix::identity();
    cut.setTransform(&identity);
    VxIsolineLines before = cut.lines();
    cut.doIntersection(*field, centre, SbVec3f(0, 0, 1), u, v);
    EXPECT_TRUE(cut.hasTransform());
    EXPECT_EQ(polylines(cut.lines(), false), polylines(before, false));
}

} // namespace

// The kit's contouring of a grid of samples against the sampling path on the same samples: the same
// segments, as sets of point pairs (the two chain them each their own way), with saddles and
// samples without values in the field.
TEST(IsolineSampling, KitContoursTheSameSegments)
{
    meshkit::init();
    const int n = 40;
    std::vector<float> samples;
    std::mt19937 random(11);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            samples.push_back(std::sin(c * 0.4f) * std::cos(r * 0.3f) +
                              std::uniform_real_distribution<float>(-.4f, .4f)(random));
    for (int c = 5; c < 12; ++c) samples[std::size_t(17 * n + c)] = std::nanf("");
    const std::vector<float> levels = {-0.3f, 0.02f, 0.5f};

    VxIsolineContouring c;
    c.setIsoValues(levels.data(), int(levels.size()));
    Location location(
        [&](const SbVec3f& p) { return samples[std::size_t(std::lround(p[1]) * n + std::lround(p[0]))]; });
    c.doGeneric(VxIsolineSampling{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, n}, {-1, 1e4f, -1, 1e4f, -1, 1}, location);

    KxHandle<meshkit::PoCartesianGrid2D> grid(new meshkit::PoCartesianGrid2D);
    std::vector<float> marked = samples;
    for (float& v : marked)
        if (std::isnan(v)) v = meshkit::PoMesh::NO_VALUE;
    grid->grid.setGeometry({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, n, n, marked.data());
    const auto kit = meshkit::PoMeshContouring::contour(*grid, levels);

    // Each segment as its two ends, rounded to a thousandth of a cell and ordered.
    using Segment = std::array<long, 4>;
    auto segment = [](const SbVec3f& a, const SbVec3f& b) {
        Segment s = {std::lround(a[0] * 1000), std::lround(a[1] * 1000), std::lround(b[0] * 1000),
                     std::lround(b[1] * 1000)};
        if (std::make_pair(s[0], s[1]) > std::make_pair(s[2], s[3]))
            std::swap(s[0], s[2]), std::swap(s[1], s[3]);
        return s;
    };
    std::multiset<std::pair<float, Segment>> ours, theirs;
    std::size_t line = 0;
    for (const Polyline& l : polylines(c.lines())) {
        for (std::size_t i = 1; i < l.size(); ++i)
            ours.insert({c.lines().lineValues[line], segment(l[i - 1], l[i])});
        ++line;
    }
    for (const auto& l : kit)
        for (std::size_t i = 1; i < l.points.size(); ++i)
            theirs.insert({l.value, segment(l.points[i - 1], l.points[i])});
    EXPECT_GT(ours.size(), 300u);
    EXPECT_EQ(ours, theirs);
}
