// Every header of the engine, compiled with the foundation (kx) as the only part of the host in
// reach (see vxiso/CMakeLists.txt): a header that reaches for the framework, Open Inventor or the
// interpreter breaks the build here.
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxIsosurfaceByteCaseTable.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceExtractorImpl.h>
#include <vxiso/extractor/VxIsosurfaceMarchingCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceTables.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>
#include <vxiso/extractor/VxRaceAnnotations.h>
#include <vxiso/extractor/VxSlabExtractionImpl.h>

#ifdef TCL_VERSION
#error "an engine header includes tcl.h"
#endif
