#include <vx/VxTetraGrid.h>

#include <algorithm>
#include <array>

KX_ABSTRACT_SOURCE(VxTetraGrid, VxUnstructuredGrid)

VxTetraGrid::VxTetraGrid(std::vector<float> xyz, const std::vector<int32_t>& tetraNodes)
    : VxUnstructuredGrid("tetrahedral grid", std::move(xyz))
{
    const int32_t n = checkCells(tetraNodes, 4, "tetrahedron", "tetrahedra");
    m_tetras.resize(std::size_t(n));
    for (int32_t t = 0; t < n; ++t)
        for (int i = 0; i < 4; ++i) {
            m_tetras[std::size_t(t)].nodes[i] = tetraNodes[4 * std::size_t(t) + std::size_t(i)];
            m_tetras[std::size_t(t)].neighbours[i] = NO_NEIGHBOUR;
        }
    findNeighbours();
}

// Every face is keyed by its sorted nodes; after sorting the keys, the two tetrahedra of an inner
// face sit side by side. Sorting (rather than hashing) keeps the pairing independent of memory
// layout. A face that more than two tetrahedra share (a non-manifold mesh) pairs its first two in
// grid order and leaves the others at the boundary.
void VxTetraGrid::findNeighbours()
{
    struct FaceKey
    {
        std::array<int32_t, 3> nodes;
        int64_t slot; // 4 * tetrahedron + the node opposite the face
        bool operator<(const FaceKey& o) const { return nodes != o.nodes ? nodes < o.nodes : slot < o.slot; }
    };
    std::vector<FaceKey> keys(m_tetras.size() * 4);
    for (std::size_t t = 0; t < m_tetras.size(); ++t)
        for (int i = 0; i < 4; ++i) {
            FaceKey& k = keys[4 * t + std::size_t(i)];
            for (int j = 0, m = 0; j < 4; ++j)
                if (j != i) k.nodes[std::size_t(m++)] = m_tetras[t].nodes[j];
            std::sort(k.nodes.begin(), k.nodes.end());
            k.slot = int64_t(4 * t) + i;
        }
    std::sort(keys.begin(), keys.end());
    for (std::size_t i = 0; i + 1 < keys.size();) {
        std::size_t j = i + 1;
        while (j < keys.size() && keys[j].nodes == keys[i].nodes) ++j;
        const int64_t a = keys[i].slot, b = keys[i + 1].slot;
        // A tetrahedron with repeated nodes may meet itself; that is no neighbour.
        if (j - i >= 2 && a / 4 != b / 4) {
            m_tetras[std::size_t(a / 4)].neighbours[a % 4] = int32_t(b / 4);
            m_tetras[std::size_t(b / 4)].neighbours[b % 4] = int32_t(a / 4);
        }
        i = j;
    }
}

double VxTetraGrid::orientation(int32_t tetra) const
{
    const Tetra& t = getTetra(tetra);
    const KxVec3f p0 = getNode(t.nodes[0]);
    double e[3][3];
    for (int i = 0; i < 3; ++i) {
        const KxVec3f p = getNode(t.nodes[i + 1]);
        e[i][0] = double(p.x) - p0.x, e[i][1] = double(p.y) - p0.y, e[i][2] = double(p.z) - p0.z;
    }
    return e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) -
           e[0][1] * (e[1][0] * e[2][2] - e[1][2] * e[2][0]) +
           e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0]);
}

int32_t VxTetraGrid::countNegativelyOriented() const
{
    int32_t n = 0;
    for (int32_t t = 0; t < getNumTetras(); ++t) n += orientation(t) < 0;
    return n;
}
