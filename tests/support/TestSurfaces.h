#pragma once
#include <kx/KxMemory.h>
#include <kx/KxVec3.h>

#include <cstdint>
#include <cstring>
#include <vector>

class SoTriSurface;

// A triangle surface as plain arrays, as the surface node and the file formats hold it: three floats
// per vertex and per normal, three indices per triangle.
struct TestMesh
{
    std::vector<float> coords;
    std::vector<float> normals;
    std::vector<int32_t> triangles;

    int numPoints() const { return int(coords.size() / 3); }
    int numTriangles() const { return int(triangles.size() / 3); }
    KxVec3f point(std::size_t v) const { return {coords[3 * v], coords[3 * v + 1], coords[3 * v + 2]}; }
    KxVec3f normal(std::size_t v) const { return {normals[3 * v], normals[3 * v + 1], normals[3 * v + 2]}; }
    KxVec3i triangle(std::size_t t) const
    {
        return {triangles[3 * t], triangles[3 * t + 1], triangles[3 * t + 2]};
    }
};

// Unit-radius sphere from a subdivided icosahedron, centred at the origin, triangles counter-clockwise
// seen from outside, normals pointing out.
TestMesh makeIcosphere(int subdivisions);

// A copy of the values in a block from kxmalloc, as the surface node adopts it.
template <class T> T* copyToBlock(const std::vector<T>& values)
{
    auto* block = static_cast<T*>(kxmalloc(values.size() * sizeof(T)));
    if (block && !values.empty()) std::memcpy(block, values.data(), values.size() * sizeof(T));
    return block;
}

// A surface node that owns copies of the mesh's arrays, handed over through adopt*; the normals as
// many as the mesh has, so that a mesh may leave them out.
SoTriSurface* makeSurface(const TestMesh& mesh);
