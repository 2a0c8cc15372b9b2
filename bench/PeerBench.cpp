// Side by side with VTK's vtkFlyingEdges3D, in one process, on the same volumes in memory: the gyroid
// at 256^3 and 384^3 stored as float32 and as uint8, and the ch2 head scan of mricron-data. Each
// extractor runs at 1 and 2 threads; the floor of reading every voxel once is the baseline. Times are
// the best of --reps runs after one warm-up; compare them as ratios within one run only.
// With --cold it races in fresh processes instead, as a user of the command meets both (ColdBench.cpp).
// Run: make peer-bench   (or build/bin/vxiso_peer_bench [--reps N] [--sizes 256,384] [--ch2 FILE]
//                         [--cold [--runs N] [--cold-sizes 256,512] [--ch2better FILE]])
#include "BenchVolumes.h"
#include "ColdBench.h"

#include <io/VxBuiltinField.h>
#include <io/VxNiftiReader.h>
#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>
#include <vxiso/VxIsosurfaceExtractor.h>

#include <vtkAOSDataArrayTemplate.h>
#include <vtkCellArray.h>
#include <vtkFlyingEdges3D.h>
#include <vtkImageData.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPolyData.h>
#include <vtkSMPTools.h>
#include <vtkSmartPointer.h>

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Volume
{
    std::string name;
    KxHandle<VxUniformScalarField3> field;
    float iso = 0;
};

struct Counts
{
    long long vertices = 0, triangles = 0;
};

double msSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// Best of reps runs after one warm-up. Each run times itself, so that freeing what the previous run
// built stays outside the clock for every contender alike.
double bestMs(int reps, const std::function<double()>& timedRun)
{
    timedRun();
    double best = 1e300;
    for (int r = 0; r < reps; ++r) best = std::min(best, timedRun());
    return best;
}

// ---- ours --------------------------------------------------------------------------------------

Counts extractOurs(const VxUniformScalarField3& field, float iso, int cores, double* ms = nullptr)
{
    KxHandle<SoTriSurface> surface = new SoTriSurface;
    const auto t0 = std::chrono::steady_clock::now();
    VxIsosurfaceExtractor x(&field, surface, nullptr);
    x.isoValue = iso;
    x.compact = 0;
    x.numberOfCores = cores;
    x.compute();
    if (ms) *ms = msSince(t0);
    return {surface->getNumPoints(), surface->getNumTriangles()};
}

// ---- the peer ----------------------------------------------------------------------------------

// The field's values seen by VTK without a copy: save=1 leaves the memory ours.
vtkSmartPointer<vtkImageData> wrapForVtk(const VxUniformScalarField3& field)
{
    const KxDim3l& d = field.getDims();
    const KxBox3f box = field.getBoundingBox();
    const KxVec3f voxel = field.getVoxelSize();
    auto image = vtkSmartPointer<vtkImageData>::New();
    image->SetDimensions(int(d.nx), int(d.ny), int(d.nz));
    image->SetOrigin(box.xmin, box.ymin, box.zmin);
    image->SetSpacing(voxel.x, voxel.y, voxel.z);
    vtkSmartPointer<vtkDataArray> values;
    kxDispatchPrimType(field.primType(), const_cast<void*>(field.lattice().dataPtr()), [&](auto* p) {
        using T = std::remove_pointer_t<decltype(p)>;
        auto array = vtkSmartPointer<vtkAOSDataArrayTemplate<T>>::New();
        array->SetNumberOfComponents(1);
        array->SetArray(p, vtkIdType(d.count()), 1);
        values = array;
    });
    values->SetName("values");
    image->GetPointData()->SetScalars(values);
    return image;
}

class Peer
{
public:
    Peer(vtkImageData* image, float iso)
    {
        m_filter->SetInputData(image);
        m_filter->SetNumberOfContours(1);
        m_filter->SetValue(0, iso);
        m_filter->ComputeNormalsOn();
        m_filter->ComputeGradientsOff();
        m_filter->ComputeScalarsOff();
    }
    Counts run(double* ms = nullptr)
    {
        m_filter->GetOutput()->Initialize(); // the previous surface is freed off the clock
        m_filter->Modified();
        const auto t0 = std::chrono::steady_clock::now();
        m_filter->Update();
        if (ms) *ms = msSince(t0);
        vtkPolyData* out = m_filter->GetOutput();
        return {out->GetNumberOfPoints(), out->GetNumberOfPolys()};
    }

private:
    vtkNew<vtkFlyingEdges3D> m_filter;
};

// Most chunks of a loop seen running at once under vtkSMPTools (or plain TBB, which our engine
// uses): what a thread setting really does. Each chunk waits a while for a partner, so a second
// thread, when there is one, shows even on a busy machine.
int concurrencySeen(bool throughVtk)
{
    std::atomic<int> inside{0}, most{0};
    auto chunk = [&] {
        const int now = ++inside;
        for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        const auto t0 = std::chrono::steady_clock::now();
        while (inside < 2 && std::chrono::steady_clock::now() - t0 < std::chrono::milliseconds(300))
            std::this_thread::yield();
        for (int seen = most; inside > seen && !most.compare_exchange_weak(seen, inside);) {
        }
        --inside;
    };
    if (throughVtk)
        vtkSMPTools::For(0, 2, 1, [&](vtkIdType, vtkIdType) { chunk(); });
    else
        tbb::parallel_for(tbb::blocked_range<int>(0, 2, 1), [&](const tbb::blocked_range<int>&) { chunk(); });
    return most;
}

// ---- volumes -----------------------------------------------------------------------------------

// Otsu's split of the histogram: air below, head above. Half a step up so that no voxel equals it.
float headThreshold(const VxUniformScalarField3& field)
{
    double lo = 0, hi = 0;
    field.getRange(lo, hi);
    std::vector<double> hist(256, 0.0);
    const std::size_t n = std::size_t(field.getDims().count());
    for (std::size_t i = 0; i < n; ++i) {
        const double v = field.lattice().valueAt(int64_t(i));
        const int bin = hi > lo ? std::min(255, int((v - lo) / (hi - lo) * 256.0)) : 0;
        hist[std::size_t(bin)] += 1;
    }
    double all = 0, allMoment = 0;
    for (int b = 0; b < 256; ++b) all += hist[b], allMoment += b * hist[b];
    double below = 0, belowMoment = 0, bestSpread = -1;
    int split = 0;
    for (int b = 0; b < 255; ++b) {
        below += hist[b];
        belowMoment += b * hist[b];
        const double above = all - below;
        if (below == 0 || above == 0) continue;
        const double d = belowMoment / below - (allMoment - belowMoment) / above;
        const double spread = below * above * d * d;
        if (spread > bestSpread) bestSpread = spread, split = b;
    }
    const double t = lo + (split + 1) * (hi - lo) / 256.0;
    return float(std::floor(t) + 0.5);
}

std::size_t nodesAt(const VxUniformScalarField3& field, float iso)
{
    std::size_t equal = 0;
    const std::size_t n = std::size_t(field.getDims().count());
    kxDispatchPrimType(field.primType(), const_cast<void*>(field.lattice().dataPtr()), [&](const auto* v) {
        for (std::size_t i = 0; i < n; ++i) equal += float(v[i]) == iso;
    });
    return equal;
}

// ---- the race ----------------------------------------------------------------------------------

struct Row
{
    std::string name;
    double mcells = 0;
    double floorMs = 0, ours[2] = {0, 0}, peer[2] = {0, 0};
};

Row race(const Volume& v, int reps)
{
    Row row;
    row.name = v.name;
    const double cells = vxbench::cellCount(*v.field);
    row.mcells = cells / 1e6;
    const KxDim3l& d = v.field->getDims();
    std::printf("\n%s: %lldx%lldx%lld %s, iso %g, %.1f Mcells\n", v.name.c_str(), (long long)d.nx,
                (long long)d.ny, (long long)d.nz, v.field->primType().name(), double(v.iso), row.mcells);

    // Same surface? Once, outside the clock.
    vtkSmartPointer<vtkImageData> image = wrapForVtk(*v.field);
    Peer peer(image, v.iso);
    const Counts ours = extractOurs(*v.field, v.iso, 1), theirs = peer.run();
    std::printf("  surface: ours %lld vertices %lld triangles, vtk %lld points %lld triangles", ours.vertices,
                ours.triangles, theirs.vertices, theirs.triangles);
    if (ours.vertices == theirs.vertices && ours.triangles == theirs.triangles) {
        std::printf(" (same)\n");
    } else {
        std::printf(
            " (differ by %+lld vertices, %+lld triangles; %zu nodes equal the iso value, which we count "
            "as below it)\n",
            theirs.vertices - ours.vertices, theirs.triangles - ours.triangles, nodesAt(*v.field, v.iso));
    }

    auto report = [&](const char* what, double ms) {
        std::printf("  %-14s %9.1f ms %9.1f Mcells/s\n", what, ms, row.mcells / (ms / 1000.0));
        std::fflush(stdout);
    };
    std::size_t above = 0;
    row.floorMs = bestMs(reps, [&] {
        const auto t0 = std::chrono::steady_clock::now();
        above += vxbench::countAbove(*v.field, v.iso);
        return msSince(t0);
    });
    report("floor", row.floorMs);
    for (int t = 1; t <= 2; ++t) {
        row.ours[t - 1] = bestMs(reps, [&] {
            double ms = 0;
            extractOurs(*v.field, v.iso, t, &ms);
            return ms;
        });
        report(t == 1 ? "ours x1" : "ours x2", row.ours[t - 1]);
    }
    // VTK's thread setting is process-wide: set only around VTK's own runs.
    for (int t = 1; t <= 2; ++t) {
        vtkSMPTools::Initialize(t);
        row.peer[t - 1] = bestMs(reps, [&] {
            double ms = 0;
            peer.run(&ms);
            return ms;
        });
        report(t == 1 ? "vtk x1" : "vtk x2", row.peer[t - 1]);
    }
    vtkSMPTools::Initialize();
    if (above == 0) std::printf("  (no voxel above the iso value)\n");
    return row;
}

void printTable(const std::vector<Row>& rows)
{
    std::printf("\n%-16s %7s %8s %9s %9s %9s %9s %8s %8s %8s %8s\n", "volume", "Mcells", "floor", "ours x1",
                "ours x2", "vtk x1", "vtk x2", "o/v x1", "o/v x2", "o/fl x1", "o/fl x2");
    std::printf("%-16s %7s %8s %9s %9s %9s %9s %8s %8s %8s %8s\n", "", "", "ms", "ms", "ms", "ms", "ms", "",
                "", "", "");
    for (const Row& r : rows)
        std::printf("%-16s %7.1f %8.1f %9.1f %9.1f %9.1f %9.1f %8.2f %8.2f %8.1f %8.1f\n", r.name.c_str(),
                    r.mcells, r.floorMs, r.ours[0], r.ours[1], r.peer[0], r.peer[1], r.ours[0] / r.peer[0],
                    r.ours[1] / r.peer[1], r.ours[0] / r.floorMs, r.ours[1] / r.floorMs);
    std::printf("o/v: our time over VTK's at the same thread count (below 1: we are faster); o/fl: our time "
                "over the floor's.\n");
}

// ---- cold runs -----------------------------------------------------------------------------------

// The engine race's volumes: float32 gyroids of the chosen sizes, the uint8 gyroid of 256, the MRI
// scan at the command's threshold and a float32 sphere of 384.
std::vector<std::string> coldNames(const ColdOptions& o)
{
    std::vector<std::string> names;
    for (int size : o.gyroidSizes) names.push_back("gyroid" + std::to_string(size) + " f32");
    names.insert(names.end(), {"gyroid256 u8", "ch2better u8", "sphere384 f32"});
    return names;
}

Volume coldVolume(const ColdOptions& o, int index)
{
    const int gyroids = int(o.gyroidSizes.size());
    const std::string name = coldNames(o)[std::size_t(index)];
    if (index < gyroids) return {name, vxbench::gyroid(o.gyroidSizes[std::size_t(index)], false), 0.f};
    if (index == gyroids) return {name, vxbench::gyroid(256, true), vxbench::gyroidIso(true)};
    if (index == gyroids + 1) {
        QString error;
        KxHandle<VxUniformScalarField3> head =
            VxNiftiReader::read(QString::fromStdString(o.ch2better), &error);
        return {name, head, 100.5f};
    }
    return {name, VxBuiltinField::create("sphere", 384, nullptr), 0.f};
}

// One run of a child process: the volume is made first, then one extraction is timed; prints
// "ms vertices triangles".
int coldOne(const ColdOptions& o, const std::string& side, int index, int threads)
{
    if (index < 0 || index >= coldVolumeCount(o) || threads < 1) return 2;
    oivInit();
    const Volume v = coldVolume(o, index);
    if (!v.field) return 1;
    tbb::global_control cap(tbb::global_control::max_allowed_parallelism, std::size_t(threads));
    double ms = 0;
    Counts c;
    if (side == "ours") {
        c = extractOurs(*v.field, v.iso, threads, &ms);
    } else {
        vtkSMPTools::Initialize(threads);
        vtkSmartPointer<vtkImageData> image = wrapForVtk(*v.field);
        Peer peer(image, v.iso);
        c = peer.run(&ms);
    }
    std::printf("%.3f %lld %lld\n", ms, c.vertices, c.triangles);
    return 0;
}

int usage(const char* why)
{
    std::fprintf(stderr,
                 "vxiso_peer_bench: %s\nusage: vxiso_peer_bench [--reps N] [--sizes 256,384] [--ch2 FILE]\n"
                 "       vxiso_peer_bench --cold [--runs N] [--cold-sizes 256,512] [--ch2better FILE]\n",
                 why);
    return 2;
}

std::vector<int> sizeList(const std::string& value)
{
    std::vector<int> sizes;
    for (std::size_t at = 0; at < value.size();) {
        const std::size_t comma = std::min(value.find(',', at), value.size());
        sizes.push_back(std::atoi(value.substr(at, comma - at).c_str()));
        if (sizes.back() < 2 || sizes.back() > 2048) return {};
        at = comma + 1;
    }
    return sizes;
}

} // namespace

int coldVolumeCount(const ColdOptions& o)
{
    return int(coldNames(o).size());
}

std::string coldVolumeName(const ColdOptions& o, int index)
{
    return coldNames(o)[std::size_t(index)];
}

int main(int argc, char** argv)
{
    int reps = 5;
    std::vector<int> sizes = {256, 384};
    std::string ch2 = "/usr/share/mricron/templates/ch2.nii.gz";
    ColdOptions cold;
    cold.pipelineScript = VXISO_SOURCE_DIR "/bench/vtk_pipeline.py";
    bool runCold = false;
    std::vector<std::string> coldOneArgs;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--cold") {
            runCold = true;
            continue;
        }
        if (a == "--cold-one" && i + 3 < argc) {
            coldOneArgs = {argv[i + 1], argv[i + 2], argv[i + 3]};
            i += 3;
            continue;
        }
        if (i + 1 >= argc) return usage(("unknown or incomplete option '" + a + "'").c_str());
        const std::string value = argv[++i];
        if (a == "--runs") {
            cold.runs = std::atoi(value.c_str());
            if (cold.runs < 1) return usage("--runs needs a positive count");
        } else if (a == "--cold-sizes") {
            cold.gyroidSizes = sizeList(value);
            if (cold.gyroidSizes.empty()) return usage("sizes run from 2 to 2048");
            cold.forward.insert(cold.forward.end(), {a, value});
        } else if (a == "--ch2better") {
            cold.ch2better = value;
            cold.forward.insert(cold.forward.end(), {a, value});
        } else if (a == "--reps") {
            reps = std::atoi(value.c_str());
            if (reps < 1) return usage("--reps needs a positive count");
        } else if (a == "--sizes") {
            sizes = sizeList(value);
            if (sizes.empty()) return usage("sizes run from 2 to 2048");
        } else if (a == "--ch2") {
            ch2 = value;
        } else {
            return usage(("unknown option '" + a + "'").c_str());
        }
    }
    if (!coldOneArgs.empty())
        return coldOne(cold, coldOneArgs[0], std::atoi(coldOneArgs[1].c_str()),
                       std::atoi(coldOneArgs[2].c_str()));
    if (runCold) {
        std::printf("hardware threads: %u\n", std::thread::hardware_concurrency());
        if (FILE* load = std::fopen("/proc/loadavg", "r")) {
            double one = 0;
            if (std::fscanf(load, "%lf", &one) == 1) std::printf("load average at start: %.2f\n", one);
            std::fclose(load);
        }
        char self[4096] = {};
        if (::readlink("/proc/self/exe", self, sizeof self - 1) <= 0)
            return usage("cannot find this program");
        runColdRaces(self, cold);
        return 0;
    }
    oivInit();

    std::printf("VTK SMP backend: %s (compiled default %s)\n", vtkSMPTools::GetBackend(), VTK_SMP_BACKEND);
    for (int t : {1, 2}) {
        vtkSMPTools::Initialize(t);
        std::printf(
            "  Initialize(%d): estimated %d threads; chunks seen running at once: %d in a vtkSMPTools::For, "
            "%d in a plain tbb::parallel_for\n",
            t, vtkSMPTools::GetEstimatedNumberOfThreads(), concurrencySeen(true), concurrencySeen(false));
    }
    vtkSMPTools::Initialize();
    std::printf("hardware threads: %u; best of %d runs after a warm-up\n",
                std::thread::hardware_concurrency(), reps);
    // Other work on the machine skews the figures, the 2-thread ones above all: say how busy it was.
    if (FILE* load = std::fopen("/proc/loadavg", "r")) {
        double one = 0;
        if (std::fscanf(load, "%lf", &one) == 1) std::printf("load average at start: %.2f\n", one);
        std::fclose(load);
    }

    std::vector<Volume> volumes;
    for (int size : sizes)
        for (bool u8 : {false, true})
            volumes.push_back({"gyroid" + std::to_string(size) + (u8 ? " u8" : " f32"),
                               vxbench::gyroid(size, u8), vxbench::gyroidIso(u8)});
    struct stat st;
    if (::stat(ch2.c_str(), &st) == 0) {
        QString error;
        KxHandle<VxUniformScalarField3> head = VxNiftiReader::read(QString::fromStdString(ch2), &error);
        if (!head) {
            std::fprintf(stderr, "vxiso_peer_bench: %s\n", qPrintable(error));
            return 1;
        }
        const float iso = headThreshold(*head);
        std::printf("ch2: head surface at %g (Otsu split of the histogram, half a step up)\n", double(iso));
        volumes.push_back({"ch2 u8", head, iso});
    } else {
        std::printf("ch2: %s not found (install mricron-data); head scan left out\n", ch2.c_str());
    }

    std::vector<Row> rows;
    for (const Volume& v : volumes) rows.push_back(race(v, reps));
    printTable(rows);
    return 0;
}
