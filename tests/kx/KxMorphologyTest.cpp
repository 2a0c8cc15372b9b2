#include <kx/KxException.h>
#include <kx/KxMorphology.h>

#include <random>

#include <gtest/gtest.h>

namespace {

std::size_t at(const KxVec3i& d, int x, int y, int z)
{
    return std::size_t(x) + std::size_t(d.x) * (std::size_t(y) + std::size_t(d.y) * std::size_t(z));
}

// Straight from the definition: every set voxel sets each in-lattice offset whose number of non-zero
// components is within the neighbourhood's reach (1 for 6, 2 for 18, 3 for 26).
KxBitfield reference(const KxBitfield& in, const KxVec3i& d, int neighborhood)
{
    const int reach = neighborhood == 6 ? 1 : neighborhood == 18 ? 2 : 3;
    KxBitfield out(in.nBits(), false);
    for (int z = 0; z < d.z; ++z)
        for (int y = 0; y < d.y; ++y)
            for (int x = 0; x < d.x; ++x) {
                if (!in[at(d, x, y, z)]) continue;
                for (int o = 0; o < 27; ++o) {
                    const int dx = o % 3 - 1, dy = o / 3 % 3 - 1, dz = o / 9 - 1;
                    const int px = x + dx, py = y + dy, pz = z + dz;
                    if ((dx != 0) + (dy != 0) + (dz != 0) <= reach && px >= 0 && py >= 0 && pz >= 0 &&
                        px < d.x && py < d.y && pz < d.z)
                        out.set(at(d, px, py, pz));
                }
            }
    return out;
}

} // namespace

TEST(KxMorphology, DilationMatchesDefinitionOnRandomMasksAlsoInPlace)
{
    // Row lengths around the 64-bit word size, flat and thin lattices, and one voxel; the border voxels
    // of the denser masks check that rows and slices do not wrap into their neighbours in memory.
    const KxVec3i dims[] = {{1, 1, 1},  {7, 5, 3},  {63, 3, 5}, {65, 7, 3}, {129, 3, 3},
                            {1, 9, 11}, {13, 1, 9}, {11, 9, 1}, {3, 3, 41}};
    unsigned seed = 1;
    for (const KxVec3i& d : dims)
        for (double density : {0.02, 0.3})
            for (int neighborhood : {6, 18, 26}) {
                SCOPED_TRACE(::testing::Message() << d.x << "x" << d.y << "x" << d.z << " density " << density
                                                  << " n" << neighborhood);
                std::mt19937 rng(seed++);
                KxBitfield in(std::size_t(d.x) * std::size_t(d.y) * std::size_t(d.z), false);
                for (std::size_t i = 0; i < in.nBits(); ++i)
                    if (std::bernoulli_distribution(density)(rng)) in.set(i);
                KxBitfield out, inPlace = in;
                KxMorphology::dilation3D(in, out, d, 1, neighborhood);
                EXPECT_TRUE(out == reference(in, d, neighborhood));
                KxMorphology::dilation3D(inPlace, inPlace, d, 1, neighborhood);
                EXPECT_TRUE(inPlace == out);
            }
}

TEST(KxMorphology, IterationsGrowByOneVoxelEachAndBadArgumentsThrow)
{
    const KxVec3i d(9, 8, 7);
    KxBitfield in(9 * 8 * 7, false), out;
    in.set(at(d, 4, 4, 3));
    KxMorphology::dilation3D(in, out, d, 2);
    EXPECT_EQ(out.nSetBits(), 125u);
    KxMorphology::dilation3D(in, out, d, 0);
    EXPECT_EQ(out, in);

    // Bad iterations, neighbourhoods, sizes and dimensions throw; an empty lattice is no error.
    EXPECT_THROW(KxMorphology::dilation3D(in, out, d, -1), KxException);
    EXPECT_THROW(KxMorphology::dilation3D(in, out, d, 1, 8), KxException);
    EXPECT_THROW(KxMorphology::dilation3D(in, out, KxVec3i(9, 8, 8), 1, 6), KxException);
    EXPECT_THROW(KxMorphology::dilation3D(in, out, KxVec3i(-9, 8, -7), 1, 6), KxException);
    KxMorphology::dilation3D(KxBitfield(), out, KxVec3i(0, 3, 4), 1, 26);
    EXPECT_EQ(out.nBits(), 0u);
}
