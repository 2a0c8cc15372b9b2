// Parallel standard cubes on uniform grids split along Z, for every value type.
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

using vxiso::tools::RegField3Accessor;
using Axis = vxiso::tools::Zaxis;

VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned char>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<char>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned short>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<short>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned int>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<int>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<float>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<double>, vxiso::VxIsosurfaceParallelStandardCubes, Axis)
