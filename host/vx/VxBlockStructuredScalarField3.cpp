#include <vx/VxBlockStructuredScalarField3.h>

KX_SOURCE(VxBlockStructuredScalarField3, VxScalarField3)
