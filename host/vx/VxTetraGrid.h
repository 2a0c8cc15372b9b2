#pragma once
#include <vx/VxUnstructuredGrid.h>

// A grid of tetrahedra. Each tetrahedron is a record of eight 32-bit integers: its four nodes, then
// its neighbours across the faces opposite nodes 0 to 3 (-1 where the face is on the boundary).
class VxTetraGrid : public VxUnstructuredGrid
{
    KX_HEADER(VxTetraGrid)

public:
    struct Tetra
    {
        int32_t nodes[4];
        int32_t neighbours[4];
    };
    static constexpr int32_t NO_NEIGHBOUR = -1;

    // Nodes as x, y, z triples; four node indices a tetrahedron. Computes the neighbours. Throws
    // KxException with a one-line reason when the counts do not divide or an index is not a node.
    VxTetraGrid(std::vector<float> xyz, const std::vector<int32_t>& tetraNodes);

    int32_t getNumTetras() const { return int32_t(m_tetras.size()); }
    const Tetra* getTetras() const { return m_tetras.data(); }
    const Tetra& getTetra(int32_t i) const { return m_tetras[std::size_t(i)]; }

    // Six times the signed volume: det(P1 - P0, P2 - P0, P3 - P0), in double precision.
    double orientation(int32_t tetra) const;
    // Tetrahedra whose orientation is negative (their nodes given in the other order).
    int32_t countNegativelyOriented() const;

protected:
    int64_t numCells() const override { return int64_t(m_tetras.size()); }
    int cellSize() const override { return 4; }
    const int32_t* cellNodes(int64_t c) const override { return m_tetras[std::size_t(c)].nodes; }

private:
    void findNeighbours();

    std::vector<Tetra> m_tetras;
};
