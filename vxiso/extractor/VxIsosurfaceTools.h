#pragma once
#include <vxiso/extractor/VxIsosurfaceTables.h>

#include <kx/KxBox3.h>
#include <kx/KxDArray.h>
#include <kx/KxVec3.h>
#include <vx/VxRegScalarField3.h>

#include <cstdint>

// Policies of the marching-cubes traversals. Everything here is resolved at compile time so that the
// per-cell code is inlined: no virtual calls, no allocation, no bounds checks.

namespace vxiso {
namespace tools {

// Split axes of the parallel traversal; each names its block of the boundary offset tables.
struct Xaxis
{
    static constexpr int index = 0;
};
struct Yaxis
{
    static constexpr int index = 1;
};
struct Zaxis
{
    static constexpr int index = 2;
};

// Values and positions of a field on uniform coordinates, values of element type T.
template <class T>
class RegField3Accessor
{
public:
    using ValueType = T;

    explicit RegField3Accessor(const VxRegScalarField3& field)
        : m_field(&field), m_data(static_cast<const T*>(field.lattice().dataPtr()))
    {
        const KxDim3l& d = field.getDims();
        m_dims = KxVec3i(int32_t(d.nx), int32_t(d.ny), int32_t(d.nz));
        m_sliceStride = int64_t(d.nx) * d.ny;
        const KxBox3f box = field.getBoundingBox();
        m_origin = box.getMin();
        // The voxel size is derived from the box as the box is written.
        m_voxelSize = KxVec3f(d.nx > 1 ? (box.xmax - box.xmin) / float(d.nx - 1) : 0.f,
                              d.ny > 1 ? (box.ymax - box.ymin) / float(d.ny - 1) : 0.f,
                              d.nz > 1 ? (box.zmax - box.zmin) / float(d.nz - 1) : 0.f);
        m_gradientSpacing = field.getGradientSpacing(KxVec3i(0, 0, 0), m_voxelSize);
    }

    const VxRegScalarField3& field() const { return *m_field; }
    const KxVec3i& dims() const { return m_dims; }
    const T* data() const { return m_data; }
    int64_t index(int i, int j, int k) const { return (int64_t(k) * m_dims.y + j) * m_dims.x + i; }

    float value(int i, int j, int k) const { return float(m_data[index(i, j, k)]); }
    // The stored value converted exactly to double, for the undefined-value test.
    double exactValue(int i, int j, int k) const { return double(m_data[index(i, j, k)]); }

    KxVec3f position(int i, int j, int k) const
    {
        return KxVec3f(m_origin.x + float(i) * m_voxelSize.x, m_origin.y + float(j) * m_voxelSize.y,
                       m_origin.z + float(k) * m_voxelSize.z);
    }

    // Central differences, one-sided on the border, divided by the steps taken times the spacing.
    KxVec3f gradient(int i, int j, int k) const
    {
        const int64_t c = index(i, j, k);
        KxVec3f g;
        g.x = difference(c, i, m_dims.x, 1) / m_gradientSpacing.x;
        g.y = difference(c, j, m_dims.y, m_dims.x) / m_gradientSpacing.y;
        g.z = difference(c, k, m_dims.z, m_sliceStride) / m_gradientSpacing.z;
        return g;
    }

private:
    float difference(int64_t c, int p, int n, int64_t stride) const
    {
        const int up = p < n - 1 ? 1 : 0;
        const int down = p > 0 ? 1 : 0;
        const float diff = float(m_data[c + up * stride]) - float(m_data[c - down * stride]);
        return up + down == 2 ? diff / 2.f : diff;
    }

    const VxRegScalarField3* m_field;
    const T* m_data;
    KxVec3i m_dims;
    int64_t m_sliceStride;
    KxVec3f m_origin;
    KxVec3f m_voxelSize;
    KxVec3f m_gradientSpacing;
};

// Values and positions of a field on any non-uniform coordinates; one accessor for every value type.
class CurvField3Accessor
{
public:
    explicit CurvField3Accessor(const VxRegScalarField3& field);

    const VxRegScalarField3& field() const { return *m_field; }
    const KxVec3i& dims() const { return m_dims; }
    int64_t index(int i, int j, int k) const { return (int64_t(k) * m_dims.y + j) * m_dims.x + i; }
    float value(int i, int j, int k) const { return m_field->evalReg(i, j, k); }
    double exactValue(int i, int j, int k) const { return m_field->evalRegDouble(i, j, k); }
    KxVec3f position(int i, int j, int k) const
    {
        const float* p = m_positions + 3 * index(i, j, k);
        return KxVec3f(p[0], p[1], p[2]);
    }

private:
    const VxRegScalarField3* m_field;
    KxVec3i m_dims;
    const float* m_positions;
    // Node positions of coordinates that store none per node (stacked, rectilinear).
    KxDArray<float> m_ownPositions;
};

// Case index of a cell, reusing the shared face of the cell before it in the same row.
template <class Accessor>
class ComputeIndexScanline
{
public:
    unsigned computeIndex(const Accessor& a, float iso, const KxVec3i& cell)
    {
        const int i = cell.x, j = cell.y, k = cell.z;
        unsigned index;
        if (i == m_last.x + 1 && j == m_last.y && k == m_last.z) {
            // Nodes 1, 5 become nodes 0, 4 and nodes 2, 6 become nodes 3, 7.
            index = ((m_lastIndex & 34u) >> 1) | ((m_lastIndex & 68u) << 1);
        } else {
            index = 0;
            if (a.value(i, j, k) > iso) index |= 1;
            if (a.value(i, j + 1, k) > iso) index |= 8;
            if (a.value(i, j + 1, k + 1) > iso) index |= 128;
            if (a.value(i, j, k + 1) > iso) index |= 16;
        }
        if (a.value(i + 1, j, k) > iso) index |= 2;
        if (a.value(i + 1, j + 1, k) > iso) index |= 4;
        if (a.value(i + 1, j + 1, k + 1) > iso) index |= 64;
        if (a.value(i + 1, j, k + 1) > iso) index |= 32;
        m_last = cell;
        m_lastIndex = index;
        return index;
    }
    void reset() { m_last = KxVec3i(INT32_MIN, INT32_MIN, INT32_MIN); }

private:
    KxVec3i m_last{INT32_MIN, INT32_MIN, INT32_MIN};
    unsigned m_lastIndex = 0;
};

// End nodes of edge e of a cell, in grid indices.
inline void edgeNodes(const KxVec3i& cell, int edge, KxVec3i& a, KxVec3i& b)
{
    const int* na = tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][0]];
    const int* nb = tables::g_nodeCoords[tables::g_edgeEndNodeIds[edge][1]];
    a = KxVec3i(cell.x + na[0], cell.y + na[1], cell.z + na[2]);
    b = KxVec3i(cell.x + nb[0], cell.y + nb[1], cell.z + nb[2]);
}

// Parameter and position of the iso value on edge e of a cell, always measured from the edge's lower
// node so that every cell sharing the edge gets the same point. a and b receive the end nodes.
template <class Accessor>
float interpolateEdge(const Accessor& acc, float iso, const KxVec3i& cell, int edge, KxVec3i& a, KxVec3i& b,
                      KxVec3f& position)
{
    edgeNodes(cell, edge, a, b);
    const float fa = acc.value(a.x, a.y, a.z);
    const float fb = acc.value(b.x, b.y, b.z);
    const float t = (iso - fa) / (fb - fa);
    const KxVec3f pa = acc.position(a.x, a.y, a.z);
    const KxVec3f pb = acc.position(b.x, b.y, b.z);
    position = KxVec3f(pa.x + t * (pb.x - pa.x), pa.y + t * (pb.y - pa.y), pa.z + t * (pb.z - pa.z));
    return t;
}

// Vertex with the negated, interpolated gradient (not normalised), which points from higher toward
// lower values.
template <class Accessor>
struct ComputeIntersection
{
    static constexpr bool hasNormals = true;

    static float compute(const Accessor& acc, float iso, const KxVec3i& cell, int edge, KxVec3f& position,
                         KxVec3f& normal)
    {
        KxVec3i a, b;
        const float t = interpolateEdge(acc, iso, cell, edge, a, b, position);
        const KxVec3f ga = acc.gradient(a.x, a.y, a.z);
        const KxVec3f gb = acc.gradient(b.x, b.y, b.z);
        normal = KxVec3f(-(ga.x + t * (gb.x - ga.x)), -(ga.y + t * (gb.y - ga.y)), -(ga.z + t * (gb.z - ga.z)));
        return t;
    }
};

// Vertex without gradients: every vertex gets the fixed normal (1, 0, 0), a placeholder that the
// surface's own normals replace.
template <class Accessor>
struct ComputeIntersectionWithoutNormal
{
    static constexpr bool hasNormals = false;

    static float compute(const Accessor& acc, float iso, const KxVec3i& cell, int edge, KxVec3f& position,
                         KxVec3f& normal)
    {
        KxVec3i a, b;
        normal = KxVec3f(1.f, 0.f, 0.f);
        return interpolateEdge(acc, iso, cell, edge, a, b, position);
    }
};

// The policy bundle every traversal is a template over, with the iso value they share. The bundle
// is read-only during a traversal; per-traversal state (the case index's memory) lives in the
// traversal object.
template <class Accessor_, class Index_, class Intersection_, class Filter_>
struct VxIsosurfaceTools
{
    using Accessor = Accessor_;
    using Index = Index_;
    using Intersection = Intersection_;
    using Filter = Filter_;

    VxIsosurfaceTools(const Accessor& a, float isoValue, const Filter& f)
        : accessor(a), iso(isoValue), filter(f), nx(a.dims().x), ny(a.dims().y), nz(a.dims().z)
    {
    }

    const Accessor& accessor;
    float iso;
    const Filter& filter;
    int32_t nx, ny, nz;
};

// A triangle whose corners are not three distinct vertices.
inline bool isDegenerate(const KxVec3i& t)
{
    return t.x == t.y || t.y == t.z || t.x == t.z;
}

} // namespace tools
} // namespace vxiso
