#pragma once
#include <cmath>
#include <cstdint>

// Three components of one type: node indices and triangles (int), positions and normals (float).
template <class T> struct KxVec3
{
    T x = T(0), y = T(0), z = T(0);

    constexpr KxVec3() = default;
    constexpr KxVec3(T a, T b, T c) : x(a), y(b), z(c) {}
    template <class U> constexpr explicit KxVec3(const KxVec3<U>& o) : x(T(o.x)), y(T(o.y)), z(T(o.z)) {}

    T& operator[](int i) { return (&x)[i]; }
    const T& operator[](int i) const { return (&x)[i]; }

    KxVec3 operator+(const KxVec3& o) const { return {T(x + o.x), T(y + o.y), T(z + o.z)}; }
    KxVec3 operator-(const KxVec3& o) const { return {T(x - o.x), T(y - o.y), T(z - o.z)}; }
    KxVec3 operator*(T s) const { return {T(x * s), T(y * s), T(z * s)}; }
    KxVec3 operator-() const { return {T(-x), T(-y), T(-z)}; }
    KxVec3& operator+=(const KxVec3& o)
    {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    bool operator==(const KxVec3& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const KxVec3& o) const { return !(*this == o); }

    T dot(const KxVec3& o) const { return x * o.x + y * o.y + z * o.z; }
    KxVec3 cross(const KxVec3& o) const
    {
        return {T(y * o.z - z * o.y), T(z * o.x - x * o.z), T(x * o.y - y * o.x)};
    }
    T length() const { return T(std::sqrt(dot(*this))); }
};

using KxVec3i = KxVec3<int32_t>;
using KxVec3f = KxVec3<float>;
using KxVec3d = KxVec3<double>;

// Three 64-bit dimensions of a lattice.
struct KxDim3l
{
    int64_t nx = 0, ny = 0, nz = 0;

    constexpr KxDim3l() = default;
    constexpr KxDim3l(int64_t a, int64_t b, int64_t c) : nx(a), ny(b), nz(c) {}
    int64_t& operator[](int i) { return (&nx)[i]; }
    const int64_t& operator[](int i) const { return (&nx)[i]; }
    int64_t count() const { return nx * ny * nz; }
    bool operator==(const KxDim3l& o) const { return nx == o.nx && ny == o.ny && nz == o.nz; }
};
