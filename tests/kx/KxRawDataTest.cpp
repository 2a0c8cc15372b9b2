#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxRawData.h>

#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Reference: one output sample at a time, summed in long double, rounded with llroundl (halves away
// from zero) for integer types.
template <class T>
std::vector<T> reference(const std::vector<T>& src, long nx, long ny, long nz, int fx, int fy, int fz)
{
    std::vector<T> out;
    for (long oz = 0; oz < nz / fz; ++oz)
        for (long oy = 0; oy < ny / fy; ++oy)
            for (long ox = 0; ox < nx / fx; ++ox) {
                long double sum = 0;
                for (int z = 0; z < fz; ++z)
                    for (int y = 0; y < fy; ++y)
                        for (int x = 0; x < fx; ++x)
                            sum += src[std::size_t(((oz * fz + z) * ny + oy * fy + y) * nx + ox * fx + x)];
                const long double m = sum / (long double)(fx * fy * fz);
                out.push_back(std::is_integral<T>::value ? T(std::llroundl(m)) : T(m));
            }
    return out;
}

struct Recorder : KxProgressInterface
{
    void setProgressValue(float v) override { values.push_back(v); }
    bool wasInterrupted() override { return int(values.size()) == interruptAfter; }
    std::vector<float> values;
    int interruptAfter = -1;
};

} // namespace

template <class T> class KxDownSample : public ::testing::Test
{
};
using KxPrimTypes =
    ::testing::Types<unsigned char, signed char, unsigned short, short, unsigned int, int, float, double>;
TYPED_TEST_SUITE(KxDownSample, KxPrimTypes);

TYPED_TEST(KxDownSample, AveragesBlocksDropsTheRemainderAndNeverOverflows)
{
    using T = TypeParam;
    using Case = std::tuple<long, long, long, int, int, int>; // nodes, then factors, per axis
    const std::vector<Case> cases = {{7, 5, 11, 2, 3, 4},     // remainders on every axis
                                     {8, 6, 4, 2, 2, 2},      // exact fit
                                     {5, 4, 3, 1, 1, 1},      // identity
                                     {9, 7, 5, 9, 1, 5},      // one block along x and z
                                     {3, 4, 5, 4, 1, 1}};     // factor larger than the axis: nothing to write
    std::mt19937_64 rng(7);
    // Integers over their whole range, floating-point values of either sign; then blocks of the
    // largest or lowest value, which a sum in the sample's own width (or in float for float
    // samples, in double for doubles) would overflow.
    const bool integral = std::is_integral<T>::value;
    std::uniform_real_distribution<double> any(integral ? double(std::numeric_limits<T>::lowest()) : -1e6,
                                               integral ? double(std::numeric_limits<T>::max()) : 1e6);
    for (const auto& [nx, ny, nz, fx, fy, fz] : cases)
        for (int fill = 0; fill < 3; ++fill) { // random, all the largest, all the lowest
            SCOPED_TRACE(::testing::Message() << nx << "x" << ny << "x" << nz << " by " << fx << "," << fy
                                              << "," << fz << " fill " << fill);
            std::vector<T> src(std::size_t(nx * ny * nz),
                               fill == 1 ? std::numeric_limits<T>::max() : std::numeric_limits<T>::lowest());
            if (fill == 0)
                for (T& x : src) x = T(any(rng));
            const std::vector<T> want = reference(src, nx, ny, nz, fx, fy, fz);
            std::vector<T> got(want.size());
            EXPECT_TRUE(KxRawData::downSample3D(got.data(),
                                                KxTypedPointer(src.data(), KxPrimTypeOf<T>::value), nx, ny,
                                                nz, fx, fy, fz, nullptr));
            // Floating-point sums may be made in another order or width than the reference's.
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_NEAR(double(got[i]), double(want[i]),
                            std::fabs(double(want[i])) * 4 * std::numeric_limits<T>::epsilon())
                    << i;
        }
}

TYPED_TEST(KxDownSample, InterruptionStopsBetweenSlices)
{
    using T = TypeParam;
    std::vector<T> src(4 * 3 * 10, T(5));
    std::vector<T> dst(2 * 3 * 5, T(0));
    Recorder stopAfterTwo;
    stopAfterTwo.interruptAfter = 2;
    EXPECT_FALSE(KxRawData::downSample3D(dst.data(), KxTypedPointer(src.data(), KxPrimTypeOf<T>::value), 4, 3,
                                         10, 2, 1, 2, &stopAfterTwo));
    EXPECT_EQ(stopAfterTwo.values, (std::vector<float>{0.2f, 0.4f})); // a fifth per output slice
    for (std::size_t i = 0; i < dst.size(); ++i) EXPECT_EQ(+dst[i], i < 12 ? 5 : 0) << i; // two slices of 6
}

TEST(KxDownSample, RejectsBadArguments)
{
    std::vector<float> src(8), dst(8);
    const KxTypedPointer p(src.data(), KxPrimType::FLOAT);
    EXPECT_THROW(KxRawData::downSample3D(dst.data(), p, 2, 2, 2, 0, 1, 1, nullptr), KxException);
    EXPECT_THROW(KxRawData::downSample3D(dst.data(), p, 2, 2, 2, 1, -1, 1, nullptr), KxException);
    EXPECT_THROW(KxRawData::downSample3D(dst.data(), p, -2, 2, 2, 1, 1, 1, nullptr), KxException);
    EXPECT_THROW(KxRawData::downSample3D(dst.data(), KxTypedPointer(src.data(), KxPrimType(5)), 2, 2, 2, 1, 1,
                                         1, nullptr),
                 KxException);
    EXPECT_THROW(KxRawData::downSample3D(nullptr, p, 2, 2, 2, 1, 1, 1, nullptr), KxException);
}
