// Parallel compact cubes on uniform grids split along X, for every value type, for the threaded path and for
// a process's share of the slabs.
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>
#include <vxiso/extractor/VxSlabExtractionImpl.h>

VXISO_FOR_EACH_UNIFORM_ACCESSOR(VXISO_INSTANTIATE_PARALLEL, vxiso::VxIsosurfaceParallelCompactCubes,
                                vxiso::tools::Xaxis)
VXISO_FOR_EACH_UNIFORM_ACCESSOR(VXISO_INSTANTIATE_SLABS, vxiso::VxIsosurfaceParallelCompactCubes,
                                vxiso::tools::Xaxis)
