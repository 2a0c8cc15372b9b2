// The isosurface modules of tetrahedral and hexahedral grids, driven by scripts as users drive them:
// topology and orientation of the tetrahedral surface, per-cell data, and the hexahedral surface
// against the regular-lattice engine on the same values.
#include "../support/TestCellGrids.h"
#include "../support/TestFields.h"
#include "PackageSuite.h"

#include <vxiso/VxIsoHexa.h>
#include <vxiso/VxIsoTetra.h>

#include <kx/KxProgressInterface.h>

#include <cmath>
#include <random>
#include <set>

namespace {

using namespace vxtest;

using CellModule = PackageSuite;

TestMesh surfaceOf(const char* module)
{
    return meshOf(*object<VxTriBase>(module)->getTriSurface());
}

// VxIsoTetra "iso" on values per node of the grid.
TestMesh tetraSurface(VxTetraGrid* grid, const std::vector<float>& values, float threshold)
{
    tcl("remove -all");
    addObject(new VxTetraScalarField3(grid, values, VxTetraScalarField3::PER_NODE), "field");
    tcl(QString("create VxIsoTetra iso; iso data connect field; iso threshold setMinMax -100 100; "
                "iso threshold setValue %1")
            .arg(double(threshold), 0, 'g', 9));
    return surfaceOf("iso");
}

// Walks the tetrahedra as the module does (a node at or above the threshold is above; one
// triangle for one node apart, two for two) and checks each triangle: its normal points towards
// the nodes above in a positively oriented tetrahedron, away from them in a negative one. Flat
// tetrahedra and triangles have no orientation to check. There must be one vertex per cut edge.
::testing::AssertionResult followsOrientationRule(const VxTetraGrid& g, const std::vector<float>& v,
                                                  float iso, const TestMesh& m)
{
    int t = 0;
    std::set<std::pair<int32_t, int32_t>> cut;
    for (int32_t c = 0; c < g.getNumTetras(); ++c) {
        const int32_t* n = g.getTetra(c).nodes;
        KxVec3f above(0, 0, 0);
        int count = 0;
        for (int i = 0; i < 4; ++i) {
            if (v[std::size_t(n[i])] >= iso) above = above + g.getNode(n[i]), ++count;
            for (int j = i + 1; j < 4; ++j)
                if ((v[std::size_t(n[i])] >= iso) != (v[std::size_t(n[j])] >= iso))
                    cut.insert({std::min(n[i], n[j]), std::max(n[i], n[j])});
        }
        const int triangles = count == 2 ? 2 : count % 4 ? 1 : 0;
        const double sign = g.orientation(c);
        for (int k = 0; k < triangles; ++k, ++t) {
            if (t >= m.numTriangles()) return ::testing::AssertionFailure() << "too few triangles";
            const KxVec3i tri = m.triangle(std::size_t(t));
            const KxVec3f u0 = m.point(std::size_t(tri.x)), u1 = m.point(std::size_t(tri.y)),
                          u2 = m.point(std::size_t(tri.z));
            const KxVec3f normal = cross(u1 - u0, u2 - u0);
            const double towards = normal.dot(above * (1.f / float(count)) - (u0 + u1 + u2) * (1.f / 3.f));
            if (sign != 0 && normal != KxVec3f(0, 0, 0) && !(towards * sign > 0))
                return ::testing::AssertionFailure() << "triangle " << t << " of tetrahedron " << c << " ("
                                                     << count << " nodes above) points the wrong way";
        }
    }
    if (t != m.numTriangles())
        return ::testing::AssertionFailure() << m.numTriangles() << " triangles, not " << t;
    if (std::size_t(m.numPoints()) != cut.size())
        return ::testing::AssertionFailure()
               << m.numPoints() << " vertices on " << cut.size() << " cut edges";
    return ::testing::AssertionSuccess();
}

TEST_F(CellModule, TetraSurfaceOfABallIsClosedWithOneVertexPerCutEdgeAndOriented)
{
    for (bool positive : {true, false}) {
        KxHandle<VxTetraGrid> g(kuhnGrid(9, positive));
        std::vector<float> v;
        for (int32_t n = 0; n < g->getNumNodes(); ++n) {
            const KxVec3f p = g->getNode(n);
            v.push_back(float(sphere(3.6, 4.3, 3.9, 2.7)(p.x, p.y, p.z)));
        }
        const TestMesh m = tetraSurface(g.get(), v, 0.f);
        ASSERT_GT(m.numTriangles(), 100);
        EXPECT_TRUE(followsOrientationRule(*g, v, 0.f, m));
        // With every tetrahedron positive the rule gives one orientation to the whole surface.
        if (positive) {
            EXPECT_TRUE(isWatertight(m));
        }
    }
}

// One tetrahedron for each case, positively and negatively oriented, plus nodes exactly at the
// threshold (above), a flat tetrahedron and one with a repeated node (no crash, no orientation).
TEST_F(CellModule, TetraEveryCaseFollowsTheOrientationRule)
{
    for (float mirror : {1.f, -1.f}) {
        std::vector<float> xyz, v;
        std::vector<int32_t> tets;
        auto add = [&](const float(&p)[4][3], const float(&s)[4], const int32_t(&local)[4]) {
            const int32_t base = int32_t(v.size());
            for (int i = 0; i < 4; ++i) {
                xyz.insert(xyz.end(), {p[i][0] * mirror + float(base), p[i][1], p[i][2]});
                v.push_back(s[i]);
                tets.push_back(base + local[i]);
            }
        };
        const float unit[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        for (int c = 1; c < 15; ++c) {
            float s[4];
            for (int i = 0; i < 4; ++i) s[i] = (c >> i & 1 ? 1.f : -1.f) * (1.f + 0.3f * float(i));
            add(unit, s, {0, 1, 2, 3});
        }
        add(unit, {0.f, -1.f, -1.f, -1.f}, {0, 1, 2, 3});
        add(unit, {0.f, 1.f, 0.f, -2.f}, {0, 1, 2, 3});
        add({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {1.f, -1.f, 2.f, -3.f}, {0, 1, 2, 3});
        add(unit, {1.f, -1.f, 2.f, -3.f}, {0, 1, 1, 3});
        KxHandle<VxTetraGrid> g(new VxTetraGrid(xyz, tets));
        const TestMesh m = tetraSurface(g.get(), v, 0.f);
        EXPECT_EQ(m.numTriangles(), 8 * 1 + 6 * 2 + 1 + 1 + 2 + 1) << "mirror " << mirror;
        EXPECT_TRUE(followsOrientationRule(*g, v, 0.f, m)) << "mirror " << mirror;
    }
}

TEST_F(CellModule, TetraValuesPerCellAreAveragedToTheNodes)
{
    // Two tetrahedra on the face 0 1 2; node 5 belongs to neither.
    KxHandle<VxTetraGrid> g(
        new VxTetraGrid({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, -1, 5, 5, 5}, {0, 1, 2, 3, 0, 2, 1, 4}));
    const struct
    {
        std::vector<float> values;
        int encoding;
        std::vector<float> nodes;
        float iso;
    } cases[] = {{{1, 3}, 2, {2, 2, 2, 1, 3, 0}, 1.5f},
                 {{1, 2, 3, 4, 5, 6, 7, 8}, 1, {3, 4.5f, 4.5f, 4, 8, 0}, 5.f}};
    for (const auto& c : cases) {
        tcl("remove -all");
        addObject(new VxTetraScalarField3(g.get(), c.values, c.encoding), "cells");
        tcl(QString("create VxIsoTetra iso; iso data connect cells; iso threshold setMinMax 0 10; "
                    "iso threshold setValue %1")
                .arg(double(c.iso)));
        const KxDArray<float>& nodes = object<VxIsoTetra>("iso")->getNodeValues();
        EXPECT_EQ(std::vector<float>(nodes.begin(), nodes.end()), c.nodes) << "encoding " << c.encoding;
        const TestMesh fromCells = surfaceOf("iso");
        EXPECT_GT(fromCells.numTriangles(), 0);
        EXPECT_TRUE(sameBytes(fromCells, tetraSurface(g.get(), c.nodes, c.iso)));
    }
}

TEST_F(CellModule, PortsCommandsAndSavedLines)
{
    EXPECT_EQ(tcl("create VxIsoTetra t; t ports"),
              "data buffer colormap drawStyle threshold pointProbe action");
    EXPECT_EQ(tcl("create VxIsoHexa h; h ports"), "data buffer colormap drawStyle threshold average doIt");
    EXPECT_EQ(tcl("list [h Average getValue] [h average isVisible] [h xxx]"), "1 0 {}");

    // No values: an empty surface and nothing to complain about. The threshold's range is the data's.
    KxHandle<VxTetraGrid> g(kuhnGrid(3, true));
    addObject(new VxTetraScalarField3(g.get(), {}, 0), "empty");
    std::vector<float> ramp(std::size_t(g->getNumNodes()), 2.f);
    ramp[5] = 8.5f, ramp[6] = NAN;
    addObject(new VxTetraScalarField3(g.get(), ramp, 0), "ramp");
    tcl("t data connect empty");
    EXPECT_EQ(tcl("t getNumTriangles"), "0");
    tcl("t data connect ramp; t threshold resetRange");
    EXPECT_EQ(
        tcl("list [t threshold getMinValue] [t threshold getMaxValue] [expr {[t getNumTriangles] > 0}]"),
        "2 8.5 1");

    EXPECT_EQ(savedPorts(*object<VxModule>("t")).find("snap"), std::string::npos);
    tcl("t action snap 0 0");
    EXPECT_NE(savedPorts(*object<VxModule>("t")).find("\"t\" action  snap 0 0\n"), std::string::npos);

    KxHandle<VxHexaGrid> h(hexaBlock(2, 1, 1));
    addObject(new VxHexaScalarField3(h.get(), std::vector<float>(16, 1.f), 1), "corners");
    addObject(new VxHexaScalarField3(h.get(), {}, 0), "none");
    EXPECT_EQ(savedPorts(*object<VxModule>("h")).find("doIt hit"), std::string::npos);
    tcl("h data connect corners");
    EXPECT_EQ(messages()->errors(), QStringList{"HexaIsosurface: unsupported encoding type"});
    tcl("h data connect none");
    EXPECT_EQ(messages()->lines().last(), "Isosurface contains 0 triangles.");
    EXPECT_NE(savedPorts(*object<VxModule>("h")).find("\"h\" doIt hit\n"), std::string::npos);
}

TEST_F(CellModule, HexaSurfaceOnALatticeIsTheRegularEnginesSurface)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> uniform(0.f, 1.f);
    std::vector<float> values;
    KxHandle<VxRegScalarField3> lattice(makeField<float>(9, 8, 7, [&](double, double, double) {
        values.push_back(uniform(random));
        return values.back();
    }));
    const TestMesh expected = extract(*lattice, 0.5f);
    KxHandle<VxHexaGrid> g(hexaBlock(8, 7, 6));
    addObject(new VxHexaScalarField3(g.get(), values, 0), "nodes");
    tcl("create VxIsoHexa h; h data connect nodes; h threshold setMinMax 0 1; h threshold setValue 0.5");
    const TestMesh m = surfaceOf("h");
    ASSERT_GT(expected.numTriangles(), 500);
    EXPECT_EQ(m.numTriangles(), expected.numTriangles());
    EXPECT_EQ(messages()->lines().last(), QString("Isosurface contains %1 triangles.").arg(m.numTriangles()));
}

TEST_F(CellModule, HexaEqualValuesCountAsBelowAndNearlyEqualEndsMeetHalfway)
{
    // A unit cube, and a hexahedron squashed into one point.
    std::vector<float> xyz = latticeNodes(2, 2, 2);
    for (int i = 0; i < 8; ++i) xyz.insert(xyz.end(), {5, 5, 5});
    std::vector<int32_t> cells = {0, 1, 3, 2, 4, 5, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    std::vector<float> v(16, 0.f);
    v[0] = 1e-9f, v[8] = 1.f;
    addObject(new VxHexaScalarField3(new VxHexaGrid(xyz, cells), v, 0), "f");
    tcl("create VxIsoHexa h; h data connect f; h threshold setValue 0");
    const TestMesh m = surfaceOf("h");
    // Node 0 alone above: the vertices halfway along edges 1, 4 and 9, then the squashed cell's.
    EXPECT_EQ(m.coords, (std::vector<float>{0.5f, 0, 0, 0, 0.5f, 0, 0, 0, 0.5f, 5, 5, 5, 5, 5, 5, 5, 5, 5}));
    EXPECT_EQ(m.numTriangles(), 2);
}

TEST_F(CellModule, BlockySurfaceLiesOnInteriorFacesFacingTheHigherCell)
{
    KxHandle<VxHexaGrid> g(hexaBlock(3, 3, 3));
    std::vector<float> cells(27, 0.f);
    cells[13] = 1.f; // the centre, six inner faces
    cells[0] = 1.f;  // a corner: three inner faces, three on the boundary
    addObject(new VxHexaScalarField3(g.get(), cells, 2), "cells");
    tcl("create VxIsoHexa h; h data connect cells; h average setValue 0 0; h threshold setValue 0.5");
    const TestMesh m = surfaceOf("h");
    EXPECT_EQ(m.numPoints(), 64);
    ASSERT_EQ(m.numTriangles(), 2 * (6 + 3));
    for (int t = 0; t < m.numTriangles(); ++t) {
        const KxVec3i tri = m.triangle(std::size_t(t));
        const KxVec3f u0 = m.point(std::size_t(tri.x)), u1 = m.point(std::size_t(tri.y)),
                      u2 = m.point(std::size_t(tri.z));
        const KxVec3f centre = (u0 + u1 + u2) * (1.f / 3.f), normal = cross(u1 - u0, u2 - u0);
        for (int a = 0; a < 3; ++a) EXPECT_TRUE(centre[a] > 0 && centre[a] < 3) << "triangle " << t;
        // A little way along the normal lies a cell above the threshold.
        const KxVec3f ahead = centre + normal * 0.25f;
        const int cell = (int(ahead.z) * 3 + int(ahead.y)) * 3 + int(ahead.x);
        EXPECT_EQ(cells[std::size_t(cell)], 1.f) << "triangle " << t;
    }
}

// Work stopped from outside (the viewer's Stop button): both modules keep their previous surface
// and say why.
TEST_F(CellModule, AnInterruptedExtractionKeepsThePreviousSurface)
{
    Stoppable* progress = installStoppable();
    KxHandle<VxTetraGrid> tetras(kuhnGrid(5, true));
    KxHandle<VxHexaGrid> hexas(hexaBlock(4, 4, 4)); // the same nodes
    std::vector<float> ramp(std::size_t(tetras->getNumNodes()));
    for (std::size_t n = 0; n < ramp.size(); ++n) ramp[n] = tetras->getNode(int32_t(n)).x;
    addObject(new VxTetraScalarField3(tetras.get(), ramp, VxTetraScalarField3::PER_NODE), "t");
    addObject(new VxHexaScalarField3(hexas.get(), ramp, 0), "h");
    for (const char* module : {"VxIsoTetra", "VxIsoHexa"}) {
        tcl(QString(
                "create %1 iso; iso data connect %2; iso threshold setMinMax 0 5; iso threshold setValue 1.5")
                .arg(module, module[5] == 'T' ? "t" : "h"));
        const TestMesh before = surfaceOf("iso");
        ASSERT_GT(before.numTriangles(), 0) << module;
        messages()->clearRecords();
        progress->stop = true;
        tcl("iso threshold setValue 2.5");
        EXPECT_EQ(surfaceOf("iso").coords, before.coords) << module << ": the plane x = 1.5 stays";
        EXPECT_EQ(messages()->errors(), QStringList{"interrupted"}) << module;
        progress->stop = false;
        tcl("remove iso");
    }
}

} // namespace
