#pragma once
#include <kx/KxDArray.h>
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <cmath>
#include <cstdint>
#include <utility>

// How the traversals read a field: values and node positions. An accessor is made from what it
// reads (arrays, counts, spacings), which the front end takes from the field, so that the engine
// needs no host class. Everything a traversal calls per node is inline and reads an array.

namespace vxiso::tools {

// Values of element type T on uniform coordinates: node (i, j, k) lies at origin + (i, j, k) *
// voxelSize.
template <class T> class RegField3Accessor
{
public:
    using ValueType = T;

    // data: nx * ny * nz values, x fastest, then y, then z. gradientSpacing divides the differences
    // of the gradient.
    RegField3Accessor(const T* data, const KxVec3i& dims, const KxVec3f& origin, const KxVec3f& voxelSize,
                      const KxVec3f& gradientSpacing)
        : RegField3Accessor(data, dims, origin, voxelSize, gradientSpacing, KxVec3i(0, 0, 0), dims)
    {
    }
    // The same for a volume of which only a box is in memory (a rank's slab): data holds the
    // stored.x * stored.y * stored.z nodes from node first on. Nodes are still addressed, placed and
    // told from the border by their indices in the whole volume of dims nodes.
    RegField3Accessor(const T* data, const KxVec3i& dims, const KxVec3f& origin, const KxVec3f& voxelSize,
                      const KxVec3f& gradientSpacing, const KxVec3i& first, const KxVec3i& stored)
        : m_data(data), m_dims(dims), m_rowStride(stored.x), m_sliceStride(int64_t(stored.x) * stored.y),
          m_base((int64_t(first.z) * stored.y + first.y) * stored.x + first.x), m_origin(origin),
          m_voxelSize(voxelSize), m_gradientSpacing(gradientSpacing)
    {
        // Dividing by a power of two and multiplying by its inverse give the same float, and
        // volumes mostly have spacings like 1 or 0.5: then six divisions per vertex become
        // multiplications.
        m_multiplies = true;
        for (int a = 0; a < 3; ++a) {
            const float s = gradientSpacing[a], inverse = 1.f / s;
            int exponent = 0;
            m_inverseSpacing[a] = inverse;
            if (!(std::isfinite(s) && std::frexp(s, &exponent) == 0.5f && std::isnormal(inverse)))
                m_multiplies = false;
        }
    }

    const KxVec3i& dims() const { return m_dims; }
    int64_t index(int i, int j, int k) const
    {
        return int64_t(k) * m_sliceStride + int64_t(j) * m_rowStride + i - m_base;
    }

    float value(int i, int j, int k) const { return float(m_data[index(i, j, k)]); }

    KxVec3f position(int i, int j, int k) const
    {
        return KxVec3f(m_origin.x + float(i) * m_voxelSize.x, m_origin.y + float(j) * m_voxelSize.y,
                       m_origin.z + float(k) * m_voxelSize.z);
    }

    // above[x] = 1 where node (i0 + x, j, k) lies above iso, for n nodes; a loop the compiler
    // vectorises.
    void classifyRow(int i0, int n, int j, int k, float iso, unsigned char* above) const
    {
        const T* row = m_data + index(i0, j, k);
        for (int x = 0; x < n; ++x) above[x] = float(row[x]) > iso;
    }

    // Central differences, one-sided on the border, divided by the steps taken times the spacing.
    [[gnu::always_inline]] KxVec3f gradient(int i, int j, int k) const
    {
        // Most nodes lie inside on every axis: one test for all three, the same arithmetic inline, and
        // the border's one-sided differences out of line.
        if (!(inside(i, m_dims.x) & inside(j, m_dims.y) & inside(k, m_dims.z)))
            return gradientOnBorder(i, j, k);
        const int64_t c = index(i, j, k);
        const KxVec3f half((float(m_data[c + 1]) - float(m_data[c - 1])) / 2.f,
                           (float(m_data[c + m_rowStride]) - float(m_data[c - m_rowStride])) / 2.f,
                           (float(m_data[c + m_sliceStride]) - float(m_data[c - m_sliceStride])) / 2.f);
        if (m_multiplies)
            return KxVec3f(half.x * m_inverseSpacing.x, half.y * m_inverseSpacing.y,
                           half.z * m_inverseSpacing.z);
        return KxVec3f(half.x / m_gradientSpacing.x, half.y / m_gradientSpacing.y,
                       half.z / m_gradientSpacing.z);
    }

private:
    static bool inside(int p, int n) { return unsigned(p - 1) < unsigned(n - 2); }
    [[gnu::noinline]] KxVec3f gradientOnBorder(int i, int j, int k) const
    {
        const int64_t c = index(i, j, k);
        return KxVec3f(difference(c, i, m_dims.x, 1) / m_gradientSpacing.x,
                       difference(c, j, m_dims.y, m_rowStride) / m_gradientSpacing.y,
                       difference(c, k, m_dims.z, m_sliceStride) / m_gradientSpacing.z);
    }
    float difference(int64_t c, int p, int n, int64_t stride) const
    {
        const int64_t up = p < n - 1 ? stride : 0;
        const int64_t down = p > 0 ? stride : 0;
        const float diff = float(m_data[c + up]) - float(m_data[c - down]);
        return up != 0 && down != 0 ? diff / 2.f : diff;
    }

    const T* m_data;
    KxVec3i m_dims;
    int64_t m_rowStride, m_sliceStride, m_base;
    KxVec3f m_origin;
    KxVec3f m_voxelSize;
    KxVec3f m_gradientSpacing;
    KxVec3f m_inverseSpacing;  // exact when m_multiplies
    bool m_multiplies = false; // every gradient spacing a power of two
};

// Values of any element type with a position per node (curvilinear coordinates, or any others once
// their positions are listed); one accessor for every value type.
class CurvField3Accessor
{
public:
    // values: nx * ny * nz values of the given type, x fastest; positions: three floats per node in
    // the same order, read in place.
    CurvField3Accessor(const void* values, KxPrimType type, const KxVec3i& dims, const float* positions)
        : m_values(values), m_read(kxValueReader(type)), m_dims(dims), m_positions(positions)
    {
    }
    // The same with positions that the accessor keeps.
    CurvField3Accessor(const void* values, KxPrimType type, const KxVec3i& dims, KxDArray<float>&& positions)
        : CurvField3Accessor(values, type, dims, positions.data())
    {
        m_ownPositions = std::move(positions);
    }
    // A move keeps the block the positions may point into; a copy would not.
    CurvField3Accessor(CurvField3Accessor&&) = default;
    CurvField3Accessor(const CurvField3Accessor&) = delete;
    CurvField3Accessor& operator=(const CurvField3Accessor&) = delete;

    const KxVec3i& dims() const { return m_dims; }
    int64_t index(int i, int j, int k) const { return (int64_t(k) * m_dims.y + j) * m_dims.x + i; }
    float value(int i, int j, int k) const { return float(m_read(m_values, index(i, j, k))); }
    void classifyRow(int i0, int n, int j, int k, float iso, unsigned char* above) const
    {
        for (int x = 0; x < n; ++x) above[x] = value(i0 + x, j, k) > iso;
    }
    KxVec3f position(int i, int j, int k) const
    {
        const float* p = m_positions + 3 * index(i, j, k);
        return KxVec3f(p[0], p[1], p[2]);
    }

private:
    const void* m_values;
    KxValueReader m_read; // exact to double; value() rounds to float, as the host reads it
    KxVec3i m_dims;
    const float* m_positions;
    KxDArray<float> m_ownPositions;
};

} // namespace vxiso::tools
