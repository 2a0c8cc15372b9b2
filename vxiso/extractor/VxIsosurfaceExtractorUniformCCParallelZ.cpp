// Parallel compact cubes on uniform grids split along Z, for every value type.
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

using vxiso::tools::RegField3Accessor;
using Axis = vxiso::tools::Zaxis;

VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned char>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<char>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned short>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<short>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<unsigned int>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<int>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<float>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
VXISO_INSTANTIATE_PARALLEL(RegField3Accessor<double>, vxiso::VxIsosurfaceParallelCompactCubes, Axis)
