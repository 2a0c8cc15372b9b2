#pragma once
// Fields and mesh checks shared by the engine tests.
#include "TestSurfaces.h"

#include <oiv/SoTriSurface.h>
#include <vx/VxCoord3.h>
#include <vx/VxRegScalarField3.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace vxtest {

using FieldFunc = std::function<double(double x, double y, double z)>;

// A uniform field of element type T sampling f at node positions of the box [0, n-1] * spacing,
// values rounded for integer types.
template <class T>
VxUniformScalarField3* makeField(int nx, int ny, int nz, const FieldFunc& f, float spacing = 1.f)
{
    auto* data = static_cast<T*>(kxmalloc(sizeof(T) * std::size_t(nx) * std::size_t(ny) * std::size_t(nz)));
    for (int k = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) {
                const double v = f(i * spacing, j * spacing, k * spacing);
                data[(std::size_t(k) * std::size_t(ny) + std::size_t(j)) * std::size_t(nx) + std::size_t(i)] =
                    std::is_floating_point<T>::value ? T(v) : T(std::lround(v));
            }
    auto* field = new VxUniformScalarField3(KxDim3l(nx, ny, nz), KxPrimType(KxPrimTypeOf<T>::value), data);
    field->setBoundingBox(KxBox3f(0, (nx - 1) * spacing, 0, (ny - 1) * spacing, 0, (nz - 1) * spacing));
    return field;
}

// A field of element type T on a curvilinear lattice: node (i, j, k) at pos(i, j, k), holding f of
// the node's indices, values rounded for integer types.
template <class T>
VxRegScalarField3* makeCurvilinearField(int nx, int ny, int nz,
                                        const std::function<KxVec3f(int, int, int)>& pos, const FieldFunc& f)
{
    const KxDim3l d(nx, ny, nz);
    KxDArray<float> xyz(std::size_t(d.count()) * 3);
    auto* data = static_cast<T*>(kxmalloc(sizeof(T) * std::size_t(d.count())));
    for (int k = 0, n = 0; k < nz; ++k)
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i, ++n) {
                const KxVec3f p = pos(i, j, k);
                xyz[3 * n] = p.x, xyz[3 * n + 1] = p.y, xyz[3 * n + 2] = p.z;
                const double v = f(i, j, k);
                data[n] = std::is_floating_point<T>::value ? T(v) : T(std::lround(v));
            }
    return new VxRegScalarField3(d, KxPrimType(KxPrimTypeOf<T>::value),
                                 new VxCurvilinearCoord3(d, std::move(xyz)), data);
}

// Distance from a centre minus a radius: positive outside, so the surface at 0 is a sphere.
inline FieldFunc sphere(double cx, double cy, double cz, double r, double scale = 1.0, double offset = 0.0)
{
    return [=](double x, double y, double z) {
        return scale * (std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy) + (z - cz) * (z - cz)) - r) +
               offset;
    };
}

inline FieldFunc torus(double cx, double cy, double cz, double big, double small, double scale = 1.0,
                       double offset = 0.0)
{
    return [=](double x, double y, double z) {
        const double q = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy)) - big;
        return scale * (std::sqrt(q * q + (z - cz) * (z - cz)) - small) + offset;
    };
}

TestMesh meshOf(const SoTriSurface& s);

// Runs the extractor sequentially; returns the mesh and, through degenerate, the dropped count.
TestMesh extract(const VxRegScalarField3& field, float iso, int compact = 0, float snapFraction = 0.5f,
                 unsigned long long* degenerate = nullptr);

// Grid edges whose two nodes lie on different sides of iso (values compared in single precision);
// skip(i, j, k) leaves out edges touching a node.
std::size_t countCutEdges(const VxRegScalarField3& field, float iso,
                          const std::function<bool(int, int, int)>& skip = nullptr);

// Every edge is shared by exactly two triangles with opposite orientation; if not, which is not.
::testing::AssertionResult isWatertight(const TestMesh& m);

// The same vertices, normals and triangles in the same order, to the last bit.
::testing::AssertionResult sameBytes(const TestMesh& a, const TestMesh& b);

// Triangles as sorted position triples (rotated so the smallest corner comes first, keeping the
// orientation), for comparing meshes whatever their vertex numbering.
std::multiset<std::vector<float>> triangleSet(const TestMesh& m);

// Points every triangle corner at the first vertex of its position, as a writer that merges pieces
// would; returns the number of distinct positions.
std::size_t weldByPosition(TestMesh& m);

} // namespace vxtest
