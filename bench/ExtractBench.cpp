// Sequential extraction speed: standard and compact cubes on gyroid volumes stored as float32 and
// uint8, with the floor of reading every voxel once as the baseline of the same run.
// Run: make bench   (or build/bin/vxiso_bench --benchmark_filter=...)
#include <io/VxBuiltinField.h>
#include <kx/KxHandle.h>
#include <kx/KxMemory.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>
#include <vxiso/VxIsosurfaceExtractor.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <map>

namespace {

// One field per (size, type), built once: the float gyroid, or the same quantised to 0..255.
VxUniformScalarField3* gyroid(int size, bool asUint8)
{
    static std::map<std::pair<int, bool>, KxHandle<VxUniformScalarField3>> cache;
    KxHandle<VxUniformScalarField3>& slot = cache[{size, asUint8}];
    if (slot) return slot;
    KxHandle<VxUniformScalarField3> f = VxBuiltinField::create("gyroid", size, nullptr);
    if (!asUint8) return slot = f;
    const std::size_t n = std::size_t(f->getDims().count());
    auto* bytes = static_cast<unsigned char*>(kxmalloc(n));
    const float* v = static_cast<const float*>(f->lattice().dataPtr());
    for (std::size_t i = 0; i < n; ++i) bytes[i] = (unsigned char)std::lround(127.5f + 80.f * v[i]);
    auto* u8 = new VxUniformScalarField3(f->getDims(), KxPrimType::UINT8, bytes);
    u8->setBoundingBox(f->getBoundingBox());
    return slot = u8;
}

void extract(benchmark::State& state, bool asUint8, int compact)
{
    oivInit();
    const int size = int(state.range(0));
    VxUniformScalarField3* field = gyroid(size, asUint8);
    long triangles = 0;
    for (auto _ : state) {
        KxHandle<SoTriSurface> surface = new SoTriSurface;
        VxIsosurfaceExtractor x(field, surface, nullptr);
        x.isoValue = asUint8 ? 127.5f : 0.f;
        x.compact = compact;
        x.numberOfCores = 1;
        x.compute();
        triangles = surface->getNumTriangles();
    }
    const double cells = double(size - 1) * double(size - 1) * double(size - 1);
    state.counters["cells/s"] = benchmark::Counter(cells, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["triangles"] = double(triangles);
}

// The floor: every voxel read once and compared with the iso value.
template <class T>
void readEveryVoxel(benchmark::State& state, bool asUint8)
{
    const int size = int(state.range(0));
    VxUniformScalarField3* field = gyroid(size, asUint8);
    const T* v = static_cast<const T*>(field->lattice().dataPtr());
    const std::size_t n = std::size_t(field->getDims().count());
    const float iso = asUint8 ? 127.5f : 0.f;
    for (auto _ : state) {
        std::size_t above = 0;
        for (std::size_t i = 0; i < n; ++i) above += float(v[i]) > iso;
        benchmark::DoNotOptimize(above);
    }
    const double cells = double(size - 1) * double(size - 1) * double(size - 1);
    state.counters["cells/s"] = benchmark::Counter(cells, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Floor_Float32(benchmark::State& s) { readEveryVoxel<float>(s, false); }
void BM_Floor_Uint8(benchmark::State& s) { readEveryVoxel<unsigned char>(s, true); }
void BM_Standard_Float32(benchmark::State& s) { extract(s, false, 0); }
void BM_Standard_Uint8(benchmark::State& s) { extract(s, true, 0); }
void BM_Compact_Float32(benchmark::State& s) { extract(s, false, 1); }
void BM_Compact_Uint8(benchmark::State& s) { extract(s, true, 1); }

} // namespace

#define SIZES ->Arg(128)->Arg(256)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_Floor_Float32) SIZES;
BENCHMARK(BM_Floor_Uint8) SIZES;
BENCHMARK(BM_Standard_Float32) SIZES;
BENCHMARK(BM_Standard_Uint8) SIZES;
BENCHMARK(BM_Compact_Float32) SIZES;
BENCHMARK(BM_Compact_Uint8) SIZES;
