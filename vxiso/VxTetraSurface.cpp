#include <vxiso/VxTetraSurface.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxSmallArray.h>
#include <kx/KxVec3.h>

#include <algorithm>
#include <vector>

namespace {

// The crossing edges of each case (bit i set: node i at or above the threshold), as node pairs of
// the tetrahedron, in the order their vertices make the triangles: three edges give (u0, u1, u2),
// four give (u0, u1, u2) and (u2, u3, u0).
//
// Orientation: case 1 fixes it and every other case follows. In a tetrahedron with
// det(P1 - P0, P2 - P0, P3 - P0) > 0 every triangle's normal (u1 - u0) x (u2 - u0) points towards
// the nodes at or above the threshold; in a negatively oriented one it points away from them. A
// mesh whose tetrahedra all have one orientation thus gets a consistently oriented surface.
struct TetraCase
{
    int count;
    signed char edges[4][2];
};
constexpr TetraCase g_tetraCases[16] = {
    {0, {}},
    {3, {{0, 1}, {0, 3}, {0, 2}}},
    {3, {{0, 1}, {1, 2}, {1, 3}}},
    {4, {{1, 2}, {1, 3}, {0, 3}, {0, 2}}},
    {3, {{0, 2}, {2, 3}, {1, 2}}},
    {4, {{0, 1}, {0, 3}, {2, 3}, {1, 2}}},
    {4, {{0, 2}, {2, 3}, {1, 3}, {0, 1}}},
    {3, {{0, 3}, {2, 3}, {1, 3}}},
    {3, {{0, 3}, {1, 3}, {2, 3}}},
    {4, {{1, 3}, {2, 3}, {0, 2}, {0, 1}}},
    {4, {{0, 1}, {1, 2}, {2, 3}, {0, 3}}},
    {3, {{0, 2}, {1, 2}, {2, 3}}},
    {4, {{0, 3}, {1, 3}, {1, 2}, {0, 2}}},
    {3, {{0, 1}, {1, 3}, {1, 2}}},
    {3, {{0, 1}, {0, 2}, {0, 3}}},
    {0, {}},
};

// A grid edge that carries a vertex, kept at its higher-numbered end node.
struct Edge
{
    int32_t node;   // the lower-numbered end node
    int32_t vertex; // the surface vertex on the edge
};

} // namespace

VxTetraSurface VxTetraSurface::extract(const float* nodes, int32_t numNodes, const int32_t* tetras,
                                       std::size_t stride, std::size_t numTetras, const float* values,
                                       float threshold, KxProgressInterface* progress)
{
    VxTetraSurface out;
    // A field without values has no surface.
    const std::size_t T = values ? numTetras : 0;
    std::vector<KxSmallArray<Edge, 6>> edges(static_cast<std::size_t>(numNodes));
    // The upper bounds: four vertices and two triangles a tetrahedron.
    KxDArray<float>& xyz = out.xyz;
    KxDArray<int32_t>& triangles = out.triangles;
    xyz.resize(3 * 4 * T);
    triangles.resize(3 * 2 * T);
    int32_t numVertices = 0;
    std::size_t numTriangles = 0;
    auto node = [nodes](int32_t n) { return KxVec3f(nodes[3 * n], nodes[3 * n + 1], nodes[3 * n + 2]); };

    for (std::size_t t = 0; t < T; ++t) {
        if (progress && (t & 0xffff) == 0) {
            progress->setProgressValue(float(t) / float(T));
            if (progress->wasInterrupted()) throw KxInterrupted();
        }
        const int32_t* tet = tetras + t * stride;
        float s[4];
        int c = 0;
        for (int i = 0; i < 4; ++i) {
            s[i] = values[tet[i]];
            c |= int(s[i] >= threshold) << i;
        }
        if (c == 0 || c == 15) continue;
        // A missing value (NaN) has no place to interpolate to.
        if (s[0] != s[0] || s[1] != s[1] || s[2] != s[2] || s[3] != s[3]) continue;
        const TetraCase& tc = g_tetraCases[c];
        int32_t u[4];
        for (int e = 0; e < tc.count; ++e) {
            const int i = tc.edges[e][0], j = tc.edges[e][1];
            const int32_t a = std::min(tet[i], tet[j]), b = std::max(tet[i], tet[j]);
            KxSmallArray<Edge, 6>& list = edges[std::size_t(b)];
            const Edge* found =
                std::find_if(list.begin(), list.end(), [a](const Edge& x) { return x.node == a; });
            if (found != list.end()) {
                u[e] = found->vertex;
                continue;
            }
            const KxVec3f p = node(tet[i]), q = node(tet[j]);
            const float w = threshold - s[i], d = s[j] - s[i];
            float* v = &xyz[3 * std::size_t(numVertices)];
            v[0] = p.x + w * (q.x - p.x) / d;
            v[1] = p.y + w * (q.y - p.y) / d;
            v[2] = p.z + w * (q.z - p.z) / d;
            list.push_back({a, numVertices});
            u[e] = numVertices++;
        }
        int32_t* tri = &triangles[3 * numTriangles];
        tri[0] = u[0], tri[1] = u[1], tri[2] = u[2];
        ++numTriangles;
        if (tc.count == 4) {
            tri[3] = u[2], tri[4] = u[3], tri[5] = u[0];
            ++numTriangles;
        }
    }
    // A stop asked for during a short run discards it too, as one during a long run does.
    if (progress && progress->wasInterrupted()) throw KxInterrupted();
    xyz.resize(3 * std::size_t(numVertices));
    xyz.shrinkToFit();
    triangles.resize(3 * numTriangles);
    triangles.shrinkToFit();
    out.numVertices = numVertices;
    out.numTriangles = numTriangles;
    return out;
}
