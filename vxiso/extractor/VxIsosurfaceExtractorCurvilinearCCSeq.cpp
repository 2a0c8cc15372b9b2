// Sequential compact cubes on curvilinear (and other non-uniform) grids.
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(vxiso::tools::CurvField3Accessor)
