// Grids of tetrahedra and hexahedra and the fields on them: what bad arrays are told, which cells
// neighbour each other, and the hexahedral grid's faces.
#include "../support/TestCellGrids.h"

#include <vx/VxHexaScalarField3.h>
#include <vx/VxTetraScalarField3.h>

#include <kx/KxException.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

namespace {

using namespace vxtest;

std::string messageOf(const std::function<void()>& make)
{
    try {
        make();
        return "accepted";
    } catch (const KxException& e) {
        return e.text().toStdString();
    }
}

TEST(CellGrid, BadArraysAreRefusedWithTheReason)
{
    const std::vector<float> tet = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    const struct
    {
        std::vector<float> xyz;
        std::vector<int32_t> cells;
        const char* message;
    } grids[] = {
        {{0, 0, 0, 1}, {}, "tetrahedral grid: 4 coordinates do not make whole nodes (3 a node)"},
        {{0, 0, 0, 1, NAN, 0}, {}, "tetrahedral grid: node 1 has a coordinate that is not a finite number"},
        {tet, {0, 1, 2}, "tetrahedral grid: 3 node indices do not make whole tetrahedra (4 a tetrahedron)"},
        {tet,
         {0, 1, 2, 3, 0, 1, 2, 4},
         "tetrahedral grid: tetrahedron 1 uses node 4, but the nodes are 0 to 3"},
        {tet, {0, -1, 2, 3}, "tetrahedral grid: tetrahedron 0 uses node -1, but the nodes are 0 to 3"},
        {{}, {0, 0, 0, 0}, "tetrahedral grid: tetrahedron 0 uses node 0, but the grid has no nodes"},
    };
    for (const auto& c : grids) EXPECT_EQ(messageOf([&] { VxTetraGrid(c.xyz, c.cells); }), c.message);
    EXPECT_EQ(messageOf([] {
                  VxHexaGrid(latticeNodes(2, 2, 2), {0, 1, 3, 2, 4, 5, 7, 8});
              }),
              "hexahedral grid: hexahedron 0 uses node 8, but the nodes are 0 to 7");

    KxHandle<VxTetraGrid> grid(new VxTetraGrid(tet, {0, 1, 2, 3}));
    const struct
    {
        std::vector<float> values;
        int encoding;
        const char* message;
    } fields[] = {
        {{1, 2, 3}, 0, "tetrahedral field: 3 values for 4 nodes"},
        {{1, 2}, 1, "tetrahedral field: 2 values for 4 tetrahedron corners"},
        {{1, 2}, 2, "tetrahedral field: 2 values for 1 tetrahedra"},
        {{},
         3,
         "tetrahedral field: unknown encoding 3 (0 per node, 1 per tetrahedron corner, 2 per tetrahedron)"},
    };
    for (const auto& c : fields)
        EXPECT_EQ(messageOf([&] { VxTetraScalarField3(grid.get(), c.values, c.encoding); }), c.message);
}

TEST(CellGrid, TetrahedraKnowTheirNeighboursAcrossEachFace)
{
    KxHandle<VxTetraGrid> g(kuhnGrid(2, false));
    int boundary = 0;
    for (int32_t t = 0; t < g->getNumTetras(); ++t)
        for (int i = 0; i < 4; ++i) {
            const VxTetraGrid::Tetra& a = g->getTetra(t);
            // The neighbour across the face opposite node i holds that face's three nodes.
            int32_t expected = -1;
            for (int32_t u = 0; u < g->getNumTetras(); ++u) {
                int shared = 0;
                for (int j = 0; j < 4; ++j)
                    for (int32_t n : g->getTetra(u).nodes) shared += j != i && n == a.nodes[j];
                if (u != t && shared == 3) expected = u;
            }
            EXPECT_EQ(a.neighbours[i], expected) << "tetrahedron " << t << " face " << i;
            boundary += expected < 0;
        }
    EXPECT_EQ(boundary, 12) << "two triangles on each side of the cube";
    EXPECT_EQ(g->countNegativelyOriented(), 3) << "the odd permutations of the axes";
}

TEST(CellGrid, HexahedralFacesComeOnceInOrderOfFirstUseTurnedOutOfTheirFirstCell)
{
    KxHandle<VxHexaGrid> g(hexaBlock(3, 2, 2));
    const std::vector<VxHexaGrid::Face>& faces = g->getFaces();
    ASSERT_EQ(faces.size(), std::size_t(4 * 2 * 2 + 3 * 3 * 2 + 3 * 2 * 3));
    int inner = 0;
    for (std::size_t f = 0; f < faces.size(); ++f) {
        const VxHexaGrid::Face& face = faces[f];
        EXPECT_LE(faces[f ? f - 1 : 0].cells[0], face.cells[0]) << "face " << f;
        inner += face.cells[1] != VxHexaGrid::NO_CELL;
        EXPECT_TRUE(face.cells[1] == VxHexaGrid::NO_CELL || face.cells[0] < face.cells[1]) << "face " << f;
        // The normal points from the first cell's centre towards the face.
        const KxVec3f p0 = g->getNode(face.nodes[0]), p1 = g->getNode(face.nodes[1]),
                      p2 = g->getNode(face.nodes[2]);
        const KxVec3f n = cross(p1 - p0, p2 - p0);
        KxVec3f centre(0, 0, 0);
        for (int32_t v : g->getHexa(int32_t(face.cells[0])).nodes) centre = centre + g->getNode(v) * 0.125f;
        EXPECT_GT(n.dot((p0 + p2) * 0.5f - centre), 0.f) << "face " << f;
    }
    EXPECT_EQ(inner, 2 * 2 * 2 + 3 * 1 * 2 + 3 * 2 * 1);
}

} // namespace
