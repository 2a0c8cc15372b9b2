#include <kx/KxBitfield.h>
#include <kx/KxBox3.h>
#include <kx/KxDArray.h>
#include <kx/KxHandle.h>
#include <kx/KxPrimType.h>
#include <kx/KxSmallArray.h>

#include <cstring>

#include <gtest/gtest.h>

TEST(KxDArray, GrowsToLargerOfNeededAndOneAndAHalf)
{
    KxDArray<int> a;
    const std::size_t capacities[] = {1, 2, 3, 4, 6}; // max(needed, 1.5 x old)
    for (int i = 1; i <= 5; ++i) {
        a.push_back(i);
        EXPECT_EQ(a.capacity(), capacities[i - 1]) << i;
    }
    for (int i = 6; i <= 100; ++i) a.push_back(i);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(a[std::size_t(i)], i + 1);
    a.resize(1000);
    EXPECT_EQ(a.capacity(), 1000u); // the needed size wins over 1.5 x 100
}

TEST(KxDArray, CopyMoveReleaseAndStableRemove)
{
    KxDArray<int> a;
    for (int i = 0; i < 10; ++i) a.push_back(i);
    KxDArray<int> b(a);
    b[0] = 42;
    EXPECT_EQ(a[0], 0);
    KxDArray<int> c(std::move(b));
    EXPECT_TRUE(b.empty());
    EXPECT_EQ(c[0], 42);

    EXPECT_EQ(a.removeIf([](int v) { return v % 3 == 0; }), 4u);
    const int kept[] = {1, 2, 4, 5, 7, 8};
    ASSERT_EQ(a.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(a[i], kept[i]);

    a.shrinkToFit();
    EXPECT_EQ(a.capacity(), 6u);
    const std::size_t n = a.size();
    int* block = a.release();
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(a.capacity(), 0u);
    EXPECT_EQ(block[n - 1], 8);
    kxfree(block);
}

TEST(KxSmallArray, SpillsToHeapAndBack)
{
    KxSmallArray<int, 4> s;
    for (int i = 0; i < 10; ++i) s.push_back(i);
    ASSERT_EQ(s.size(), 10u);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(s[std::size_t(i)], i);
    s.resize(3);
    ASSERT_EQ(s.size(), 3u);
    EXPECT_EQ(s[2], 2);
    s.push_back(7);
    s.push_back(8);
    EXPECT_EQ(s[4], 8);
    EXPECT_EQ(s[0], 0);
}

TEST(KxBitfield, CountsFirstBitAndLabels)
{
    KxBitfield b(130, false);
    EXPECT_EQ(b.firstSetBit(), -1);
    EXPECT_EQ(b.nUnsetBits(), 130u);
    b.set(129);
    b.set(64);
    EXPECT_TRUE(b[129]);
    EXPECT_FALSE(b[128]);
    EXPECT_EQ(b.firstSetBit(), 64);
    EXPECT_EQ(b.nUnsetBits(), 128u);
    b.unset(64);
    EXPECT_EQ(b.firstSetBit(), 129);

    KxBitfield all(70, true);
    EXPECT_EQ(all.nUnsetBits(), 0u); // no stray bits past the end

    const unsigned char labels[] = {0, 3, 1, 3, 3};
    KxBitfield m;
    m.fromLabels(5, labels, 3);
    EXPECT_EQ(m.nSetBits(), 3u);
    unsigned char out[] = {9, 9, 9, 9, 9};
    m.toLabels(5, out, 7, KxBitfield::KEEP_UNSET);
    const unsigned char keep[] = {9, 7, 9, 7, 7};
    EXPECT_EQ(0, memcmp(out, keep, 5));
    m.toLabels(5, out, 7, KxBitfield::OVERWRITE_UNSET);
    const unsigned char over[] = {0, 7, 0, 7, 7};
    EXPECT_EQ(0, memcmp(out, over, 5));
}

TEST(KxBox3f, VoxelSizeAndContains)
{
    KxBox3f box(1, 3, -2, 2, 0, 0);
    KxVec3f v = box.getVoxelSize(KxDim3l(5, 3, 1));
    EXPECT_FLOAT_EQ(v.x, 0.5f);
    EXPECT_FLOAT_EQ(v.y, 2.0f);
    EXPECT_FLOAT_EQ(v.z, 0.0f);
    float six[6];
    box.copyBox6(six);
    EXPECT_EQ(six[2], -2.f);
    EXPECT_TRUE(box.contains({3.05f, 0, 0}, 0.1f));
    EXPECT_FALSE(box.contains({3.05f, 0, 0}));
}

TEST(KxPrimType, CodesSizesAndNames)
{
    const struct
    {
        const char* name;
        int code;
        std::size_t size;
    } expected[] = {{"uint8", 0, 1},  {"int8", 9, 1},  {"uint16", 7, 2},  {"int16", 1, 2},
                    {"uint32", 8, 4}, {"int32", 2, 4}, {"float32", 3, 4}, {"float64", 4, 8}};
    for (const auto& e : expected) {
        KxPrimType t = KxPrimType::fromName(e.name);
        EXPECT_EQ(int(t), e.code) << e.name;
        EXPECT_EQ(t.size(), e.size) << e.name;
        EXPECT_STREQ(KxPrimType(e.code).name(), e.name);
    }
    EXPECT_FALSE(KxPrimType::fromName("complex").isValid());
    EXPECT_FALSE(KxPrimType(5).isValid());
}

namespace {
struct Counted
{
    int refs = 0;
    bool* deleted;
    void ref() { ++refs; }
    void unref()
    {
        if (--refs == 0) *deleted = true;
    }
};
} // namespace

TEST(KxHandle, CountsReferences)
{
    bool deleted = false;
    Counted c{0, &deleted};
    {
        KxHandle<Counted> a(&c);
        KxHandle<Counted> b = a;
        EXPECT_EQ(c.refs, 2);
        b = nullptr;
        EXPECT_EQ(c.refs, 1);
        a = a; // self-assignment keeps the reference
        EXPECT_EQ(c.refs, 1);
    }
    EXPECT_TRUE(deleted);
}
