// The geometry of contour lines: on fields whose level sets are known, against contourpy on the
// same samples, and the cut of tetrahedra against the sampling of the same field.
#include "../support/TestCellGrids.h"
#include "../support/TestFiles.h"

#include <vxiso/isolines/VxIsolineContouring.h>
#include <vxiso/isolines/VxIsolineFieldLocation.h>

#include <vx/VxTetraScalarField3.h>

#include <kx/KxHandle.h>

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

namespace {

using namespace vxtest;
using Field = std::function<float(float, float)>;
using Polyline = std::vector<SbVec3f>;

// The field of a function of x and y; NaN where the function says so.
class FunctionLocation : public VxIsolineFieldLocation
{
public:
    explicit FunctionLocation(Field f) : m_f(std::move(f)) {}
    bool set(const SbVec3f& p) override { return move(p); }
    bool move(const SbVec3f& p) override
    {
        m_p = p;
        return true;
    }
    bool evaluate(float& value) override
    {
        value = m_f(m_p[0], m_p[1]);
        return true;
    }

private:
    Field m_f;
    SbVec3f m_p;
};

std::vector<Polyline> polylines(const VxIsolineLines& lines)
{
    std::vector<Polyline> out;
    const SbVec3f* p = lines.points.data();
    for (int n : lines.numVertices) {
        out.emplace_back(p, p + n);
        p += n;
    }
    return out;
}

bool closed(const Polyline& l)
{
    return l.size() > 2 && l.front() == l.back();
}

// res x res samples over [-1, 1]^2 (steps of powers of two, so sample positions are exact).
VxIsolineContouring contour(const Field& f, std::vector<float> values, int res = 129,
                            KxBox3f box = {-2, 2, -2, 2, -1, 1})
{
    VxIsolineContouring c;
    c.setIsoValues(values.data(), int(values.size()));
    FunctionLocation location(f);
    const float h = 2.f / float(res - 1);
    c.doGeneric(VxIsolineSampling{{-1, -1, 0}, {h, 0, 0}, {0, h, 0}, res}, box, location);
    return c;
}

float circles(float x, float y)
{
    return x * x + y * y;
}

// What each case's lines must be: how many closed and open ones, and where open ones may end.
struct LevelSetCase
{
    const char* name;
    Field f;
    std::vector<float> values;
    int closedLines, openLines;
    float endX; // open lines end on this column (NaN: on the border of the sampled square)
    KxBox3f box;
    float tolerance; // of |f(p) - value|: float precision for the ramp, the sampling's for circles
};

TEST(IsolineSampling, LinesOfKnownLevelSets)
{
    const float nan = std::nanf("");
    const KxBox3f all{-2, 2, -2, 2, -1, 1};
    const LevelSetCase cases[] = {
        {"circles", circles, {0.5f, 0.25f}, 2, 0, nan, all, 2e-4f},
        {"ramp",
         [](float x, float y) { return 0.3f * x + 0.7f * y; },
         {-0.2f, 0.1f, 0.33f},
         0,
         3,
         nan,
         all,
         1e-6f},
        {"constant", [](float, float) { return 1.f; }, {1.f, 0.5f}, 0, 0, nan, all, 0},
        {"out of range", circles, {-1.f, 2.5f}, 0, 0, nan, all, 0},
        // Invalid samples and the slice's box leave out the same cells: lines end on x = 0.5.
        {"NaN beyond x = 0.5",
         [](float x, float y) { return x > 0.5f ? std::nanf("") : x * x + y * y; },
         {0.5f},
         0,
         1,
         0.5f,
         all,
         2e-4f},
        {"box up to x = 0.5", circles, {0.5f}, 0, 1, 0.5f, {-2, 0.5f, -2, 2, -1, 1}, 2e-4f},
    };
    for (const LevelSetCase& c : cases) {
        const VxIsolineContouring result = contour(c.f, c.values, 129, c.box);
        const VxIsolineLines& lines = result.lines();
        const std::vector<Polyline> all = polylines(lines);
        ASSERT_EQ(lines.lineValues.size(), all.size()) << c.name;
        int nClosed = 0, nOpen = 0;
        std::size_t valueIndex = 0;
        for (std::size_t i = 0; i < all.size(); ++i) {
            const Polyline& l = all[i];
            // Lines come in the order of their values; each point on its own value's level set.
            while (valueIndex < c.values.size() && c.values[valueIndex] != lines.lineValues[i]) ++valueIndex;
            ASSERT_LT(valueIndex, c.values.size()) << c.name << ": line " << i << " out of value order";
            for (const SbVec3f& p : l)
                EXPECT_NEAR(c.f(p[0], p[1]), lines.lineValues[i], c.tolerance) << c.name;
            if (closed(l)) {
                ++nClosed;
                continue;
            }
            ++nOpen;
            for (const SbVec3f& end : {l.front(), l.back()}) {
                if (std::isnan(c.endX))
                    EXPECT_TRUE(std::fabs(end[0]) == 1.f || std::fabs(end[1]) == 1.f) << c.name;
                else
                    EXPECT_EQ(end[0], c.endX) << c.name;
            }
        }
        EXPECT_EQ(nClosed, c.closedLines) << c.name;
        EXPECT_EQ(nOpen, c.openLines) << c.name;
    }
    EXPECT_EQ(polylines(contour(cases[4].f, {0.5f}).lines()),
              polylines(contour(circles, {0.5f}, 129, cases[5].box).lines()));
}

// One cell, corners at (0, 0), (0, 1), (1, 1), (1, 0), after eight points made by other cells.
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
    const Case cases[] = {
        {"saddle, centre equal to the value: 0 and 2 joined",
         {1, 0, 1, 0},
         .5f,
         -1,
         -1,
         {{8, 9}, {10, 11}},
         4,
         10,
         9},
        {"saddle, corner 0 below: flipped, made from edge 3",
         {0, 1, 0, 1},
         .5f,
         -1,
         -1,
         {{8, 9}, {10, 11}},
         4,
         11,
         10},
        {"saddle reads both carries as the cell found them",
         {1, 0, 1, 0},
         .5f,
         7,
         4,
         {{7, 8}, {9, 4}},
         2,
         9,
         8},
        {"flipped segment between two carried points", {0, 1, 1, 1}, .5f, 7, 4, {{4, 7}}, 0, -1, -1},
        // The mean in single precision is 8388610 (8388609.5 exactly): not above the value.
        {"centre summed in single precision",
         {16777216, 3, 16777216, 3},
         8388610.f,
         -1,
         -1,
         {{8, 9}, {10, 11}},
         4,
         10,
         9},
        {"a value equal to the iso value is not below", {.5f, 0, 0, 0}, .5f, -1, -1, {{8, 9}}, 2, -1, -1},
    };
    for (const Case& c : cases) {
        KxDArray<SbVec3f> points(8, SbVec3f(9, 9, 9));
        KxDArray<int> links(8, -1);
        SbVec3f corners[4] = {{0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {1, 0, 0}};
        float values[4] = {c.values[0], c.values[1], c.values[2], c.values[3]};
        int row = c.rowCarry, column = c.columnCarry;
        VxIsolineContouring().processCell(c.iso, corners, values, points, links, column, row);
        EXPECT_EQ(int(points.size()), 8 + c.newPoints) << c.name;
        std::vector<std::pair<int, int>> got;
        for (std::size_t i = 0; i < links.size(); ++i)
            if (links[i] >= 0) got.push_back({int(i), links[i]});
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, c.links) << c.name;
        EXPECT_EQ(row, c.rowCarryAfter) << c.name;
        EXPECT_EQ(column, c.columnCarryAfter) << c.name;
    }
}

// Random samples: every third cell or so is a saddle. No point is in two lines (it would be if it
// had two predecessors), and a line that does not close runs to the border.
TEST(IsolineSampling, SaddlesKeepOnePredecessorPerPoint)
{
    std::mt19937 random(15);
    std::uniform_real_distribution<float> uniform(0.f, 1.f);
    const int res = 65;
    std::vector<float> samples(std::size_t(res * res));
    for (float& s : samples) s = uniform(random);
    auto field = [&](float x, float y) {
        return samples[std::size_t(std::lround((y + 1) * 32) * res + std::lround((x + 1) * 32))];
    };
    const VxIsolineContouring result = contour(field, {0.3f, 0.5f, 0.7f}, res);
    std::set<std::tuple<float, float, float>> seen;
    int nClosed = 0;
    for (const Polyline& l : polylines(result.lines())) {
        nClosed += closed(l);
        for (std::size_t i = 0; i + closed(l) < l.size(); ++i)
            EXPECT_TRUE(seen.insert({l[i][0], l[i][1], l[i][2]}).second) << "a point in two places";
        if (closed(l)) continue;
        for (const SbVec3f& end : {l.front(), l.back()})
            EXPECT_TRUE(std::fabs(end[0]) == 1.f || std::fabs(end[1]) == 1.f) << end[0] << " " << end[1];
    }
    EXPECT_GT(nClosed, 100);
    EXPECT_EQ(seen.size() + std::size_t(nClosed), result.lines().points.size());
}

// A point on the sampled grid (x the column, y the row) names the grid edge it lies on.
std::tuple<int, int, int> gridEdge(double x, double y)
{
    if (std::fabs(x - std::round(x)) < 1e-4) return {0, int(std::lround(x)), int(std::floor(y))};
    return {1, int(std::floor(x)), int(std::lround(y))};
}

using Segments = std::set<std::pair<std::tuple<int, int, int>, std::tuple<int, int, int>>>;

// Segments of the lines, as pairs of grid edges, leaving out those of saddle cells.
void addSegments(Segments& out, const std::vector<std::vector<double>>& lines, const std::vector<float>& z,
                 int cols, float level)
{
    for (const std::vector<double>& l : lines)
        for (std::size_t i = 0; i + 3 < l.size(); i += 2) {
            const int c = int(std::floor((l[i] + l[i + 2]) / 2)),
                      r = int(std::floor((l[i + 1] + l[i + 3]) / 2));
            auto below = [&](int rr, int cc) { return level > z[std::size_t(rr * cols + cc)]; };
            if (below(r, c) == below(r + 1, c + 1) && below(r + 1, c) == below(r, c + 1) &&
                below(r, c) != below(r + 1, c))
                continue;
            auto a = gridEdge(l[i], l[i + 1]), b = gridEdge(l[i + 2], l[i + 3]);
            out.insert({std::min(a, b), std::max(a, b)});
        }
}

// The same segments as contourpy finds on the same samples (NaN ones masked), but in saddle cells,
// where our rule is the mean of the corners.
TEST(IsolineSampling, SegmentsAsContourpyFindsThem)
{
    const int rows = 48, cols = 64;
    std::vector<float> z(std::size_t(rows * cols));
    std::mt19937 random(4);
    std::uniform_real_distribution<float> noise(-0.3f, 0.3f);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            z[std::size_t(r * cols + c)] = std::sin(c * 0.21f) * std::cos(r * 0.17f) + noise(random);
    for (int c = 10; c < 30; ++c) z[std::size_t(20 * cols + c)] = std::nanf("");
    const std::vector<float> levels = {-0.55f, 0.05f, 0.61f};

    QTemporaryDir dir;
    const std::string grid = dir.path().toStdString() + "/grid.raw";
    spit(grid, std::string(reinterpret_cast<const char*>(z.data()), z.size() * sizeof(float)));
    std::ostringstream args;
    args << VXISO_SOURCE_DIR "/tests/vxiso/contourpy_lines.py " << grid << " " << rows << " " << cols;
    for (float v : levels) args << " " << v;
    const std::string out = runPython("contourpy", args.str());
    if (out.empty()) GTEST_SKIP() << "python3 with contourpy is not available; install python3-contourpy";

    // Ours on a rows x cols sampling (square, so the rows past the last are NaN).
    VxIsolineContouring ours;
    ours.setIsoValues(levels.data(), int(levels.size()));
    FunctionLocation location([&](float x, float y) {
        const int c = int(x), r = int(y);
        return r < rows ? z[std::size_t(r * cols + c)] : std::nanf("");
    });
    ours.doGeneric(VxIsolineSampling{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, cols}, KxBox3f(0, 1e4f, 0, 1e4f, -1, 1),
                   location);
    const std::vector<Polyline> ourLines = polylines(ours.lines());

    std::istringstream in(out);
    std::string word;
    float level = 0;
    std::map<float, std::vector<std::vector<double>>> theirs;
    while (in >> word) {
        if (word == "level") {
            in >> level;
            theirs[level];
            continue;
        }
        std::vector<double> l(2 * std::stoul(word));
        for (double& v : l) in >> v;
        theirs[level].push_back(l);
    }
    ASSERT_EQ(theirs.size(), levels.size()) << out.substr(0, 2000);
    for (float v : levels) {
        std::vector<std::vector<double>> mine;
        for (std::size_t i = 0; i < ourLines.size(); ++i)
            if (ours.lines().lineValues[i] == v) {
                mine.emplace_back();
                for (const SbVec3f& p : ourLines[i]) mine.back().insert(mine.back().end(), {p[0], p[1]});
            }
        Segments a, b;
        addSegments(a, mine, z, cols, v);
        addSegments(b, theirs[v], z, cols, v);
        EXPECT_GT(a.size(), 100u) << v;
        EXPECT_TRUE(a == b) << "level " << v << ": ours " << a.size() << ", contourpy's " << b.size();
    }
}

// The plane's crossing of an edge, and a quadrilateral (values 0, 2, 1, 3 around it) that is
// ambiguous at 1.5: that value and all after it give nothing, the ones before stay.
TEST(IsolinePolygons, AmbiguousQuadrilateralEndsItsValues)
{
    using Vertex3 = VxIsolineContouring::Vertex3;
    Vertex3 out{};
    VxIsolineContouring::intersect({{0, 0, 0}, 1.f, 2.f}, {{2, 0, 0}, -3.f, 6.f}, out);
    EXPECT_EQ(out.xyz, SbVec3f(0.5f, 0, 0));
    EXPECT_EQ(out.value, 3.f);
    VxIsolineContouring::intersect({{0, 0, 0}, 1e-12f, 2.f}, {{2, 0, 0}, 0.f, 6.f}, out);
    EXPECT_EQ(out.xyz, SbVec3f(1, 0, 0));
    EXPECT_EQ(out.value, 2.f) << "the midpoint keeps the first value";

    VxIsolineContouring::Polygon quad{
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

// The Kuhn grid's field, linear on each tetrahedron, evaluated where the sampling asks.
class KuhnLocation : public VxIsolineFieldLocation
{
public:
    KuhnLocation(const std::vector<float>& f, int n) : m_f(f), m_n(n) {}
    bool set(const SbVec3f& p) override { return move(p); }
    bool move(const SbVec3f& p) override
    {
        m_p = p;
        for (int a = 0; a < 3; ++a)
            if (!(p[a] >= 0 && p[a] <= float(m_n - 1))) return false;
        return true;
    }
    bool evaluate(float& value) override
    {
        int base[3], axes[3] = {0, 1, 2};
        float t[3];
        for (int a = 0; a < 3; ++a) {
            base[a] = std::min(int(m_p[a]), m_n - 2);
            t[a] = m_p[a] - float(base[a]);
        }
        std::sort(axes, axes + 3, [&](int a, int b) { return t[a] > t[b]; });
        const int step[3] = {1, m_n, m_n * m_n};
        int node = (base[2] * m_n + base[1]) * m_n + base[0];
        value = (1 - t[axes[0]]) * m_f[std::size_t(node)];
        for (int s = 0; s < 3; ++s) {
            node += step[axes[s]];
            value += (s < 2 ? t[axes[s]] - t[axes[s + 1]] : t[axes[2]]) * m_f[std::size_t(node)];
        }
        return true;
    }

private:
    const std::vector<float>& m_f;
    int m_n;
    SbVec3f m_p;
};

double distanceToSegments(const SbVec3f& p, const std::vector<std::pair<SbVec3f, SbVec3f>>& segments)
{
    double best = 1e30;
    for (const auto& [a, b] : segments) {
        const SbVec3f ab = b - a;
        const float t = std::clamp(ab.dot(p - a) / std::max(ab.dot(ab), 1e-20f), 0.f, 1.f);
        best = std::min(best, double((a + ab * t - p).length()));
    }
    return best;
}

// On a tilted plane through the Kuhn grid of a bowl, the tetrahedra's segments and the sampled
// lines of the same field lie within a fraction of a sample step of each other.
TEST(IsolinePolygons, TetrahedraCutAsTheSamplingSeesThem)
{
    const int n = 17;
    std::vector<float> f;
    const std::vector<float> xyz = latticeNodes(n, n, n);
    for (std::size_t i = 0; i < xyz.size(); i += 3)
        f.push_back((xyz[i] - 8) * (xyz[i] - 8) + (xyz[i + 1] - 8) * (xyz[i + 1] - 8) + 0.3f * xyz[i + 2]);
    KxHandle<VxTetraScalarField3> field(new VxTetraScalarField3(kuhnGrid(n, true), f));
    const SbVec3f u(1, 0, -0.1f), v(0, 1, -0.05f), centre(8, 8, 6);
    const float values[] = {9.f, 25.f};

    VxIsolineContouring cut, sampled;
    cut.setIsoValues(values, 2);
    cut.doIntersection(*field, centre, u.cross(v), u, v);
    sampled.setIsoValues(values, 2);
    KuhnLocation location(f, n);
    const int res = 225;
    sampled.doGeneric(
        VxIsolineSampling{centre - u * 7 - v * 7, u * (14.f / (res - 1)), v * (14.f / (res - 1)), res},
        KxBox3f(0, 16, 0, 16, 0, 16), location);

    for (int k = 0; k < 2; ++k) {
        std::vector<std::pair<SbVec3f, SbVec3f>> cutSegments, sampledSegments;
        const std::vector<Polyline> cutLines = polylines(cut.lines()),
                                    sampledLines = polylines(sampled.lines());
        for (std::size_t i = 0; i < cutLines.size(); ++i)
            if (cut.lines().lineValues[i] == values[k])
                cutSegments.push_back({cutLines[i][0], cutLines[i][1]});
        int loops = 0;
        for (std::size_t i = 0; i < sampledLines.size(); ++i) {
            if (sampled.lines().lineValues[i] != values[k]) continue;
            EXPECT_TRUE(closed(sampledLines[i]));
            ++loops;
            for (std::size_t j = 0; j + 1 < sampledLines[i].size(); ++j)
                sampledSegments.push_back({sampledLines[i][j], sampledLines[i][j + 1]});
        }
        EXPECT_EQ(loops, 1) << values[k];
        ASSERT_GT(cutSegments.size(), 20u) << values[k];
        for (const auto& [a, b] : cutSegments) {
            EXPECT_LT(distanceToSegments(a, sampledSegments), 0.02) << values[k];
            EXPECT_LT(distanceToSegments(b, sampledSegments), 0.02) << values[k];
        }
        for (const auto& s : sampledSegments)
            EXPECT_LT(distanceToSegments(s.first, cutSegments), 0.02) << values[k];
    }
}

} // namespace
