#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxRawData.h>

#include <cmath>
#include <limits>
#include <random>
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

// Integers over their whole range, floating-point values of either sign.
template <class T> std::vector<T> randomSamples(std::size_t n, unsigned seed)
{
    std::mt19937_64 rng(seed);
    const bool integral = std::is_integral<T>::value;
    std::uniform_real_distribution<double> d(integral ? double(std::numeric_limits<T>::lowest()) : -1e6,
                                             integral ? double(std::numeric_limits<T>::max()) : 1e6);
    std::vector<T> v(n);
    for (T& x : v) x = T(d(rng));
    return v;
}

template <class T> void expectSame(const std::vector<T>& got, const std::vector<T>& want)
{
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        if constexpr (std::is_same<T, float>::value)
            ASSERT_FLOAT_EQ(got[i], want[i]) << i;
        else if constexpr (std::is_same<T, double>::value)
            ASSERT_DOUBLE_EQ(got[i], want[i]) << i;
        else
            ASSERT_EQ(+got[i], +want[i]) << i;
    }
}

template <class T>
std::vector<T> downSample(std::vector<T>& src, long nx, long ny, long nz, int fx, int fy, int fz)
{
    std::vector<T> dst(std::size_t((nx / fx) * (ny / fy) * (nz / fz)));
    EXPECT_TRUE(KxRawData::downSample3D(dst.data(), KxTypedPointer(src.data(), KxPrimTypeOf<T>::value), nx,
                                        ny, nz, fx, fy, fz, nullptr));
    return dst;
}

struct Recorder : KxProgressInterface
{
    explicit Recorder(int interruptAfter = -1) : interruptAfter(interruptAfter) {}
    void setProgressValue(float v) override { values.push_back(v); }
    bool wasInterrupted() override { return int(values.size()) == interruptAfter; }
    std::vector<float> values;
    int interruptAfter;
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
    const struct
    {
        long nx, ny, nz;
        int fx, fy, fz;
    } cases[] = {
        {7, 5, 11, 2, 3, 4}, // remainders on every axis
        {8, 6, 4, 2, 2, 2},  // exact fit
        {5, 4, 3, 1, 1, 1},  // identity
        {9, 7, 5, 9, 1, 5},  // one block along x and z
        {3, 4, 5, 4, 1, 1},  // factor larger than the axis: nothing to write
    };
    unsigned seed = 7;
    for (const auto& c : cases) {
        std::vector<T> src = randomSamples<T>(std::size_t(c.nx * c.ny * c.nz), seed++);
        SCOPED_TRACE(::testing::Message()
                     << c.nx << "x" << c.ny << "x" << c.nz << " by " << c.fx << "," << c.fy << "," << c.fz);
        expectSame(downSample(src, c.nx, c.ny, c.nz, c.fx, c.fy, c.fz),
                   reference(src, c.nx, c.ny, c.nz, c.fx, c.fy, c.fz));
    }
    // Blocks of the largest or lowest value: a sum in the sample's own width (or in float for float
    // samples, in double for doubles) would overflow.
    for (T v : {std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest()}) {
        std::vector<T> src(8 * 8 * 8, v);
        for (T got : downSample(src, 8, 8, 8, 4, 4, 4)) ASSERT_EQ(+got, +v);
    }
}

TYPED_TEST(KxDownSample, InterruptionStopsBetweenSlices)
{
    using T = TypeParam;
    std::vector<T> src(4 * 3 * 10, T(5));
    std::vector<T> dst(2 * 3 * 5, T(0));
    Recorder stopAfterTwo(2);
    EXPECT_FALSE(KxRawData::downSample3D(dst.data(), KxTypedPointer(src.data(), KxPrimTypeOf<T>::value), 4, 3,
                                         10, 2, 1, 2, &stopAfterTwo));
    EXPECT_EQ(stopAfterTwo.values, (std::vector<float>{0.2f, 0.4f}));
    for (std::size_t i = 0; i < dst.size(); ++i) EXPECT_EQ(+dst[i], i < 12 ? 5 : 0) << i; // two slices of 6

    Recorder all;
    EXPECT_TRUE(KxRawData::downSample3D(dst.data(), KxTypedPointer(src.data(), KxPrimTypeOf<T>::value), 4, 3,
                                        10, 2, 1, 2, &all));
    EXPECT_EQ(all.values, (std::vector<float>{0.2f, 0.4f, 0.6f, 0.8f, 1.f}));
}

TEST(KxDownSample, IntegerMeansRoundHalvesAwayFromZero)
{
    // Pairs along x: 1.5 -> 2, -1.5 -> -2, 2.5 -> 3, -0.5 -> -1, 0.5 -> 1; triples: 4/3 -> 1, 5/3 -> 2,
    // -5/3 -> -2.
    std::vector<int> pairs = {1, 2, -1, -2, 2, 3, 0, -1, 1, 0};
    EXPECT_EQ(downSample(pairs, 10, 1, 1, 2, 1, 1), (std::vector<int>{2, -2, 3, -1, 1}));
    std::vector<short> triples = {1, 1, 2, 1, 2, 2, -1, -2, -2};
    EXPECT_EQ(downSample(triples, 1, 1, 9, 1, 1, 3), (std::vector<short>{1, 2, -2}));
    std::vector<unsigned int> big = {4294967295u, 4294967294u};
    EXPECT_EQ(downSample(big, 1, 2, 1, 1, 2, 1), (std::vector<unsigned int>{4294967295u}));
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
