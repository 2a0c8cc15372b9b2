#pragma once
#include "VxMpiRanks.h"
#include "VxisoOptions.h"

#include <cstdint>

// What vxiso-mpi surface does beyond vxiso's options.
struct VxMpiSettings
{
    uint64_t maxMemory = 0; // bytes a rank may hold; 0: no limit
};

// vxiso-mpi surface on every rank: the plan, each rank's slab read and extracted, the merge across
// ranks and the file written together. Throws VxMpiRanks::Failure (the same on every rank).
void vxMpiSurface(const VxMpiRanks& ranks, const VxisoOptions& o, const VxMpiSettings& settings);
