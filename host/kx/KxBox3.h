#pragma once
#include <kx/KxVec3.h>

#include <cmath>

// Node-index box: xmin, xmax, ymin, ymax, zmin, zmax.
struct KxBox3i
{
    int32_t xmin = 0, xmax = 0, ymin = 0, ymax = 0, zmin = 0, zmax = 0;

    constexpr KxBox3i() = default;
    constexpr KxBox3i(int32_t x0, int32_t x1, int32_t y0, int32_t y1, int32_t z0, int32_t z1)
        : xmin(x0), xmax(x1), ymin(y0), ymax(y1), zmin(z0), zmax(z1)
    {
    }
    int32_t& min(int axis) { return (&xmin)[2 * axis]; }
    int32_t& max(int axis) { return (&xmin)[2 * axis + 1]; }
    int32_t min(int axis) const { return (&xmin)[2 * axis]; }
    int32_t max(int axis) const { return (&xmin)[2 * axis + 1]; }
    bool operator==(const KxBox3i& o) const
    {
        return xmin == o.xmin && xmax == o.xmax && ymin == o.ymin && ymax == o.ymax && zmin == o.zmin &&
               zmax == o.zmax;
    }
};

// Axis-aligned box in space: xmin, xmax, ymin, ymax, zmin, zmax.
struct KxBox3f
{
    float xmin = 0, xmax = 0, ymin = 0, ymax = 0, zmin = 0, zmax = 0;

    constexpr KxBox3f() = default;
    constexpr KxBox3f(float x0, float x1, float y0, float y1, float z0, float z1)
        : xmin(x0), xmax(x1), ymin(y0), ymax(y1), zmin(z0), zmax(z1)
    {
    }
    float min(int axis) const { return (&xmin)[2 * axis]; }
    float max(int axis) const { return (&xmin)[2 * axis + 1]; }

    void copyBox6(float* out) const
    {
        for (int i = 0; i < 6; ++i) out[i] = (&xmin)[i];
    }
    KxVec3f getMin() const { return {xmin, ymin, zmin}; }
    KxVec3f getMax() const { return {xmax, ymax, zmax}; }
    KxVec3f getSize() const { return {xmax - xmin, ymax - ymin, zmax - zmin}; }

    // Distance between neighbouring nodes when dims nodes span the box; 0 along an axis of one node.
    KxVec3f getVoxelSize(const KxDim3l& dims) const
    {
        KxVec3f s = getSize();
        KxVec3f v;
        for (int a = 0; a < 3; ++a) v[a] = dims[a] > 1 ? s[a] / float(dims[a] - 1) : 0.f;
        return v;
    }

    bool contains(const KxVec3f& p, float eps = 0.f) const
    {
        return p.x >= xmin - eps && p.x <= xmax + eps && p.y >= ymin - eps && p.y <= ymax + eps &&
               p.z >= zmin - eps && p.z <= zmax + eps;
    }
    bool isEmpty() const { return xmax < xmin || ymax < ymin || zmax < zmin; }
};
