#pragma once
// Volumes and baselines shared by the benchmarks, so that every benchmark races on the same data.
#include <cstddef>

class VxUniformScalarField3;

namespace vxbench {

// The built-in gyroid of size^3 nodes, stored as float32 or quantised to uint8 (127.5 + 80 v,
// rounded), built once per process and kept.
VxUniformScalarField3* gyroid(int size, bool asUint8);
// The value at which the gyroid's surface lies in that storage.
float gyroidIso(bool asUint8);
// Cells of the lattice: the unit a cells/s rate counts.
double cellCount(const VxUniformScalarField3& field);
// The floor every extractor stands on: each voxel read once and compared with iso. Returns the
// number of voxels above iso, so that the loop cannot be dropped.
std::size_t countAbove(const VxUniformScalarField3& field, float iso);

} // namespace vxbench
