#pragma once
// Tetrahedral and hexahedral grids on the unit lattice, for the grid and module tests.
#include <vx/VxHexaGrid.h>
#include <vx/VxTetraGrid.h>

#include <algorithm>
#include <vector>

namespace vxtest {

inline KxVec3f cross(const KxVec3f& a, const KxVec3f& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// nx * ny * nz nodes at integer positions, numbered x fastest.
inline std::vector<float> latticeNodes(int nx, int ny, int nz)
{
    std::vector<float> xyz;
    for (int k = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) xyz.insert(xyz.end(), {float(i), float(j), float(k)});
    return xyz;
}

// Each cube of the n^3 lattice cut into six tetrahedra along its diagonal (Kuhn's subdivision: one
// tetrahedron per order of the axes, so neighbouring cubes agree on their shared faces). Half of
// them are negatively oriented; `positive` swaps their nodes 1 and 2.
inline VxTetraGrid* kuhnGrid(int n, bool positive)
{
    std::vector<int32_t> tets;
    const int axes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    const int step[3] = {1, n, n * n};
    for (int k = 0; k + 1 < n; ++k)
        for (int j = 0; j + 1 < n; ++j)
            for (int i = 0; i + 1 < n; ++i)
                for (int p = 0; p < 6; ++p) {
                    int32_t v[4] = {int32_t((k * n + j) * n + i)};
                    for (int s = 0; s < 3; ++s) v[s + 1] = v[s] + step[axes[p][s]];
                    // The order of the axes is even for p = 0, 3, 4: those tetrahedra are positive.
                    if (positive && (p == 1 || p == 2 || p == 5)) std::swap(v[1], v[2]);
                    tets.insert(tets.end(), v, v + 4);
                }
    return new VxTetraGrid(latticeNodes(n, n, n), tets);
}

// nx * ny * nz unit hexahedra, cells numbered x fastest, nodes as the marching-cubes cell has them.
inline VxHexaGrid* hexaBlock(int nx, int ny, int nz)
{
    const int corners[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                               {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    std::vector<int32_t> cells;
    for (int k = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i)
                for (const int* c : corners)
                    cells.push_back(int32_t(((k + c[2]) * (ny + 1) + j + c[1]) * (nx + 1) + i + c[0]));
    return new VxHexaGrid(latticeNodes(nx + 1, ny + 1, nz + 1), cells);
}

} // namespace vxtest
