// Sequential extraction speed: standard and compact cubes on gyroid volumes stored as float32 and
// uint8, with the floor of reading every voxel once as the baseline of the same run.
// Run: make bench   (or build/bin/vxiso_bench --benchmark_filter=...)
#include "BenchVolumes.h"

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>
#include <vxiso/VxIsosurfaceExtractor.h>

#include <benchmark/benchmark.h>

namespace {

using vxbench::gyroid;
using vxbench::gyroidIso;

void extract(benchmark::State& state, bool asUint8, int compact)
{
    oivInit();
    const int size = int(state.range(0));
    VxUniformScalarField3* field = gyroid(size, asUint8);
    long triangles = 0;
    for (auto _ : state) {
        KxHandle<SoTriSurface> surface = new SoTriSurface;
        VxIsosurfaceExtractor x(field, surface, nullptr);
        x.isoValue = gyroidIso(asUint8);
        x.compact = compact;
        x.numberOfCores = 1;
        x.compute();
        triangles = surface->getNumTriangles();
    }
    state.counters["cells/s"] =
        benchmark::Counter(vxbench::cellCount(*field), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["triangles"] = double(triangles);
}

// The floor: every voxel read once and compared with the iso value.
void readEveryVoxel(benchmark::State& state, bool asUint8)
{
    VxUniformScalarField3* field = gyroid(int(state.range(0)), asUint8);
    for (auto _ : state) benchmark::DoNotOptimize(vxbench::countAbove(*field, gyroidIso(asUint8)));
    state.counters["cells/s"] =
        benchmark::Counter(vxbench::cellCount(*field), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Floor_Float32(benchmark::State& s)
{
    readEveryVoxel(s, false);
}
void BM_Floor_Uint8(benchmark::State& s)
{
    readEveryVoxel(s, true);
}
void BM_Standard_Float32(benchmark::State& s)
{
    extract(s, false, 0);
}
void BM_Standard_Uint8(benchmark::State& s)
{
    extract(s, true, 0);
}
void BM_Compact_Float32(benchmark::State& s)
{
    extract(s, false, 1);
}
void BM_Compact_Uint8(benchmark::State& s)
{
    extract(s, true, 1);
}

} // namespace

// Wall time: the extractor works on a thread of its own, so the caller's CPU time says nothing.
#define SIZES ->Arg(128)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()
BENCHMARK(BM_Floor_Float32) SIZES;
BENCHMARK(BM_Floor_Uint8) SIZES;
BENCHMARK(BM_Standard_Float32) SIZES;
BENCHMARK(BM_Standard_Uint8) SIZES;
BENCHMARK(BM_Compact_Float32) SIZES;
BENCHMARK(BM_Compact_Uint8) SIZES;
