// Sequential standard cubes on uniform grids, for every value type.
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>

VXISO_FOR_EACH_UNIFORM_ACCESSOR(VXISO_INSTANTIATE_SEQUENTIAL)
