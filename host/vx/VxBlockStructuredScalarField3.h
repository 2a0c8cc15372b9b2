#pragma once
#include <vx/VxBlockStructuredField3.h>

// A multi-block scalar field: the data type that modules accept for block-structured input.
class VxBlockStructuredScalarField3 : public VxBlockStructuredField3<VxScalarField3>
{
    KX_HEADER(VxBlockStructuredScalarField3)

public:
    VxBlockStructuredScalarField3() = default;
    // Each block's own interpolation (VxBlockLocation3).
    std::unique_ptr<VxLocation3> createLocation() const override;
};
