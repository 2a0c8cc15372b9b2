#pragma once
#include <io/VxVolumeLayout.h>
#include <kx/KxVec3.h>

#include <mpi.h>

#include <memory>
#include <string>

struct VxisoOptions;

// The input of vxiso-mpi: where the volume's values lie, from the options (a raw description) or
// from the header of a NIfTI, NRRD or MetaImage file, and a box of nodes read from there with MPI-IO.
// Failures are KxExceptions naming the file.
namespace VxMpiInput {

// The layout of the input; refuses what cannot be read in parts: compressed or text values.
VxVolumeLayout locate(const VxisoOptions& o);

// Checks that the file holds the box's values: a file shorter than its header says fails on the
// ranks whose box lies past its end.
void checkBox(const VxVolumeLayout& l, const KxVec3i& first, const KxVec3i& stored);

// Reads the box of nodes [first, first + stored) into out (native byte order). Collective: every
// rank calls it, with a box of its own.
void readBox(MPI_Comm comm, const VxVolumeLayout& l, const KxVec3i& first, const KxVec3i& stored, char* out);

} // namespace VxMpiInput
