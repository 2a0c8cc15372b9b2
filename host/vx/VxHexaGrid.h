#pragma once
#include <vx/VxUnstructuredGrid.h>

#include <mutex>

// A grid of hexahedra, eight node indices each: nodes 0 to 3 are one face in cyclic order, 4 to 7
// the opposite face with node 4 over node 0, 5 over 1, and so on.
//
// The grid also knows its faces: each face once, with its four nodes and the one or two cells on
// its sides. The list is made on first use and kept.
class VxHexaGrid : public VxUnstructuredGrid
{
    KX_HEADER(VxHexaGrid)

public:
    struct Hexa
    {
        int32_t nodes[8];
    };
    // The nodes run so that (f1 - f0) x (f2 - f0) points out of cells[0] when that hexahedron is
    // positively oriented: its face 4..7 on the side to which 0..3 turns by the right-hand rule.
    // cells[1] is NO_CELL on the boundary.
    struct Face
    {
        int32_t nodes[4];
        uint32_t cells[2];
    };
    static constexpr uint32_t NO_CELL = ~0u;
    // The faces of a hexahedron as its own node numbers, each in the order described at Face.
    static const int g_faceNodes[6][4];

    // Nodes as x, y, z triples; eight node indices a hexahedron. Throws KxException with a one-line
    // reason when the counts do not divide or an index is not a node.
    VxHexaGrid(std::vector<float> xyz, const std::vector<int32_t>& hexaNodes);

    int32_t getNumHexas() const { return int32_t(m_hexas.size()); }
    const Hexa* getHexas() const { return m_hexas.data(); }
    const Hexa& getHexa(int32_t i) const { return m_hexas[std::size_t(i)]; }

    // The faces in the order in which they first occur when going through the hexahedra in grid
    // order and through each one's faces in the order of g_faceNodes; a face takes its nodes from
    // that first cell, which becomes cells[0]. A face of more than two cells (a non-manifold mesh)
    // pairs its first two and counts as boundary for the others. Safe to call from any thread.
    const std::vector<Face>& getFaces() const;

protected:
    int64_t numCells() const override { return int64_t(m_hexas.size()); }
    int cellSize() const override { return 8; }
    const int32_t* cellNodes(int64_t c) const override { return m_hexas[std::size_t(c)].nodes; }

private:
    void buildFaces() const;

    std::vector<Hexa> m_hexas;
    mutable std::vector<Face> m_faces;
    mutable std::once_flag m_facesBuilt;
};
