#pragma once
#include "VxisoOptions.h"

#include <kx/KxHandle.h>
#include <kx/KxVec3.h>

class VxRegScalarField3;
class VxSpatialData;
class VxUniformLabelField3;
struct VxVolumeInfo;

// Which input the words without an option name (a volume file, a multi-block description or a raw
// file), and whether the input options fit it. Throws VxisoUsageError.
void vxisoChooseInput(VxisoOptions& o);

// The input as the options describe it: a scalar field, with --labels a label field, or the
// blocks of a multi-block field. Throws KxException when it cannot be read.
KxHandle<VxSpatialData> vxisoReadInput(const VxisoOptions& o, VxVolumeInfo& info);

// What the isosurface module reads: the field (the chosen labels' wrap with --labels, padded with
// --pad) or the blocks; with --mask also the region's mask. With --labels the threshold becomes the
// wrap's 0.5.
struct VxisoModuleInputs
{
    KxHandle<VxSpatialData> data;
    KxHandle<VxUniformLabelField3> mask;
};
VxisoModuleInputs vxisoModuleInputs(VxisoOptions& o, const KxHandle<VxSpatialData>& data);

// Distance between neighbouring nodes; a uniform field's axes of one node keep their own spacing.
KxVec3f vxisoVoxelSize(const VxSpatialData& data, const KxDim3l& d);
