#pragma once
#include <vx/VxRegLocation3.h>

#include <memory>
#include <vector>

class VxBlockStructuredScalarField3;

// Location in a multi-block field: a location in each block, made when first needed. A point is
// looked for in the block of the last point first (where a walk usually stays), then in the
// blocks whose boxes hold it, in block order; on the faces that blocks share either block's value
// is the same node value.
class VxBlockLocation3 : public VxLocation3
{
public:
    explicit VxBlockLocation3(const VxBlockStructuredScalarField3& field);
    ~VxBlockLocation3() override;

    bool set(const SbVec3f& p) override;
    bool move(const SbVec3f& p) override;
    bool eval(float& value) const override;

    // The block of the point found last, or -1.
    int getBlock() const { return m_found ? m_block : -1; }

private:
    VxRegLocation3* block(int b);
    bool search(const SbVec3f& p, int skip);

    const VxBlockStructuredScalarField3& m_field;
    std::vector<std::unique_ptr<VxRegLocation3>> m_blocks;
    bool m_found = false;
    int m_block = 0;
};
