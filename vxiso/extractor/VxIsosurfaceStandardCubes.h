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
    int addNode(const Tools& tools, const KxBox3i&, const KxVec3i& cell, int edge, UserData&)
    {
        KxVec3f p, n;
        Tools::Intersection::compute(tools.accessor, tools.iso, cell, edge, p, n);
        const int index = int(coords.size());
        coords.push_back(p);
        normals.push_back(tools::unitNormal(n));
        return index;
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

    void finish() {}
    uint64_t degenerateCount() const { return 0; }
};

} // namespace vxiso
