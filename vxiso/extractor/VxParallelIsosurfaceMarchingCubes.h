#pragma once
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxIsosurfaceMarchingCubes.h>
#include <vxiso/extractor/VxRaceAnnotations.h>

#include <tbb/blocked_range.h>
#include <tbb/blocked_range3d.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <vector>

namespace vxiso {

// Progress of a parallel traversal: node layers done along the split axis, out of all of them.
class SlabProgress
{
public:
    SlabProgress(KxProgressInterface* sink, int64_t layers) : m_sink(sink), m_layers(layers) {}
    void slabDone(int64_t layers)
    {
        const int64_t done = m_done.fetch_add(layers, std::memory_order_relaxed) + layers;
        if (m_sink) m_sink->setProgressValue(float(std::min(done, m_layers)) / float(m_layers));
    }
    // What a slab's traversal reports to: interruption only; the slab's layers count when it ends.
    KxProgressInterface* interruption() { return &m_interruption; }

private:
    class Interruption : public KxProgressInterface
    {
    public:
        explicit Interruption(KxProgressInterface* sink) : m_sink(sink) {}
        void setProgressValue(float) override {}
        bool wasInterrupted() override { return m_sink && m_sink->wasInterrupted(); }

    private:
        KxProgressInterface* m_sink;
    };
    KxProgressInterface* m_sink;
    Interruption m_interruption{m_sink};
    int64_t m_layers;
    std::atomic<int64_t> m_done{0};
};

// Collects every slab record of an emitter's thread-local store, sorted by first layer, with the
// running vertex and triangle offsets set and each record linked to the slab that ends where it
// begins. The order is that of the layers, whatever order the slabs ran in.
template <class Record, class Store, class VertexCount, class TriangleCount>
std::vector<Record*> orderSlabs(Store& store, VertexCount vertexCount, TriangleCount triangleCount,
                                uint64_t& vertices, uint64_t& triangles)
{
    std::vector<Record*> slabs;
    for (std::vector<Record>& perThread : store)
        for (Record& r : perThread) slabs.push_back(&r);
    std::sort(slabs.begin(), slabs.end(),
              [](const Record* a, const Record* b) { return a->firstLayer < b->firstLayer; });
    std::map<uint64_t, const Record*> byLastLayer;
    vertices = triangles = 0;
    for (Record* r : slabs) {
        r->vertexOffset = vertices;
        r->triangleOffset = triangles;
        vertices += vertexCount(*r);
        triangles += triangleCount(*r);
        byLastLayer[r->lastLayer] = r;
    }
    for (Record* r : slabs) {
        const auto below = byLastLayer.find(r->firstLayer);
        r->previous = below == byLastLayer.end() || below->second == r ? nullptr : below->second;
    }
    return slabs;
}

// The face table of the highest of the slabs (in layer order) with its vertices numbered from base
// on, -1 where the slab made no vertex: what a slab above that runs elsewhere fills its corners from.
template <class Record>
std::vector<int32_t> numberedFaceTable(const std::vector<Record*>& slabs, int64_t base)
{
    std::vector<int32_t> table;
    if (slabs.empty()) return table;
    const Record& top = *slabs.back();
    table.assign(top.faceVertexIds.begin(), top.faceVertexIds.end());
    for (int32_t& id : table)
        if (id != -1) id = int32_t(base + int64_t(top.vertexOffset) + id);
    return table;
}

// Two addresses of its own for the race detector's marks: one for handing work to the slabs, one for
// handing it back, so that slabs never look ordered among themselves. Plain bytes that nothing else
// (an atomic of the scheduler, say) uses, found without reading anything the other side wrote.
class SlabSync
{
public:
    const void* handOver() const { return &m_handOver; }
    const void* handBack() const { return &m_handBack; }

private:
    char m_handOver = 0;
    char m_handBack = 0;
};

// Runs f over the slabs on the scheduler's threads, one slab a task; returns when all are done. The
// scheduler hands out slab numbers, never the list itself, so that the list is read only after the
// hand-over, marked on the sync's tags like the traversal's.
template <class Record, class F> void forEachSlab(std::vector<Record*>& slabs, F f)
{
    const SlabSync sync;
    struct Task
    {
        const SlabSync* sync;
        F* f;
        std::vector<Record*>* slabs;
        void operator()(const tbb::blocked_range<std::size_t>& r) const
        {
            VXISO_IGNORE_READS_BEGIN(); // this copy's fields were written by the scheduler
            [[maybe_unused]] const SlabSync* s = sync;
            F* each = f;
            std::vector<Record*>* list = slabs;
            VXISO_IGNORE_READS_END();
            VXISO_HAPPENS_AFTER(s->handOver());
            for (std::size_t i = r.begin(); i != r.end(); ++i) (*each)(*(*list)[i]);
            VXISO_HAPPENS_BEFORE(s->handBack());
        }
    };
    VXISO_HAPPENS_BEFORE(sync.handOver());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, slabs.size(), 1), Task{&sync, &f, &slabs},
                      tbb::simple_partitioner());
    VXISO_HAPPENS_AFTER(sync.handBack());
}

// The node layers [begin, end) along the split axis that a slab owns; it also reads layer end, the
// next slab's first, unless end is the last layer of the volume.
struct SlabLayers
{
    uint64_t begin = 0, end = 0;
};

// The cell layers [firstCell, endCell) of a volume of n node layers along the axis, cut into count
// slabs as evenly as integer division allows. A plan made this way is the same whoever makes it, so
// a run cut into the same slabs elsewhere (on other machines) yields the same surface.
inline std::vector<SlabLayers> evenSlabs(uint64_t firstCell, uint64_t endCell, uint64_t count, uint64_t n)
{
    std::vector<SlabLayers> slabs;
    const uint64_t cells = endCell - firstCell;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t b = firstCell + i * cells / count, e = firstCell + (i + 1) * cells / count;
        slabs.push_back({b, e + 1 == n ? n : e});
    }
    return slabs;
}

// One slab of the parallel traversal: the sequential traversal on a box of node layers along the
// split axis, writing into a record of its own. Copies share the tools, the emitter and the progress.
template <class Tools, class Cubes, class Axis> class VxParallelIsosurfaceMarchingCubes
{
public:
    using Range = tbb::blocked_range3d<unsigned long, unsigned long, unsigned long>;
    using Record = typename Cubes::ThreadSpecificData;

    VxParallelIsosurfaceMarchingCubes(const Tools& tools, Cubes& cubes, SlabProgress* progress)
        : m_tools(tools), m_cubes(cubes), m_progress(progress)
    {
    }

    // The caller marks cubes.sync's hand-over before the loop and waits for its hand-back after it.
    void operator()(const Range& r) const
    {
        VXISO_IGNORE_READS_BEGIN(); // this copy's fields were written by the scheduler
        const Tools& tools = m_tools;
        Cubes& cubes = m_cubes;
        SlabProgress* progress = m_progress;
        VXISO_IGNORE_READS_END();
        VXISO_HAPPENS_AFTER(cubes.sync.handOver());
        KxBox3i box(int(r.cols().begin()), int(r.cols().end()), int(r.rows().begin()), int(r.rows().end()),
                    int(r.pages().begin()), int(r.pages().end()));
        // A slab owning node layers [begin, end) also reads layer end, the first of the next slab.
        if (box.xmax < tools.nx) box.xmax += 1;
        if (box.ymax < tools.ny) box.ymax += 1;
        if (box.zmax < tools.nz) box.zmax += 1;

        if (progress && progress->interruption()->wasInterrupted()) throw KxInterrupted();
        std::vector<Record>& mine = cubes.store.local();
        mine.emplace_back();
        Record& record = mine.back();
        const int s = Axis::index;
        record.firstLayer = uint64_t(box.min(s));
        record.lastLayer = uint64_t(box.max(s) - 1);
        cubes.prepare(record);

        if constexpr (Cubes::walksInFinish) {
            cubes.classify(box, record);
        } else {
            // Traversal state belongs to the slab: nothing of it is shared between threads.
            VxIsosurfaceMarchingCubes<Tools, Cubes> marchingCubes(tools, cubes);
            marchingCubes.computeBox(box, record, progress ? progress->interruption() : nullptr);
            if (progress)
                progress->slabDone(int64_t(s == 0   ? r.cols().size()
                                           : s == 1 ? r.rows().size()
                                                    : r.pages().size()));
        }
        VXISO_HAPPENS_BEFORE(cubes.sync.handBack());
    }

private:
    const Tools& m_tools;
    Cubes& m_cubes;
    SlabProgress* m_progress;
};

// Runs the body on exactly the given slabs, one task each; every other axis is taken whole. The
// caller marks the body's hand-over before and waits for its hand-back after, as for parallel_for.
template <class Body>
void runSlabs(const Body& body, const std::vector<SlabLayers>& slabs, int axis, const unsigned long n[3])
{
    using Range = typename Body::Range;
    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(0, slabs.size(), 1),
        [&](const tbb::blocked_range<std::size_t>& r) {
            for (std::size_t i = r.begin(); i != r.end(); ++i) {
                // The plan and the body were written before the hand-over, which the body marks.
                VXISO_IGNORE_READS_BEGIN();
                unsigned long b[3] = {0, 0, 0}, e[3] = {n[0], n[1], n[2]};
                b[axis] = slabs[i].begin;
                e[axis] = slabs[i].end;
                const Body& each = body;
                VXISO_IGNORE_READS_END();
                each(Range(b[2], e[2], std::max(e[2] - b[2], 1ul), b[1], e[1], std::max(e[1] - b[1], 1ul),
                           b[0], e[0], std::max(e[0] - b[0], 1ul)));
            }
        },
        tbb::simple_partitioner());
}

} // namespace vxiso
