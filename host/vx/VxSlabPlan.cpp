#include <vx/VxSlabPlan.h>

// Out of line, so that the class's type information lives in the host library alone and a
// dynamic_cast from a tool finds the module's base loaded from a package.
VxSlabPlan::~VxSlabPlan() = default;
