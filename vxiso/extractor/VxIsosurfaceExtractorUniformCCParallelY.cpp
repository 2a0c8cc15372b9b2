// Parallel compact cubes on uniform grids split along Y, for every value type.
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

VXISO_FOR_EACH_UNIFORM_ACCESSOR(VXISO_INSTANTIATE_PARALLEL, vxiso::VxIsosurfaceParallelCompactCubes,
                                vxiso::tools::Yaxis)
