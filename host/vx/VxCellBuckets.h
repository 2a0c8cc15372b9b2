#pragma once
#include <kx/KxBox3.h>

#include <cstdint>
#include <functional>
#include <vector>

// A spatial index of cells for point location: a regular grid of buckets over the cells' box, each
// listing the cells whose boxes reach into it. Finding the cells that may hold a point is one bucket
// look-up; a cell is listed in every bucket its box overlaps, so large cells cost more entries.
class VxCellBuckets
{
public:
    // cellBox(c) is the box of cell c, for c in [0, numCells). About four cells a bucket, and 32-bit
    // cell numbers, to keep the index small; throws KxException for more cells than those reach.
    VxCellBuckets(int64_t numCells, const std::function<KxBox3f(int64_t)>& cellBox);

    // The cells whose boxes may contain p, as a range [begin, end) of cell numbers; empty outside.
    struct Range
    {
        const int32_t* begin;
        const int32_t* end;
    };
    Range candidates(const KxVec3f& p) const;

private:
    int64_t bucketOf(int axis, float v) const;

    KxBox3f m_box;
    int64_t m_n[3] = {0, 0, 0};
    float m_scale[3] = {0, 0, 0};
    std::vector<int64_t> m_start; // per bucket, where its cells begin in m_cells (CSR)
    std::vector<int32_t> m_cells;
};
