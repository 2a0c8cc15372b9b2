// Parallel standard cubes on curvilinear (and other non-uniform) grids, every split axis.
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

using vxiso::tools::CurvField3Accessor;

VXISO_INSTANTIATE_PARALLEL(CurvField3Accessor, vxiso::VxIsosurfaceParallelStandardCubes, vxiso::tools::Xaxis)
VXISO_INSTANTIATE_PARALLEL(CurvField3Accessor, vxiso::VxIsosurfaceParallelStandardCubes, vxiso::tools::Yaxis)
VXISO_INSTANTIATE_PARALLEL(CurvField3Accessor, vxiso::VxIsosurfaceParallelStandardCubes, vxiso::tools::Zaxis)
