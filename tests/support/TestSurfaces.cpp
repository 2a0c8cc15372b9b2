#include "TestSurfaces.h"

#include <oiv/SoTriSurface.h>

#include <cmath>
#include <map>
#include <utility>

namespace {

int midpoint(TestMesh& mesh, std::map<std::pair<int, int>, int>& cache, int a, int b)
{
    const auto key = std::make_pair(std::min(a, b), std::max(a, b));
    if (auto it = cache.find(key); it != cache.end()) return it->second;
    float p[3];
    float len = 0.f;
    for (int c = 0; c < 3; ++c) {
        p[c] = 0.5f * (mesh.coords[size_t(3 * a + c)] + mesh.coords[size_t(3 * b + c)]);
        len += p[c] * p[c];
    }
    len = std::sqrt(len);
    for (float v : p) mesh.coords.push_back(v / len);
    const int index = mesh.numPoints() - 1;
    cache[key] = index;
    return index;
}

} // namespace

TestMesh makeIcosphere(int subdivisions)
{
    const float t = (1.f + std::sqrt(5.f)) / 2.f;
    const float raw[12][3] = {{-1, t, 0},  {1, t, 0},  {-1, -t, 0}, {1, -t, 0}, {0, -1, t},  {0, 1, t},
                              {0, -1, -t}, {0, 1, -t}, {t, 0, -1},  {t, 0, 1},  {-t, 0, -1}, {-t, 0, 1}};
    TestMesh mesh;
    for (const auto& v : raw) {
        const float len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        for (float c : v) mesh.coords.push_back(c / len);
    }
    mesh.triangles = {0, 11, 5,  0, 5,  1, 0, 1, 7, 0, 7,  10, 0, 10, 11, 1, 5, 9, 5, 11,
                      4, 11, 10, 2, 10, 7, 6, 7, 1, 8, 3,  9,  4, 3,  4,  2, 3, 2, 6, 3,
                      6, 8,  3,  8, 9,  4, 9, 5, 2, 4, 11, 6,  2, 10, 8,  6, 7, 9, 8, 1};
    for (int s = 0; s < subdivisions; ++s) {
        std::map<std::pair<int, int>, int> cache;
        std::vector<int32_t> finer;
        for (size_t f = 0; f < mesh.triangles.size(); f += 3) {
            const int a = mesh.triangles[f], b = mesh.triangles[f + 1], c = mesh.triangles[f + 2];
            const int ab = midpoint(mesh, cache, a, b), bc = midpoint(mesh, cache, b, c),
                      ca = midpoint(mesh, cache, c, a);
            finer.insert(finer.end(), {a, ab, ca, b, bc, ab, c, ca, bc, ab, bc, ca});
        }
        mesh.triangles = std::move(finer);
    }
    // On a unit sphere the outward normal is the position.
    mesh.normals = mesh.coords;
    return mesh;
}

SoTriSurface* makeSurface(const TestMesh& mesh)
{
    auto* surface = new SoTriSurface;
    surface->adoptCoords(mesh.numPoints(), copyToBlock(mesh.coords));
    surface->adoptNormals(int(mesh.normals.size() / 3), copyToBlock(mesh.normals));
    surface->adoptTriangles(mesh.numTriangles(), copyToBlock(mesh.triangles));
    return surface;
}
