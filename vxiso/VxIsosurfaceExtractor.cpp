#include <vxiso/VxIsosurfaceExtractor.h>

#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceAccessors.h>
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceParallelStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxException.h>
#include <kx/KxThread.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxCoord3.h>
#include <vx/VxRegScalarField3.h>

#include <QCoreApplication>

#include <array>
#include <atomic>
#include <thread>
#include <type_traits>

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

KxVec3i dimsOf(const VxRegScalarField3& field)
{
    const KxDim3l& d = field.getDims();
    return KxVec3i(int32_t(d.nx), int32_t(d.ny), int32_t(d.nz));
}

} // namespace

// Runs the extraction on a thread of its own, so that the caller can keep forwarding progress.
template <class Filter> class VxIsosurfaceExtractor::TaskRunner : public KxThread
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

template <class T> RegField3Accessor<T> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3& field)
{
    const KxDim3l& d = field.getDims();
    const KxBox3f box = field.getBoundingBox();
    // The voxel size is derived from the box as the box is written.
    const KxVec3f voxelSize(d.nx > 1 ? (box.xmax - box.xmin) / float(d.nx - 1) : 0.f,
                            d.ny > 1 ? (box.ymax - box.ymin) / float(d.ny - 1) : 0.f,
                            d.nz > 1 ? (box.zmax - box.zmin) / float(d.nz - 1) : 0.f);
    return RegField3Accessor<T>(static_cast<const T*>(field.lattice().dataPtr()), dimsOf(field), box.getMin(),
                                voxelSize, field.getGradientSpacing(KxVec3i(0, 0, 0), voxelSize));
}

template RegField3Accessor<unsigned char> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<signed char> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<unsigned short> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<short> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<unsigned int> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<int> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<float> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);
template RegField3Accessor<double> VxIsosurfaceExtractor::uniformAccessor(const VxRegScalarField3&);

CurvField3Accessor VxIsosurfaceExtractor::curvilinearAccessor(const VxRegScalarField3& field)
{
    const VxLattice3& lattice = field.lattice();
    const VxCoord3* coords = lattice.coords();
    if (coords->coordType() == VX_COORD_CURVILINEAR)
        return CurvField3Accessor(lattice.dataPtr(), lattice.primType(), dimsOf(field),
                                  static_cast<const VxCurvilinearCoord3*>(coords)->positions());
    // Other coordinate kinds answer per node through a virtual call; ask once, up front.
    const KxDim3l& d = field.getDims();
    KxDArray<float> positions(std::size_t(3 * d.count()));
    float* out = positions.data();
    for (int64_t k = 0; k < d.nz; ++k)
        for (int64_t j = 0; j < d.ny; ++j)
            for (int64_t i = 0; i < d.nx; ++i, out += 3) {
                const KxVec3f p = coords->pos(i, j, k);
                out[0] = p.x;
                out[1] = p.y;
                out[2] = p.z;
            }
    return CurvField3Accessor(lattice.dataPtr(), lattice.primType(), dimsOf(field), std::move(positions));
}

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
        if (m_surface)
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
        if (!m_surface) return;
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
    if (m_surface) m_surface->clearGeometry();
    m_triangles = {};
    m_coords = {};
    m_normals = {};

    // What the worker throws (memory exhaustion, a surface too large to number) comes back out of
    // wait() here, on the caller's thread, where the module reports it.
    TaskRunner<Filter> worker(*this, filter);
    worker.start();
    float shown = 0.f;
    while (!worker.wait(250)) {
        if (m_progress && m_progress->wasInterrupted()) m_workerProgress.interrupt();
        const float value = m_workerProgress.getProgressValue();
        if (m_progress && value > shown) {
            m_progress->setProgressValue(value);
            shown = value;
        }
    }
    // A Ctrl-C during a short extraction still discards it, as one during a long one does.
    if (m_progress && m_progress->wasInterrupted()) throw KxInterrupted();
}

template <class Filter> void VxIsosurfaceExtractor::doCompute(const Filter& filter)
{
    if (m_field->coordType() != VX_COORD_UNIFORM) {
        computeCurvilinearScalarField3(filter);
        return;
    }
    // The element type picks the accessor; a type that is none of the eight extracts nothing.
    kxDispatchPrimType(m_field->primType(), nullptr, [&](auto* typed) {
        computeUniformScalarField3<std::remove_pointer_t<decltype(typed)>>(filter);
    });
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

void VxIsosurfaceExtractor::handOver(KxDArray<KxVec3i>& triangles, KxDArray<KxVec3f>& coords,
                                     KxDArray<KxVec3f>& normals, bool snapped)
{
    if (snapped) m_degenerateCount += triangles.removeIf(vxiso::tools::isDegenerate);
    if (!m_surface) {
        triangles.shrinkToFit();
        coords.shrinkToFit();
        normals.shrinkToFit();
        if (snapped)
            for (KxVec3f& v : normals) v = vxiso::tools::unitNormal(v);
        m_triangles = std::move(triangles);
        m_coords = std::move(coords);
        m_normals = std::move(normals);
        return;
    }
    if (!triangles.empty()) {
        triangles.shrinkToFit();
        const int n = int(triangles.size());
        m_surface->adoptTriangles(n, reinterpret_cast<int32_t*>(triangles.release()));
    } else {
        m_surface->triangles.setNum(0);
    }

    if (!coords.empty()) {
        coords.shrinkToFit();
        normals.shrinkToFit();
        if (snapped)
            for (KxVec3f& v : normals) v = vxiso::tools::unitNormal(v);
        const int n = int(coords.size());
        m_surface->adoptCoords(n, reinterpret_cast<float*>(coords.release()));
        m_surface->adoptNormals(n, reinterpret_cast<float*>(normals.release()));
    } else {
        m_surface->coords.setNum(0);
        m_surface->normals.setNum(0);
    }
}
