#pragma once
#include <kx/KxHandle.h>
#include <vx/VxBlockStructuredGrid.h>
#include <vx/VxRegScalarField3.h>

#include <algorithm>
#include <vector>

// A field made of blocks, each a field on a regular lattice of its own (uniform or curvilinear
// coordinates). Neighbouring blocks usually share the nodes of their common face. Base is the
// family the whole field belongs to (VxScalarField3 for scalar values); the blocks are shared,
// reference-counted fields.
template <class Base> class VxBlockStructuredField3 : public Base
{
public:
    using BlockType = VxRegScalarField3;

    // The blocks' geometry: one zone per block, in block order.
    const VxBlockStructuredGrid* getGrid() const { return &m_grid; }
    int getNumBlocks() const { return int(m_blocks.size()); }
    // Block b, or null when there is no such block.
    BlockType* getField(int block) const
    {
        return block >= 0 && block < getNumBlocks() ? m_blocks[std::size_t(block)].get() : nullptr;
    }
    // Appends a block (ignored when null); returns its number, or -1.
    int addBlock(BlockType* field)
    {
        if (!field) return -1;
        m_blocks.emplace_back(field);
        m_grid.addZone(field);
        this->touchDownstream();
        return getNumBlocks() - 1;
    }

    KxBox3f getBoundingBox() const override { return m_grid.getBoundingBox(); }
    bool hasUndefinedValue() const override
    {
        for (const auto& b : m_blocks)
            if (b->hasUndefinedValue()) return true;
        return false;
    }

    // The value type all blocks share; UNKNOWN when they differ or there are none.
    KxPrimType primType() const
    {
        if (m_blocks.empty()) return KxPrimType::UNKNOWN;
        const KxPrimType t = m_blocks.front()->primType();
        for (const auto& b : m_blocks)
            if (b->primType() != t) return KxPrimType::UNKNOWN;
        return t;
    }

    // Smallest and largest value over all blocks, with the blocks' range mode; false when no
    // value qualifies (min and max are then 0).
    bool getRange(double& min, double& max, int mode = BlockType::RANGE_ALL) const
    {
        bool any = false;
        min = max = 0;
        for (const auto& b : m_blocks) {
            double lo, hi;
            if (!b->getRange(lo, hi, mode)) continue;
            min = any ? std::min(min, lo) : lo;
            max = any ? std::max(max, hi) : hi;
            any = true;
        }
        return any;
    }

protected:
    std::vector<KxHandle<BlockType>> m_blocks;
    VxBlockStructuredGrid m_grid;
};
