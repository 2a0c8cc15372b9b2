#include <vxiso/VxIsosurfaceExtractor.h>

#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceCompactCubes.h>
#include <vxiso/extractor/VxIsosurfaceStandardCubes.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <oiv/SoTriSurface.h>
#include <vx/VxRegScalarField3.h>

#include <QCoreApplication>

using vxiso::VxIsosurfaceCompactCubes;
using vxiso::VxIsosurfaceStandardCubes;
using vxiso::tools::CurvField3Accessor;
using vxiso::tools::RegField3Accessor;

VxIsosurfaceExtractor::VxIsosurfaceExtractor(const VxRegScalarField3* field, SoTriSurface* surface,
                                             KxProgressInterface* progress)
    : m_field(field), m_surface(surface), m_progress(progress)
{
}

void VxIsosurfaceExtractor::compute()
{
    compute(vxiso::filter::UndefinedValue(*m_field));
}

template <class Filter>
void VxIsosurfaceExtractor::compute(const Filter& filter)
{
    // The surface is filled behind the scene's back and announced once at the end.
    SoField* fields[] = {&m_surface->triangles, &m_surface->coords, &m_surface->normals};
    for (SoField* f : fields) f->enableNotify(FALSE);
    if (m_progress) {
        m_progress->startWorking(QCoreApplication::translate("VxIsosurfaceExtractor", "Computing Isosurface..."));
        m_progress->setProgressValue(0.f);
    }

    doCompute(filter);

    if (m_progress) {
        m_progress->setProgressValue(1.f);
        m_progress->stopWorking();
    }
    for (SoField* f : fields) {
        f->enableNotify(TRUE);
        f->touch();
    }
}

template <class Filter>
void VxIsosurfaceExtractor::doCompute(const Filter& filter)
{
    if (m_field->coordType() != VX_COORD_UNIFORM) {
        computeCurvilinearScalarField3(filter);
        return;
    }
    switch (m_field->primType().type()) {
    case KxPrimType::UINT8: computeUniformScalarField3<unsigned char>(filter); break;
    case KxPrimType::INT8: computeUniformScalarField3<char>(filter); break;
    case KxPrimType::UINT16: computeUniformScalarField3<unsigned short>(filter); break;
    case KxPrimType::INT16: computeUniformScalarField3<short>(filter); break;
    case KxPrimType::UINT32: computeUniformScalarField3<unsigned int>(filter); break;
    case KxPrimType::INT32: computeUniformScalarField3<int>(filter); break;
    case KxPrimType::FLOAT: computeUniformScalarField3<float>(filter); break;
    case KxPrimType::DOUBLE: computeUniformScalarField3<double>(filter); break;
    default: break; // not a value type of ours: nothing to extract
    }
}

template <class T, class Filter>
void VxIsosurfaceExtractor::computeUniformScalarField3(const Filter& filter)
{
    if (compact == 0)
        doComputeRegScalarField3<RegField3Accessor<T>, VxIsosurfaceStandardCubes>(filter);
    else if (compact == 1)
        doComputeRegScalarField3<RegField3Accessor<T>, VxIsosurfaceCompactCubes>(filter);
}

template <class Filter>
void VxIsosurfaceExtractor::computeCurvilinearScalarField3(const Filter& filter)
{
    if (compact == 0)
        doComputeRegScalarField3<CurvField3Accessor, VxIsosurfaceStandardCubes>(filter);
    else if (compact == 1)
        doComputeRegScalarField3<CurvField3Accessor, VxIsosurfaceCompactCubes>(filter);
}

template void VxIsosurfaceExtractor::compute(const vxiso::filter::UndefinedValue&);
template void VxIsosurfaceExtractor::compute(const vxiso::filter::LabelIsoSurfaceFilter&);
