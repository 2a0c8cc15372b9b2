#include <vx/VxRegLocation3.h>
#include <vx/VxRegScalarField3.h>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

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
// The compiler turns the selects above into scalar code for float, the common floating type of
// volumes. SSE's min and max return their second operand unless the first is smaller (larger),
// NaN included: exactly those selects, four values at once. Skipped values become NaN first,
// which never wins.
bool rangeOf(const float* v, int64_t n, bool skipping, float skip, double& min, double& max, int)
{
    using L = std::numeric_limits<float>;
    // Two accumulators each, so that consecutive steps do not wait for each other.
    __m128 lo0 = _mm_set1_ps(L::infinity()), lo1 = lo0, hi0 = _mm_set1_ps(-L::infinity()), hi1 = hi0;
    const __m128 skipped = _mm_set1_ps(skip), nan = _mm_set1_ps(L::quiet_NaN());
    const auto unlessSkipped = [&](__m128 x) {
        const __m128 same = _mm_cmpeq_ps(x, skipped);
        return _mm_or_ps(_mm_andnot_ps(same, x), _mm_and_ps(same, nan));
    };
    int64_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128 a = _mm_loadu_ps(v + i), b = _mm_loadu_ps(v + i + 4);
        if (skipping) a = unlessSkipped(a), b = unlessSkipped(b);
        lo0 = _mm_min_ps(a, lo0), hi0 = _mm_max_ps(a, hi0);
        lo1 = _mm_min_ps(b, lo1), hi1 = _mm_max_ps(b, hi1);
    }
    float lanes[8];
    _mm_storeu_ps(lanes, _mm_min_ps(lo0, lo1));
    _mm_storeu_ps(lanes + 4, _mm_max_ps(hi0, hi1));
    float lo = lanes[0], hi = lanes[4];
    for (int k = 1; k < 4; ++k) {
        lo = lanes[k] < lo ? lanes[k] : lo;
        hi = lanes[4 + k] > hi ? lanes[4 + k] : hi;
    }
    double tailMin = 0, tailMax = 0;
    if (rangeOf(v + i, n - i, skipping, skip, tailMin, tailMax)) {
        lo = float(tailMin) < lo ? float(tailMin) : lo;
        hi = float(tailMax) > hi ? float(tailMax) : hi;
    }
    const bool any = lo <= hi;
    if (any) min = double(lo), max = double(hi);
    return any;
}
#endif
// The range of any other type, or without SSE.
template <class T> bool rangeOf(const T* v, int64_t n, bool skipping, T skip, double& min, double& max, long)
{
    return rangeOf(v, n, skipping, skip, min, max);
}

// Values a block of the range scan covers. Reading memory bounds the scan, and two cores read
// nearly twice as fast as one, so a large field is scanned in blocks on the scheduler's threads.
constexpr int64_t kRangeBlock = int64_t(1) << 20;

// rangeOf over blocks, their ranges merged in the order of the blocks.
template <class T> bool rangeInBlocks(const T* v, int64_t n, bool skipping, T skip, double& min, double& max)
{
    const int64_t blocks = (n + kRangeBlock - 1) / kRangeBlock;
    if (blocks < 4) return rangeOf(v, n, skipping, skip, min, max, 0);
    struct Part
    {
        bool any = false;
        double lo = 0, hi = 0;
    };
    std::vector<Part> parts(static_cast<std::size_t>(blocks));
    tbb::parallel_for(tbb::blocked_range<int64_t>(0, blocks), [&](const tbb::blocked_range<int64_t>& r) {
        for (int64_t b = r.begin(); b != r.end(); ++b) {
            Part& part = parts[std::size_t(b)];
            const int64_t first = b * kRangeBlock;
            part.any =
                rangeOf(v + first, std::min(kRangeBlock, n - first), skipping, skip, part.lo, part.hi, 0);
        }
    });
    bool any = false;
    for (const Part& part : parts) {
        if (!part.any) continue;
        min = any && !(part.lo < min) ? min : part.lo;
        max = any && !(part.hi > max) ? max : part.hi;
        any = true;
    }
    return any;
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
        any = rangeInBlocks(p, n, skipping, skip, min, max);
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
