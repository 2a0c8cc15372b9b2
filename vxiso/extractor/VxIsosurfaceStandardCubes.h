#pragma once
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxDArray.h>

namespace vxiso {

// Vertex policy without sharing: every cut edge gets the exact intersection, appended in order of
// first creation; nothing is merged or moved, even at t = 0 or t = 1.
template <class Tools> class VxIsosurfaceStandardCubes
{
public:
    KxDArray<KxVec3f> coords;
    KxDArray<KxVec3f> normals;
    KxDArray<KxVec3i> triangles;

    // Normals are stored at unit length as they are made, and every triangle has three distinct
    // vertices (one per cut edge): the hand-over passes over neither array.
    static constexpr bool snapsVertices = false;
    // No vertex is recorded for the edges a cell takes from its neighbours.
    static constexpr bool recordsEdges = false;

    KxDArray<KxVec3f>& vertexCoords() { return coords; }
    KxDArray<KxVec3f>& vertexNormals() { return normals; }
    KxDArray<KxVec3i>& triangleArray() { return triangles; }

    template <class UserData> void beginBox(const Tools&, const KxBox3i&, UserData&) {}

    template <class UserData> void reserve(uint64_t vertices, uint64_t triangleCount, UserData&)
    {
        coords.reserve(vertices);
        normals.reserve(vertices);
        triangles.reserve(triangleCount);
    }

    template <class UserData>
    [[gnu::always_inline]] int addNode(const Tools& tools, const KxBox3i&, const KxVec3i& cell, int edge,
                                       UserData&)
    {
        KxVec3f p, n;
        Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const int index = int(coords.size());
        coords.push_back(p);
        normals.push_back(tools::unitNormal(n));
        return index;
    }

    // A vertex on edge 6, 7 or 12 of a cell with a neighbour below on every axis: as any other.
    template <class UserData>
    [[gnu::always_inline]] int addOwnNode(const Tools& tools, const KxBox3i& box, const KxVec3i& cell,
                                          int edge, UserData& u)
    {
        return addNode(tools, box, cell, edge, u);
    }

    template <class UserData>
    void edgeVertex(const Tools&, const KxBox3i&, const KxVec3i&, int, int, UserData&)
    {
    }

    template <class UserData>
    void addTriangle(const Tools&, const KxVec3i&, const int*, const KxVec3i& t, UserData&)
    {
        triangles.push_back(t);
    }

    // All triangles of a cell's case at once (no filter): while the array has room, four are
    // written whatever their count and the count is kept, fixed work instead of a loop whose
    // length the case decides; the writes past the count are overwritten by the next cell.
    static constexpr bool addsCaseTriangles = true;
    template <class UserData>
    [[gnu::always_inline]] void addCaseTriangles(const Tools&, const KxVec3i&, const int* row,
                                                 const int* edge, bool, UserData&)
    {
        const int n = row[tables::TRIANGLE_COUNT];
        const int* e = row + tables::TRIANGLES;
        if (__builtin_expect(n <= 4 && triangles.capacity() - triangles.size() >= 4, 1)) {
            KxVec3i* out = triangles.end();
            for (int t = 0; t < 4; ++t, e += 3) out[t] = KxVec3i(edge[e[0]], edge[e[1]], edge[e[2]]);
            triangles.resize(triangles.size() + std::size_t(n));
            return;
        }
        for (int t = 0; t < n; ++t, e += 3) triangles.push_back(KxVec3i(edge[e[0]], edge[e[1]], edge[e[2]]));
    }

    void finish() {}
    uint64_t degenerateCount() const { return 0; }
};

} // namespace vxiso
