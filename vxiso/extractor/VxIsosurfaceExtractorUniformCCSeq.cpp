// Sequential compact cubes on uniform grids, for every value type.
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

using vxiso::tools::RegField3Accessor;

VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<unsigned char>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<char>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<unsigned short>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<short>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<unsigned int>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<int>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<float>)
VXISO_INSTANTIATE_SEQUENTIAL_COMPACT(RegField3Accessor<double>)
