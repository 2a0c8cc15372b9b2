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

// Each face goes to the bucket of its smallest node (a counting sort: two passes, no comparisons),
// and each bucket, a few dozen faces, is sorted by the other two nodes, so the two tetrahedra of an
// inner face sit side by side. Unlike a hash table this keeps the pairing independent of memory
// layout, and it takes a fraction of the time of sorting all faces at once. A face that more than
// two tetrahedra share (a non-manifold mesh) pairs its first two in grid order and leaves the
// others at the boundary.
void VxTetraGrid::findNeighbours()
{
    struct Face
    {
        int32_t b, c; // the face's other two nodes, b <= c
        int32_t tetra;
        int32_t opposite; // the tetrahedron's node opposite the face
        bool operator<(const Face& o) const
        {
            return b != o.b           ? b < o.b
                   : c != o.c         ? c < o.c
                   : tetra != o.tetra ? tetra < o.tetra
                                      : opposite < o.opposite;
        }
    };
    auto sorted = [this](std::size_t t, int i) {
        std::array<int32_t, 3> f;
        for (int j = 0, m = 0; j < 4; ++j)
            if (j != i) f[std::size_t(m++)] = m_tetras[t].nodes[j];
        if (f[0] > f[1]) std::swap(f[0], f[1]);
        if (f[1] > f[2]) std::swap(f[1], f[2]);
        if (f[0] > f[1]) std::swap(f[0], f[1]);
        return f;
    };
    std::vector<std::size_t> start(std::size_t(getNumNodes()) + 1, 0);
    for (std::size_t t = 0; t < m_tetras.size(); ++t)
        for (int i = 0; i < 4; ++i) ++start[std::size_t(sorted(t, i)[0]) + 1];
    for (std::size_t n = 1; n < start.size(); ++n) start[n] += start[n - 1];
    std::vector<Face> faces(4 * m_tetras.size());
    {
        std::vector<std::size_t> next(start.begin(), start.end() - 1);
        for (std::size_t t = 0; t < m_tetras.size(); ++t)
            for (int i = 0; i < 4; ++i) {
                const std::array<int32_t, 3> f = sorted(t, i);
                faces[next[std::size_t(f[0])]++] = {f[1], f[2], int32_t(t), i};
            }
    }
    for (std::size_t n = 0; n + 1 < start.size(); ++n) {
        Face* first = faces.data() + start[n];
        Face* last = faces.data() + start[n + 1];
        std::sort(first, last);
        for (Face* f = first; f < last;) {
            Face* end = f + 1;
            while (end < last && end->b == f->b && end->c == f->c) ++end;
            // A tetrahedron with repeated nodes may meet itself; that is no neighbour.
            if (end - f >= 2 && f[0].tetra != f[1].tetra) {
                m_tetras[std::size_t(f[0].tetra)].neighbours[f[0].opposite] = f[1].tetra;
                m_tetras[std::size_t(f[1].tetra)].neighbours[f[1].opposite] = f[0].tetra;
            }
            f = end;
        }
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
