#include <vx/VxRegLocation3.h>
#include <vx/VxRegScalarField3.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

KX_ABSTRACT_SOURCE(VxRegScalarField3, VxScalarField3)
KX_ABSTRACT_SOURCE(VxUniformScalarField3, VxRegScalarField3)

VxRegScalarField3::VxRegScalarField3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data)
    : m_lattice(dims, type, coords, data)
{
}

VxRegScalarField3::VxRegScalarField3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data,
                                     VxBorrowedValues borrowed)
    : m_lattice(dims, type, coords, data, borrowed)
{
}

namespace {

// Smallest and largest value, NaN left out, and every value equal to `skip` left out when skipping.
// Written as selects over the element type, so that the compiler vectorises the loop: the range is
// asked for on every new input, and volumes have hundreds of millions of values.
template <class T> bool rangeOf(const T* v, int64_t n, bool skipping, T skip, double& min, double& max)
{
    using L = std::numeric_limits<T>;
    T lo = L::has_infinity ? L::infinity() : L::max(), hi = L::has_infinity ? -L::infinity() : L::lowest();
    if (!skipping) {
        // NaN compares false both ways and so never wins.
        for (int64_t i = 0; i < n; ++i) {
            lo = v[i] < lo ? v[i] : lo;
            hi = v[i] > hi ? v[i] : hi;
        }
    } else {
        for (int64_t i = 0; i < n; ++i) {
            const bool keep = v[i] != skip;
            lo = keep && v[i] < lo ? v[i] : lo;
            hi = keep && v[i] > hi ? v[i] : hi;
        }
    }
    // The bounds cross only when nothing was taken: any value moves at least one of them past the
    // other's start (an infinity included).
    const bool any = lo <= hi;
    if (any) min = double(lo), max = double(hi);
    return any;
}

#if defined(__SSE2__)
// The compiler turns the selects above into scalar code for floating types. SSE's min and max
// return their second operand unless the first is smaller (larger), NaN included: exactly those
// selects, four floats or two doubles at once. Skipped values become NaN first, which never wins.
template <class T> struct Sse;
template <> struct Sse<float>
{
    using V = __m128;
    static constexpr int lanes = 4;
    static V load(const float* p) { return _mm_loadu_ps(p); }
    static V splat(float x) { return _mm_set1_ps(x); }
    static V min(V a, V b) { return _mm_min_ps(a, b); }
    static V max(V a, V b) { return _mm_max_ps(a, b); }
    static V unlessEqual(V x, V skip, V nan)
    {
        const V same = _mm_cmpeq_ps(x, skip);
        return _mm_or_ps(_mm_andnot_ps(same, x), _mm_and_ps(same, nan));
    }
    static void store(float* p, V v) { _mm_storeu_ps(p, v); }
};
template <> struct Sse<double>
{
    using V = __m128d;
    static constexpr int lanes = 2;
    static V load(const double* p) { return _mm_loadu_pd(p); }
    static V splat(double x) { return _mm_set1_pd(x); }
    static V min(V a, V b) { return _mm_min_pd(a, b); }
    static V max(V a, V b) { return _mm_max_pd(a, b); }
    static V unlessEqual(V x, V skip, V nan)
    {
        const V same = _mm_cmpeq_pd(x, skip);
        return _mm_or_pd(_mm_andnot_pd(same, x), _mm_and_pd(same, nan));
    }
    static void store(double* p, V v) { _mm_storeu_pd(p, v); }
};

template <class T>
bool floatingRangeOf(const T* v, int64_t n, bool skipping, T skip, double& min, double& max)
{
    using S = Sse<T>;
    using L = std::numeric_limits<T>;
    // Two accumulators each, so that consecutive steps do not wait for each other.
    typename S::V lo0 = S::splat(L::infinity()), lo1 = lo0, hi0 = S::splat(-L::infinity()), hi1 = hi0;
    const typename S::V skipV = S::splat(skip), nan = S::splat(L::quiet_NaN());
    int64_t i = 0;
    for (; i + 2 * S::lanes <= n; i += 2 * S::lanes) {
        typename S::V a = S::load(v + i), b = S::load(v + i + S::lanes);
        if (skipping) a = S::unlessEqual(a, skipV, nan), b = S::unlessEqual(b, skipV, nan);
        lo0 = S::min(a, lo0), hi0 = S::max(a, hi0);
        lo1 = S::min(b, lo1), hi1 = S::max(b, hi1);
    }
    T lanesLo[S::lanes], lanesHi[S::lanes];
    S::store(lanesLo, S::min(lo0, lo1));
    S::store(lanesHi, S::max(hi0, hi1));
    T lo = L::infinity(), hi = -L::infinity();
    for (int k = 0; k < S::lanes; ++k) {
        lo = lanesLo[k] < lo ? lanesLo[k] : lo;
        hi = lanesHi[k] > hi ? lanesHi[k] : hi;
    }
    double tailMin = 0, tailMax = 0;
    if (rangeOf(v + i, n - i, skipping, skip, tailMin, tailMax)) {
        lo = T(tailMin) < lo ? T(tailMin) : lo;
        hi = T(tailMax) > hi ? T(tailMax) : hi;
    }
    const bool any = lo <= hi;
    if (any) min = double(lo), max = double(hi);
    return any;
}

bool rangeOf(const float* v, int64_t n, bool skipping, float skip, double& min, double& max, int)
{
    return floatingRangeOf(v, n, skipping, skip, min, max);
}
bool rangeOf(const double* v, int64_t n, bool skipping, double skip, double& min, double& max, int)
{
    return floatingRangeOf(v, n, skipping, skip, min, max);
}
#endif
// The range of any other type, or without SSE.
template <class T> bool rangeOf(const T* v, int64_t n, bool skipping, T skip, double& min, double& max, long)
{
    return rangeOf(v, n, skipping, skip, min, max);
}

// The stored value equal to u, when the type can hold it exactly.
template <class T> bool exactly(double u, T& out)
{
    if (u != u) return false;
    if (!std::is_floating_point<T>::value &&
        (u < double(std::numeric_limits<T>::lowest()) || u > double(std::numeric_limits<T>::max())))
        return false;
    out = T(u);
    return double(out) == u;
}

} // namespace

bool VxRegScalarField3::getRange(double& min, double& max, int mode) const
{
    min = max = 0;
    bool any = false;
    const bool skipUndefined = mode == RANGE_SKIP_UNDEFINED && m_hasUndefined;
    const int64_t n = getDims().count();
    kxDispatchPrimType(primType(), const_cast<void*>(m_lattice.dataPtr()), [&](auto* p) {
        using T = std::remove_pointer_t<decltype(p)>;
        // A NaN undefined value is left out with every NaN; one that no element can hold leaves
        // nothing to skip.
        T skip{};
        const bool skipping = skipUndefined && exactly(m_undefined, skip);
        any = rangeOf(p, n, skipping, skip, min, max, 0);
    });
    if (!any) min = max = 0;
    return any;
}

static KxBox3f unitSpacingBox(const KxDim3l& d)
{
    return KxBox3f(0, float(d.nx > 0 ? d.nx - 1 : 0), 0, float(d.ny > 0 ? d.ny - 1 : 0), 0,
                   float(d.nz > 0 ? d.nz - 1 : 0));
}

VxUniformScalarField3::VxUniformScalarField3(const KxDim3l& dims, KxPrimType type, void* data)
    : VxRegScalarField3(dims, type, new VxUniformCoord3(dims, unitSpacingBox(dims)), data)
{
}

VxUniformScalarField3::VxUniformScalarField3(const KxDim3l& dims, KxPrimType type, void* data,
                                             VxBorrowedValues borrowed)
    : VxRegScalarField3(dims, type, new VxUniformCoord3(dims, unitSpacingBox(dims)), data, borrowed)
{
}

void VxUniformScalarField3::setBoundingBox(const KxBox3f& box)
{
    static_cast<VxUniformCoord3*>(lattice().coords())->setBoundingBox(box);
}

void VxUniformScalarField3::setBoundingBox(const KxBox3f& box, const KxVec3f& spacing)
{
    static_cast<VxUniformCoord3*>(lattice().coords())->setBoundingBox(box, spacing);
}

KxVec3f VxUniformScalarField3::getVoxelSize() const
{
    return static_cast<const VxUniformCoord3*>(lattice().coords())->getVoxelSize();
}

std::unique_ptr<VxLocation3> VxRegScalarField3::createLocation() const
{
    return std::make_unique<VxRegLocation3>(*this);
}
