#pragma once
#include <kx/KxProgressInterface.h>

#include <atomic>
#include <cstdint>

class VxRegScalarField3;
class SoTriSurface;

// Turns a scalar field on a regular lattice into a triangle surface. Picks, by plain switches, the
// accessor of the field's coordinates and value type, standard or compact cubes, the sequential
// traversal or slabs along the longest axis on all cores, and hands the resulting arrays to the
// surface without copying. The work runs on a worker thread while the calling thread forwards
// progress. Unsupported value types or settings produce an empty surface, silently.
class VxIsosurfaceExtractor
{
public:
    // Progress of the traversal: one float written by the traversal, read by the caller.
    class MyProgressInterface : public KxProgressInterface
    {
    public:
        void setProgressValue(float value) override { m_value.store(value, std::memory_order_relaxed); }
        float getProgressValue() const override { return m_value.load(std::memory_order_relaxed); }

    private:
        // Written by the traversal, read by the polling thread; no lock, only a torn-free value.
        std::atomic<float> m_value{0.f};
    };

    VxIsosurfaceExtractor(const VxRegScalarField3* field, SoTriSurface* surface,
                          KxProgressInterface* progress);

    // Settings, set by the caller before compute().
    int compact = 0;           // 0 standard cubes, 1 compact cubes; other values compute nothing
    float isoValue = 0.f;      // the surface is where the field equals this value
    float threshold = 0.5f;    // compact cubes: snapping distance as a fraction of an edge
    int64_t numberOfCores = 1; // 1 runs the sequential traversal, any other value the parallel one

    // Extraction with the undefined-value filter of the field.
    void compute();
    // Extraction with any node filter (vxiso::filter::UndefinedValue or LabelIsoSurfaceFilter).
    template <class Filter> void compute(const Filter& filter);

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

    // Internal stages, public so that the instantiation units can define them.
    template <class Filter> void doCompute(const Filter& filter);
    template <class T, class Filter> void computeUniformScalarField3(const Filter& filter);
    template <class Filter> void computeCurvilinearScalarField3(const Filter& filter);
    template <class Accessor, template <class> class Cubes, class Filter>
    void doComputeRegScalarField3(const Filter& filter);
    template <class Accessor, template <class, class> class Cubes, class Filter>
    void doComputeRegScalarField3(const Filter& filter, int axis);
    template <class Accessor, template <class, class> class Cubes, class Filter, class Axis>
    void computeParallel(const Filter& filter);

private:
    class Session;
    template <class Accessor, class Filter> void dispatchCubes(const Filter& filter);
    template <class CubesType> void handOver(CubesType& cubes);

    const VxRegScalarField3* m_field;
    SoTriSurface* m_surface;
    KxProgressInterface* m_progress;
    MyProgressInterface m_workerProgress;
    uint64_t m_degenerateCount = 0;
    double m_elapsedTime = 0.0;
    std::size_t m_slabCount = 0;
    int m_splitAxis = -1;
};
