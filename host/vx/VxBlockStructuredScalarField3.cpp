#include <vx/VxBlockLocation3.h>
#include <vx/VxBlockStructuredScalarField3.h>

KX_SOURCE(VxBlockStructuredScalarField3, VxScalarField3)

std::unique_ptr<VxLocation3> VxBlockStructuredScalarField3::createLocation() const
{
    return std::make_unique<VxBlockLocation3>(*this);
}
