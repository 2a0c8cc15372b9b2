// Contour lines of a 2048 x 2048 sampled slice at 10 iso values, one thread: our sampling path against
// VTK's vtkFlyingEdges2D and contourpy on the same samples. Ours asks a field location for every
// sample (here one that reads the stored samples, through a template and through the virtual
// interface); the peers are handed the samples. Times are the best of --reps runs after a warm-up;
// compare them as ratios within one run only.
// Run: make isoline-bench   (or build/bin/vxiso_isoline_bench [--size N] [--reps N])
#include <vxiso/isolines/VxIsolineContouring.h>
#include <vxiso/isolines/VxIsolineFieldLocation.h>

#include <vtkCellArray.h>
#include <vtkFloatArray.h>
#include <vtkFlyingEdges2D.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkSMPTools.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

double bestMs(int reps, const std::function<void()>& run)
{
    run();
    double best = 1e300;
    for (int r = 0; r < reps; ++r) {
        const auto t0 = std::chrono::steady_clock::now();
        run();
        best = std::min(
            best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    }
    return best;
}

// The stored samples at unit spacing from the origin: what a location on a lattice whose nodes are
// the samples finds.
struct SampleLocation
{
    const float* samples;
    int n;
    const float* at = nullptr;
    bool set(const SbVec3f& p)
    {
        const int c = int(p[0] + 0.5f), r = int(p[1] + 0.5f);
        if (c < 0 || r < 0 || c >= n || r >= n) return false;
        at = samples + r * n + c;
        return true;
    }
    bool move(const SbVec3f& p) { return set(p); }
    bool evaluate(float& v) { return v = *at, true; }
};

struct VirtualSampleLocation : VxIsolineFieldLocation
{
    explicit VirtualSampleLocation(SampleLocation l) : inner(l) {}
    bool set(const SbVec3f& p) override { return inner.set(p); }
    bool move(const SbVec3f& p) override { return inner.move(p); }
    bool evaluate(float& v) override { return inner.evaluate(v); }
    SampleLocation inner;
};

} // namespace

int main(int argc, char** argv)
{
    int n = 2048, reps = 5;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--size")) n = std::atoi(argv[i + 1]);
        if (!std::strcmp(argv[i], "--reps")) reps = std::atoi(argv[i + 1]);
    }
    // Hills and ripples: lines across the slice, about a thousand loops, saddles between them.
    std::vector<float> z(std::size_t(n) * std::size_t(n));
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const float x = float(c) / float(n), y = float(r) / float(n);
            z[std::size_t(r) * std::size_t(n) + std::size_t(c)] =
                std::sin(29.f * x) * std::cos(23.f * y) + 0.5f * std::sin(41.f * (x + y)) +
                0.3f * std::sin(181.f * x) * std::sin(157.f * y);
        }
    const auto [lo, hi] = std::minmax_element(z.begin(), z.end());
    std::vector<float> levels;
    for (int k = 0; k < 10; ++k) levels.push_back(*lo + (*hi - *lo) * (float(k) + 0.5f) / 10.f);
    std::printf("isolines: %d x %d samples, %zu iso values, one thread, best of %d\n", n, n, levels.size(),
                reps);

    VxIsolineContouring ours;
    ours.setIsoValues(levels.data(), int(levels.size()));
    const VxIsolineSampling sampling{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, n};
    const KxBox3f box(0, float(n), 0, float(n), -1, 1);
    const double oursMs = bestMs(reps, [&] {
        SampleLocation location{z.data(), n};
        ours.doGeneric(sampling, box, location);
    });
    const int oursPoints = ours.lines().getNumPoints(), oursLines = ours.lines().getNumLines();
    const double virtualMs = bestMs(reps, [&] {
        VirtualSampleLocation location(SampleLocation{z.data(), n});
        VxIsolineFieldLocation& any = location;
        ours.doGeneric(sampling, box, any);
    });

    vtkSMPTools::Initialize(1);
    vtkNew<vtkImageData> image;
    image->SetDimensions(n, n, 1);
    vtkNew<vtkFloatArray> values;
    values->SetArray(z.data(), vtkIdType(z.size()), 1); // ours: VTK does not free it
    values->SetName("values");
    image->GetPointData()->SetScalars(values);
    vtkNew<vtkFlyingEdges2D> peer;
    peer->SetInputData(image);
    peer->SetNumberOfContours(int(levels.size()));
    for (std::size_t k = 0; k < levels.size(); ++k) peer->SetValue(int(k), levels[k]);
    peer->ComputeScalarsOff();
    const double vtkMs = bestMs(reps, [&] {
        peer->Modified();
        peer->Update();
    });
    vtkPolyData* vtkOut = peer->GetOutput();

    std::printf("  %-34s %9.1f ms   %9d points %8d polylines\n", "ours (location as template)", oursMs,
                oursPoints, oursLines);
    std::printf("  %-34s %9.1f ms\n", "ours (location as virtual calls)", virtualMs);
    std::printf("  %-34s %9.1f ms   %9lld points %8lld segments   ours / peer %.2f\n", "vtkFlyingEdges2D",
                vtkMs, (long long)vtkOut->GetNumberOfPoints(), (long long)vtkOut->GetNumberOfLines(),
                oursMs / vtkMs);

    char dir[] = "/tmp/vxiso-isoline-bench-XXXXXX";
    if (!mkdtemp(dir)) return 1;
    const std::string grid = std::string(dir) + "/grid.raw";
    if (FILE* f = std::fopen(grid.c_str(), "wb")) {
        std::fwrite(z.data(), sizeof(float), z.size(), f);
        std::fclose(f);
    }
    std::string command = "/usr/bin/python3 " VXISO_SOURCE_DIR "/bench/contourpy_bench.py " + grid + " " +
                          std::to_string(n) + " " + std::to_string(reps);
    for (float v : levels) command += " " + std::to_string(v);
    double contourpyMs = 0;
    long long cpPoints = 0, cpLines = 0;
    FILE* p = popen((command + " 2>/dev/null").c_str(), "r");
    const bool ran = p && std::fscanf(p, "%lf %lld %lld", &contourpyMs, &cpPoints, &cpLines) == 3;
    if (p) pclose(p);
    std::remove(grid.c_str());
    rmdir(dir);
    if (ran)
        std::printf("  %-34s %9.1f ms   %9lld points %8lld polylines  ours / peer %.2f\n",
                    "contourpy (serial)", contourpyMs, cpPoints, cpLines, oursMs / contourpyMs);
    else
        std::printf(
            "  contourpy: not run (python3 with contourpy is not available; install python3-contourpy)\n");
    return 0;
}
