#include <vxiso/VxIsosurfaceExtractor.h>

#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <vxiso/extractor/VxIsosurfaceParallelCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelStandardCubes.h>

#include <kx/KxThread.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>

#include <QCoreApplication>

#include <array>
#include <atomic>
#include <thread>

using vxiso::VxIsosurfaceCompactCubes;
using vxiso::VxIsosurfaceParallelCompactCubes;
using vxiso::VxIsosurfaceParallelStandardCubes;
using vxiso::VxIsosurfaceStandardCubes;
using vxiso::tools::CurvField3Accessor;
using vxiso::tools::RegField3Accessor;

VxIsosurfaceExtractor::VxIsosurfaceExtractor(const VxRegScalarField3* field, SoTriSurface* surface,
                                             KxProgressInterface* progress)
    : m_field(field), m_surface(surface), m_progress(progress)
{
}

namespace {

std::atomic<unsigned> g_threadsForSlabs{0};

// Runs the extraction on a thread of its own, so that the caller can keep forwarding progress.
template <class Filter> class TaskRunner : public KxThread
{
public:
    TaskRunner(VxIsosurfaceExtractor& extractor, const Filter& filter)
        : m_extractor(extractor), m_filter(filter)
    {
    }
    ~TaskRunner() override { join(); }

protected:
    void run() override { m_extractor.doCompute(m_filter); }

private:
    VxIsosurfaceExtractor& m_extractor;
    const Filter& m_filter;
};

} // namespace

int VxIsosurfaceExtractor::splitAxis(int64_t nx, int64_t ny, int64_t nz)
{
    if (nx >= ny && nx >= nz) return 0;
    return ny >= nz ? 1 : 2;
}

void VxIsosurfaceExtractor::setHardwareThreadsForSlabs(unsigned threads)
{
    g_threadsForSlabs = threads;
}

unsigned VxIsosurfaceExtractor::hardwareThreadsForSlabs()
{
    const unsigned forced = g_threadsForSlabs;
    if (forced) return forced;
    const unsigned n = std::thread::hardware_concurrency();
    return n ? n : 1;
}

void VxIsosurfaceExtractor::compute()
{
    compute(vxiso::filter::UndefinedValue(*m_field));
}

// The surface is filled behind the scene's back and announced once at the end, also when the
// extraction fails; the progress phase ends either way.
class VxIsosurfaceExtractor::Session
{
public:
    Session(SoTriSurface* surface, KxProgressInterface* progress) : m_surface(surface), m_progress(progress)
    {
        for (SoField* f : fields()) f->enableNotify(FALSE);
        if (m_progress) {
            m_progress->startWorking(
                QCoreApplication::translate("VxIsosurfaceExtractor", "Computing Isosurface..."));
            m_progress->setProgressValue(0.f);
        }
    }
    ~Session()
    {
        if (m_progress) {
            m_progress->setProgressValue(1.f);
            m_progress->stopWorking();
        }
        for (SoField* f : fields()) {
            f->enableNotify(TRUE);
            f->touch();
        }
    }

private:
    std::array<SoField*, 3> fields() const
    {
        return {&m_surface->triangles, &m_surface->coords, &m_surface->normals};
    }
    SoTriSurface* m_surface;
    KxProgressInterface* m_progress;
};

template <class Filter> void VxIsosurfaceExtractor::compute(const Filter& filter)
{
    const Session session(m_surface, m_progress);
    // Whatever is not computed below (an unsupported type or setting) leaves an empty surface.
    m_surface->clearGeometry();

    // What the worker throws (memory exhaustion, a surface too large to number) comes back out of
    // wait() here, on the caller's thread, where the module reports it.
    TaskRunner<Filter> worker(*this, filter);
    worker.start();
    float shown = 0.f;
    while (!worker.wait(250)) {
        const float value = m_workerProgress.getProgressValue();
        if (m_progress && value > shown) {
            m_progress->setProgressValue(value);
            shown = value;
        }
    }
}

template <class Filter> void VxIsosurfaceExtractor::doCompute(const Filter& filter)
{
    if (m_field->coordType() != VX_COORD_UNIFORM) {
        computeCurvilinearScalarField3(filter);
        return;
    }
    switch (m_field->primType().type()) {
    case KxPrimType::UINT8:
        computeUniformScalarField3<unsigned char>(filter);
        break;
    case KxPrimType::INT8:
        computeUniformScalarField3<signed char>(filter);
        break;
    case KxPrimType::UINT16:
        computeUniformScalarField3<unsigned short>(filter);
        break;
    case KxPrimType::INT16:
        computeUniformScalarField3<short>(filter);
        break;
    case KxPrimType::UINT32:
        computeUniformScalarField3<unsigned int>(filter);
        break;
    case KxPrimType::INT32:
        computeUniformScalarField3<int>(filter);
        break;
    case KxPrimType::FLOAT:
        computeUniformScalarField3<float>(filter);
        break;
    case KxPrimType::DOUBLE:
        computeUniformScalarField3<double>(filter);
        break;
    default:
        break; // not a value type of ours: nothing to extract
    }
}

template <class T, class Filter> void VxIsosurfaceExtractor::computeUniformScalarField3(const Filter& filter)
{
    dispatchCubes<RegField3Accessor<T>>(filter);
}

template <class Filter> void VxIsosurfaceExtractor::computeCurvilinearScalarField3(const Filter& filter)
{
    dispatchCubes<CurvField3Accessor>(filter);
}

template <class Accessor, class Filter> void VxIsosurfaceExtractor::dispatchCubes(const Filter& filter)
{
    if (numberOfCores == 1) {
        if (compact == 0)
            doComputeRegScalarField3<Accessor, VxIsosurfaceStandardCubes>(filter);
        else if (compact == 1)
            doComputeRegScalarField3<Accessor, VxIsosurfaceCompactCubes>(filter);
        return;
    }
    const KxDim3l& d = m_field->getDims();
    const int axis = splitAxis(d.nx, d.ny, d.nz);
    if (compact == 0)
        doComputeRegScalarField3<Accessor, VxIsosurfaceParallelStandardCubes>(filter, axis);
    else if (compact == 1)
        doComputeRegScalarField3<Accessor, VxIsosurfaceParallelCompactCubes>(filter, axis);
}

template <class Accessor, template <class, class> class Cubes, class Filter>
void VxIsosurfaceExtractor::doComputeRegScalarField3(const Filter& filter, int axis)
{
    m_splitAxis = axis;
    switch (axis) {
    case 0:
        computeParallel<Accessor, Cubes, Filter, vxiso::tools::Xaxis>(filter);
        break;
    case 1:
        computeParallel<Accessor, Cubes, Filter, vxiso::tools::Yaxis>(filter);
        break;
    case 2:
        computeParallel<Accessor, Cubes, Filter, vxiso::tools::Zaxis>(filter);
        break;
    default:
        break;
    }
}

template void VxIsosurfaceExtractor::compute(const vxiso::filter::UndefinedValue&);
template void VxIsosurfaceExtractor::compute(const vxiso::filter::LabelIsoSurfaceFilter&);
