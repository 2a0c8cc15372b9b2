// The value range of fields against a plain scan: NaN never counts, infinities do, the undefined
// value is left out on request, and every length and start (the vector steps and the tail after
// them, the blocks of a large field) gives the same answer.
#include <kx/KxHandle.h>
#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

template <class T> KxPrimType primOf();
template <> KxPrimType primOf<float>()
{
    return KxPrimType::FLOAT;
}
template <> KxPrimType primOf<double>()
{
    return KxPrimType::DOUBLE;
}

template <class T> void checkAgainstScan()
{
    std::mt19937 random(7);
    const T specials[] = {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity(),
                          -std::numeric_limits<T>::infinity(), T(-0.0), T(3)};
    for (int n = 1; n <= 37; ++n)
        for (int trial = 0; trial < 12; ++trial) {
            std::vector<T> values(static_cast<std::size_t>(n), T(0));
            for (T& v : values) {
                const unsigned pick = random() % 8;
                v = pick < 5 ? specials[pick] : T(int(random() % 2001) - 1000) / T(8);
            }
            const bool skipping = trial % 2;
            double wantLo = 0, wantHi = 0;
            bool any = false;
            for (T v : values) {
                if (v != v || (skipping && v == T(3))) continue;
                wantLo = any ? std::min(wantLo, double(v)) : double(v);
                wantHi = any ? std::max(wantHi, double(v)) : double(v);
                any = true;
            }
            auto* data = static_cast<T*>(kxmalloc(std::size_t(n) * sizeof(T)));
            std::copy(values.begin(), values.end(), data);
            KxHandle<VxUniformScalarField3> field(
                new VxUniformScalarField3(KxDim3l(n, 1, 1), primOf<T>(), data));
            if (skipping) field->setUndefinedValue(3);
            double lo = -1, hi = -1;
            const bool got = field->getRange(
                lo, hi, skipping ? VxRegScalarField3::RANGE_SKIP_UNDEFINED : VxRegScalarField3::RANGE_ALL);
            ASSERT_EQ(got, any) << "n " << n << " trial " << trial;
            if (any) {
                EXPECT_EQ(lo, wantLo) << "n " << n << " trial " << trial;
                EXPECT_EQ(hi, wantHi) << "n " << n << " trial " << trial;
            } else {
                EXPECT_EQ(lo, 0);
                EXPECT_EQ(hi, 0);
            }
        }
}

TEST(FieldRange, FloatAndDoubleAgreeWithAPlainScanAtEveryLength)
{
    checkAgainstScan<float>();
    checkAgainstScan<double>();
}

// Fields of millions of values are scanned in blocks on several threads: blocks with nothing to
// take (all undefined) are left out of the merge, and the extremes count wherever they lie, the
// last, partial block included.
TEST(FieldRange, LargeFieldsMergeTheirBlocksExactly)
{
    const int64_t n = (int64_t(5) << 20) + 17;
    for (int layout = 0; layout < 3; ++layout) {
        auto* data = static_cast<int16_t*>(kxmalloc(std::size_t(n) * sizeof(int16_t)));
        std::mt19937 random(11 + layout);
        for (int64_t i = 0; i < n; ++i)
            data[i] = layout == 2 ? int16_t(-7) : int16_t(int(random() % 2001) - 1000);
        if (layout == 0) data[n - 1] = -5000, data[(int64_t(2) << 20) + 3] = 6000;
        if (layout == 2) data[(int64_t(3) << 20) + 5] = 42; // one defined value in the fourth block
        KxHandle<VxUniformScalarField3> field(
            new VxUniformScalarField3(KxDim3l(n, 1, 1), KxPrimType::INT16, data));
        field->setUndefinedValue(-7);
        double wantLo = 0, wantHi = 0;
        bool any = false;
        for (int64_t i = 0; i < n; ++i) {
            if (data[i] == -7) continue;
            wantLo = any ? std::min(wantLo, double(data[i])) : double(data[i]);
            wantHi = any ? std::max(wantHi, double(data[i])) : double(data[i]);
            any = true;
        }
        double lo = 0, hi = 0;
        ASSERT_TRUE(field->getRange(lo, hi, VxRegScalarField3::RANGE_SKIP_UNDEFINED)) << layout;
        EXPECT_EQ(lo, wantLo) << layout;
        EXPECT_EQ(hi, wantHi) << layout;
    }
}

} // namespace
