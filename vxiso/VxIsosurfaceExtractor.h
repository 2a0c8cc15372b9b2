#pragma once
#include <kx/KxDArray.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxVec3.h>

#include <atomic>
#include <cstdint>

class VxRegScalarField3;
class SoTriSurface;

namespace vxiso::tools {
template <class T> class RegField3Accessor;
class CurvField3Accessor;
} // namespace vxiso::tools

// Turns a scalar field on a regular lattice into a triangle surface. Picks, by plain switches, the
// accessor of the field's coordinates and value type, standard or compact cubes, the sequential
// traversal or slabs along the longest axis on all cores, and hands the resulting arrays to the
// surface without copying. The work runs on a worker thread while the calling thread forwards
// progress. Unsupported value types or settings produce an empty surface, silently. Without a
// surface the arrays stay with the extractor for takeArrays(). When the caller's progress reports
// an interruption, the traversal stops at its next cell layer and compute() throws KxInterrupted.
class VxIsosurfaceExtractor
{
public:
    VxIsosurfaceExtractor(const VxRegScalarField3* field, SoTriSurface* surface,
                          KxProgressInterface* progress);

    // Settings, set by the caller before compute().
    int compact = 0;           // 0 standard cubes, 1 compact cubes; other values compute nothing
    float isoValue = 0.f;      // the surface is where the field equals this value
    float snapFraction = 0.5f; // compact cubes: snapping distance as a fraction of an edge
    int64_t numberOfCores = 1; // 1 runs the sequential traversal, any other value the parallel one
    int64_t slabCount = 0;     // parallel: 0 cuts slabs by the hardware threads, N exactly N even slabs

    // Extraction with the undefined-value filter of the field.
    void compute();
    // Extraction with any node filter (vxiso::filter::UndefinedValue or LabelIsoSurfaceFilter).
    template <class Filter> void compute(const Filter& filter);

    // The arrays of the last extraction when it had no surface (kxmalloc'd blocks, released to the
    // caller, who frees them with kxfree); the extractor keeps none of them.
    KxDArray<KxVec3i> takeTriangles() { return std::move(m_triangles); }
    KxDArray<KxVec3f> takeCoords() { return std::move(m_coords); }
    KxDArray<KxVec3f> takeNormals() { return std::move(m_normals); }

    // Triangles dropped because compactification collapsed them.
    uint64_t getDegenerateCount() const { return m_degenerateCount; }
    // Seconds spent in the traversal, without the hand-over to the surface.
    double getElapsedTime() const { return m_elapsedTime; }

    // Split axis of the parallel path for these node counts: the longest, ties favouring x, then y.
    static int splitAxis(int64_t nx, int64_t ny, int64_t nz);
    // Hardware threads the slab thickness is computed for; 0 restores the machine's own count.
    // Lets tests cut many slabs on a small machine.
    static void setHardwareThreadsForSlabs(unsigned threads);
    static unsigned hardwareThreadsForSlabs();
    // Slabs the last parallel extraction was cut into (1 for the sequential path).
    std::size_t getSlabCount() const { return m_slabCount; }
    int getSplitAxis() const { return m_splitAxis; }

    // The accessors through which the extraction reads a field: its values as element type T on
    // uniform coordinates, and its values of any type with a position per node on any coordinates.
    template <class T>
    static vxiso::tools::RegField3Accessor<T> uniformAccessor(const VxRegScalarField3& field);
    static vxiso::tools::CurvField3Accessor curvilinearAccessor(const VxRegScalarField3& field);

private:
    // Progress of the traversal: one float written by the traversal, read by the caller, and the
    // caller's interruption passed the other way.
    class MyProgressInterface : public KxProgressInterface
    {
    public:
        void setProgressValue(float value) override { m_value.store(value, std::memory_order_relaxed); }
        float getProgressValue() const override { return m_value.load(std::memory_order_relaxed); }
        bool wasInterrupted() override { return m_interrupted.load(std::memory_order_relaxed); }
        void interrupt() { m_interrupted.store(true, std::memory_order_relaxed); }

    private:
        // Written by the traversal, read by the polling thread; no lock, only a torn-free value.
        std::atomic<float> m_value{0.f};
        std::atomic<bool> m_interrupted{false};
    };
    class Session;
    // Runs doCompute on a thread of its own.
    template <class Filter> class TaskRunner;

    // The stages of an extraction, from the field's kind to one traversal. The traversals (the
    // sequential doComputeRegScalarField3 and computeParallel) are defined and instantiated in the
    // units under extractor/, which explicit instantiation lets reach them here.
    template <class Filter> void doCompute(const Filter& filter);
    template <class T, class Filter> void computeUniformScalarField3(const Filter& filter);
    template <class Filter> void computeCurvilinearScalarField3(const Filter& filter);
    template <class Accessor, class Filter> void dispatchCubes(const Filter& filter);
    template <class Accessor, template <class> class Cubes, class Filter>
    void doComputeRegScalarField3(const Filter& filter);
    template <class Accessor, template <class, class> class Cubes, class Filter>
    void doComputeRegScalarField3(const Filter& filter, int axis);
    template <class Accessor, template <class, class> class Cubes, class Filter, class Axis>
    void computeParallel(const Filter& filter);

    // Hands the arrays to the surface without copying; after snapping it first drops the triangles
    // that collapsed and makes the summed normals unit length. The arrays are left empty.
    void handOver(KxDArray<KxVec3i>& triangles, KxDArray<KxVec3f>& coords, KxDArray<KxVec3f>& normals,
                  bool snapped);

    const VxRegScalarField3* m_field;
    SoTriSurface* m_surface;
    KxProgressInterface* m_progress;
    MyProgressInterface m_workerProgress;
    uint64_t m_degenerateCount = 0;
    double m_elapsedTime = 0.0;
    KxDArray<KxVec3i> m_triangles;
    KxDArray<KxVec3f> m_coords;
    KxDArray<KxVec3f> m_normals;
    std::size_t m_slabCount = 0;
    int m_splitAxis = -1;
};
