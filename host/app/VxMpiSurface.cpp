#include "VxMpiSurface.h"

#include "VxMpiInput.h"
#include "VxMpiPly.h"

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxTempFile.h>
#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxSlabExtraction.h>

#include <tbb/info.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include <sys/resource.h>

namespace {

using Slabs = std::vector<VxSlabExtraction::Slab>;

// Rank 0's share of the work stands for all: the ranks' slabs are of one size. Slabs end on any
// of the rank's threads; each tenth is printed once, as a line: under mpirun stderr is a pipe to
// the launcher, never a terminal, and a job's log keeps lines.
class RankProgress : public KxProgressInterface
{
public:
    explicit RankProgress(bool show) : m_show(show) {}
    void setProgressValue(float value) override
    {
        const int tenth = int(value * 10.f);
        int shown = m_shown.load();
        while (m_show && tenth > shown)
            if (m_shown.compare_exchange_weak(shown, tenth)) {
                std::fprintf(stderr, "vxiso-mpi: extracting %3d%%\n", 10 * tenth);
                return;
            }
    }

private:
    bool m_show;
    std::atomic<int> m_shown{0};
};

// Slabs along the longest axis, split evenly across the ranks, then across each rank's threads;
// with --slabs N, N even slabs in all, dealt out to the ranks in order and not split further.
Slabs planFor(const VxMpiRanks& ranks, const KxDim3l& dims, int axis, long long slabs)
{
    const uint64_t n = uint64_t(dims[axis]), cells = n > 0 ? n - 1 : 0, r = uint64_t(ranks.rank());
    const uint64_t count = uint64_t(ranks.size());
    if (slabs > 0) {
        VxSlabExtraction::checkSlabCount(n, uint64_t(slabs), axis);
        if (uint64_t(slabs) < count)
            throw KxException(
                QString("--slabs %1 is fewer than the %2 ranks: each rank runs one slab or more")
                    .arg(slabs)
                    .arg(count));
        const Slabs all = VxSlabExtraction::evenSlabs(0, cells, uint64_t(slabs), n);
        return Slabs(all.begin() + long(r * uint64_t(slabs) / count),
                     all.begin() + long((r + 1) * uint64_t(slabs) / count));
    }
    if (cells < count)
        throw KxException(QString("the volume has %1 cell layers along %2, fewer than the %3 ranks")
                              .arg(cells)
                              .arg(QChar("xyz"[axis]))
                              .arg(count));
    const uint64_t first = r * cells / count, end = (r + 1) * cells / count;
    // As the threaded path: no split below 16 node layers a thread.
    uint64_t threads = uint64_t(std::max(1, tbb::info::default_concurrency()));
    if ((end - first) / threads <= 16) threads = 1;
    return VxSlabExtraction::evenSlabs(first, end, threads, n);
}

// The nodes a rank's slabs read: their layers, the one layer above they share with the next rank,
// and one layer more on each side for the normals' central differences.
VxVolumeWindow windowOf(const VxVolumeLayout& l, int axis, const Slabs& slabs)
{
    VxVolumeWindow w;
    w.type = l.type;
    w.dims = KxVec3i(int32_t(l.dims.nx), int32_t(l.dims.ny), int32_t(l.dims.nz));
    w.first = KxVec3i(0, 0, 0);
    w.stored = w.dims;
    const int64_t n = l.dims[axis];
    const int64_t lo = std::max<int64_t>(int64_t(slabs.front().begin) - 1, 0);
    const int64_t hi = std::min<int64_t>(int64_t(slabs.back().end) + 1, n - 1);
    w.first[axis] = int32_t(lo);
    w.stored[axis] = int32_t(hi - lo + 1);
    // The field vxiso makes keeps its box in single precision and the engine derives the voxel
    // size from it: the same steps here give the same vertices.
    const KxBox3f box = l.placement.box(l.dims);
    w.origin = box.getMin();
    w.voxelSize = KxVec3f(l.dims.nx > 1 ? (box.xmax - box.xmin) / float(l.dims.nx - 1) : 0.f,
                          l.dims.ny > 1 ? (box.ymax - box.ymin) / float(l.dims.ny - 1) : 0.f,
                          l.dims.nz > 1 ? (box.zmax - box.zmin) / float(l.dims.nz - 1) : 0.f);
    w.gradientSpacing = w.voxelSize;
    w.hasUndefined = l.hasUndefined;
    w.undefinedValue = l.undefinedValue;
    return w;
}

uint64_t nodesOf(const VxVolumeWindow& w)
{
    return uint64_t(w.stored.x) * uint64_t(w.stored.y) * uint64_t(w.stored.z);
}

// The values, their classification bits and the two face tables a rank holds before any vertex.
void checkMemory(const VxMpiSettings& s, const VxVolumeWindow& w, int axis)
{
    if (!s.maxMemory) return;
    const uint64_t a = uint64_t(axis == 0 ? w.dims.y : w.dims.x),
                   b = uint64_t(axis == 2 ? w.dims.y : w.dims.z);
    const uint64_t need = nodesOf(w) * uint64_t(w.type.size()) + nodesOf(w) / 8 + 2 * (2 * a) * (2 * b) * 4;
    if (need > s.maxMemory)
        throw KxException(QString("this rank's slab needs %1 MB for its values and tables alone, more than "
                                  "--max-memory %2 MB; run more ranks")
                              .arg(double(need) / 1048576.0, 0, 'f', 1)
                              .arg(double(s.maxMemory) / 1048576.0, 0, 'f', 0));
}

// The writers refuse what no reader takes; the message names the vertex by its number in the file.
void checkFinite(const VxSlabExtraction& e, uint64_t firstVertex, const QString& path)
{
    const auto finite = [](const KxVec3f& v) {
        return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    };
    for (std::size_t v = 0; v < e.coords().size(); ++v)
        if (!finite(e.coords()[v]) || !finite(e.normals()[v]))
            throw KxException(
                QString("cannot write %1: vertex %2 is not finite").arg(path).arg(firstVertex + v));
}

// The face table of the rank below in, this rank's up; compact cubes send their folds back down.
// Every rank makes every exchange, failed or not, so that no neighbour waits for it; the error
// comes back for the ranks to agree on.
std::string joinRanks(const VxMpiRanks& ranks, VxSlabExtraction& e, uint64_t firstVertex)
{
    std::string error;
    const int below = ranks.rank() > 0 ? ranks.rank() - 1 : MPI_PROC_NULL;
    const int above = ranks.rank() + 1 < ranks.size() ? ranks.rank() + 1 : MPI_PROC_NULL;
    const std::vector<int32_t> top = e.topFaceTable(int64_t(firstVertex));
    std::vector<int32_t> fromBelow(top.size(), -1);
    MPI_Sendrecv(top.data(), int(top.size()), MPI_INT32_T, above, 1, fromBelow.data(), int(fromBelow.size()),
                 MPI_INT32_T, below, 1, ranks.comm(), MPI_STATUS_IGNORE);
    std::vector<VxSlabExtraction::Fold> folds;
    try {
        if (below != MPI_PROC_NULL) folds = e.joinBelow(fromBelow, -int64_t(firstVertex));
    } catch (const std::exception& x) {
        error = x.what();
        folds.clear();
    }
    for (VxSlabExtraction::Fold& f : folds) f.vertex += int64_t(firstVertex); // to numbers of the file
    uint64_t sending = folds.size() * sizeof(VxSlabExtraction::Fold), coming = 0;
    MPI_Sendrecv(&sending, 1, MPI_UINT64_T, below, 2, &coming, 1, MPI_UINT64_T, above, 2, ranks.comm(),
                 MPI_STATUS_IGNORE);
    std::vector<VxSlabExtraction::Fold> fromAbove(coming / sizeof(VxSlabExtraction::Fold));
    MPI_Sendrecv(folds.data(), int(sending), MPI_BYTE, below, 3, fromAbove.data(), int(coming), MPI_BYTE,
                 above, 3, ranks.comm(), MPI_STATUS_IGNORE);
    if (error.empty()) e.addFolds(fromAbove, int64_t(firstVertex));
    return error;
}

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

// Seconds each stage took on this rank, from the end of the stage before.
struct Stages
{
    enum
    {
        READ,
        EXTRACT,
        MERGE,
        WRITE,
        COUNT
    };
    void end(int stage)
    {
        const auto now = std::chrono::steady_clock::now();
        seconds[stage] = std::chrono::duration<double>(now - last).count();
        last = now;
    }
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
    double seconds[COUNT] = {0, 0, 0, 0};
};

void report(const VxMpiRanks& ranks, const VxisoOptions& o, uint64_t triangles, uint64_t dropped,
            double seconds, std::size_t slabs, const Stages& stages, std::size_t tableEntries)
{
    double slowest[Stages::COUNT];
    MPI_Reduce(stages.seconds, slowest, Stages::COUNT, MPI_DOUBLE, MPI_MAX, 0, ranks.comm());
    const double mine = peakMegabytes();
    std::vector<double> peaks(std::size_t(ranks.size()));
    MPI_Gather(&mine, 1, MPI_DOUBLE, peaks.data(), 1, MPI_DOUBLE, 0, ranks.comm());
    const uint64_t allSlabs = ranks.total(slabs);
    if (ranks.rank() != 0) return;
    if (!o.compactify || triangles + dropped == 0)
        std::printf("Isosurface contains %llu triangles\n", (unsigned long long)triangles);
    else
        std::printf("Isosurface contains %llu triangles (%2.2f%% less)\n", (unsigned long long)triangles,
                    double(100.f * float(dropped) / float(triangles + dropped)));
    std::printf("Elapsed time: %.3f s\n", seconds);
    if (!o.verbose) return;
    std::printf("ranks: %d\nslabs: %llu\n", ranks.size(), (unsigned long long)allSlabs);
    std::printf("slowest rank: read %.3f s, extract %.3f s, merge %.3f s, write %.3f s\n", slowest[0],
                slowest[1], slowest[2], slowest[3]);
    std::printf("shared layer handed up: %llu bytes a rank\n", (unsigned long long)(4 * tableEntries));
    for (std::size_t r = 0; r < peaks.size(); ++r)
        std::printf("rank %zu peak memory: %.1f MB\n", r, peaks[r]);
    std::fflush(stdout);
}

} // namespace

void vxMpiSurface(const VxMpiRanks& ranks, const VxisoOptions& o, const VxMpiSettings& settings)
{
    const auto start = std::chrono::steady_clock::now();
    Stages stages;
    const QString output = QString::fromStdString(o.output);
    VxVolumeLayout layout;
    ranks.step([&] { layout = VxMpiInput::locate(o); });
    const int axis = VxIsosurfaceExtractor::splitAxis(layout.dims.nx, layout.dims.ny, layout.dims.nz);
    Slabs slabs;
    VxVolumeWindow window;
    std::unique_ptr<char[]> values;
    ranks.step([&] {
        slabs = planFor(ranks, layout.dims, axis, o.slabs);
        window = windowOf(layout, axis, slabs);
        checkMemory(settings, window, axis);
        VxMpiInput::checkBox(layout, window.first, window.stored);
        values.reset(new char[nodesOf(window) * uint64_t(layout.type.size())]);
    });
    const bool talk = ranks.rank() == 0;
    if (talk) std::fprintf(stderr, "vxiso-mpi: reading %d ranks' slabs\n", ranks.size());
    ranks.step([&] { VxMpiInput::readBox(ranks.comm(), layout, window.first, window.stored, values.get()); });
    window.values = values.get();
    stages.end(Stages::READ);

    std::unique_ptr<VxSlabExtraction> extraction;
    RankProgress progress(talk);
    ranks.step([&] {
        extraction = VxSlabExtraction::create(window, axis, o.compactify, float(o.threshold), 0.5f);
        extraction->run(slabs, &progress);
    });
    values.reset(); // the surface is all that is needed from here on
    stages.end(Stages::EXTRACT);
    const uint64_t firstVertex = ranks.before(extraction->vertexCount());
    const uint64_t vertices = ranks.total(extraction->vertexCount());
    ranks.step([&] {
        if (vertices > uint64_t(INT32_MAX))
            throw KxException(
                QString("the surface would have %1 vertices; a PLY file of ours numbers at most %2")
                    .arg(vertices)
                    .arg(INT32_MAX));
    });
    if (talk) std::fprintf(stderr, "vxiso-mpi: merging\n");
    ranks.agree(joinRanks(ranks, *extraction, firstVertex));
    ranks.step([&] {
        extraction->finish();
        checkFinite(*extraction, firstVertex, output);
    });
    const uint64_t mine = extraction->triangles().size();
    stages.end(Stages::MERGE);
    const uint64_t firstTriangle = ranks.before(mine), triangles = ranks.total(mine);

    // Written under a name of its own that rank 0 makes and renames when every rank has written: a
    // failed or interrupted run leaves no file, and an old OUTPUT as it was.
    if (talk) std::fprintf(stderr, "vxiso-mpi: writing %s\n", qPrintable(output));
    std::unique_ptr<KxTempFile> file;
    ranks.step([&] {
        if (ranks.rank() != 0) return;
        file = std::make_unique<KxTempFile>(output);
        QString error;
        if (!file->open(&error)) throw KxException(error);
    });
    const QString temporary =
        QString::fromStdString(ranks.fromRankZero(file ? file->tempPath().toStdString() : std::string()));
    ranks.step([&] {
        VxMpiPly::write(ranks.comm(), temporary,
                        {&extraction->coords(), &extraction->normals(), &extraction->triangles(), firstVertex,
                         firstTriangle, vertices, triangles});
    });
    stages.end(Stages::WRITE);
    ranks.step([&] {
        QString error;
        if (file && !file->commit(&error)) throw KxException(error);
    });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report(ranks, o, triangles, ranks.total(extraction->degenerateCount()), seconds, slabs.size(), stages,
           extraction->topFaceTable(0).size());
}
