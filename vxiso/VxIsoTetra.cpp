#include <vxiso/VxIsoTetra.h>
#include <vxiso/VxTetraSurface.h>

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPointProbe.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxRangeProviderSpatialData.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <kx/KxSmallArray.h>

#include <algorithm>
#include <new>

KX_PACKAGE_SOURCE(VxIsoTetra, VxTriBase)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxIsoTetra", text);
}

} // namespace

VxIsoTetra::VxIsoTetra()
    : VxTriBase(VxTetraScalarField3::getClassTypeId()),
      portThreshold(this, tr("Threshold"), "threshold", new VxRangeProviderSpatialData(this)),
      portPointProbe(this, tr("Point Probe"), "pointProbe", VxPointProbe::getClassTypeId()),
      portAction(this, tr("Action"), "action")
{
    portThreshold.setFormat("%g");
    setTreeViewAccessiblePort(&portThreshold);
    portPointProbe.setOptional(true);
    portAction.snap(0, true);

    useIsosurfaceLook();
}

VxIsoTetra::~VxIsoTetra() = default;

void VxIsoTetra::update()
{
    VxTriBase::update();
    if (auto* probe = vxconnection_cast<VxPointProbe>(portPointProbe))
        if (portPointProbe.isNew())
            portThreshold.setValue(probe->getNumValues() > 0 ? float(probe->getValue(0)) : 0.f);

    m_field = vxconnection_cast<VxTetraScalarField3>(portData);
    if (!m_field) {
        m_firstData = true;
        return;
    }
    if (!portData.isNew()) return;
    double lo = 0, hi = 0;
    m_field->getRange(lo, hi);
    if (!portData.isNew(VxPort::NEW_VALUE)) {
        lo = std::min(lo, double(portThreshold.getMinValue()));
        hi = std::max(hi, double(portThreshold.getMaxValue()));
    }
    portThreshold.setMinMax(float(lo), float(hi));
    if (!VxApplication::instance()->interpreter()->networkIsLoading() && m_firstData) portThreshold.reset();
    m_nodeValues.clear();
    m_firstData = false;
}

bool VxIsoTetra::autoConnect(VxObject* data)
{
    return VxModule::autoConnect(data);
}

void VxIsoTetra::compute()
{
    VxViewBase::compute();
    if (!m_field) {
        hideGeom(m_surface.get());
        return;
    }
    const float threshold = portThreshold.getValue();
    if (portAction.wasHit(0)) {
        KxProgressInterface* progress = VxApplication::instance()->progress();
        progress->startWorking(tr("Extracting Isosurface"));
        try {
            checkEncoding();
            computeIsosurface(threshold);
        } catch (const std::exception& e) {
            progress->stopWorking();
            VxApplication::instance()->message()->error(QString::fromUtf8(e.what()));
            return;
        }
        progress->stopWorking();
    }
    if (!handlePseudoColor(0)) {
        m_surface->colors.setValue(portColormap().getPackedColor(threshold));
        m_surface->materialBinding = SoTriSurface::OVERALL;
    }
    // The base's compute() has applied the buffer buttons already.
    handleDrawStyle();
    showGeom(m_surface.get());
}

void VxIsoTetra::checkEncoding()
{
    const int encoding = m_field->getEncoding();
    const VxTetraGrid& grid = *m_field->getGrid();
    if (encoding == VxTetraScalarField3::PER_NODE || !m_field->hasValues()) {
        m_nodeValues.clear();
        return;
    }
    if (m_nodeValues.size() == std::size_t(grid.getNumNodes())) return;
    // Values per corner are averaged like values per tetrahedron: a grid edge must see one value
    // at each end, or the tetrahedra around it could not share its vertex.
    const bool perCorner = encoding == VxTetraScalarField3::PER_TETRA_CORNER;
    const float* v = m_field->getValues();
    KxDArray<float> sum(std::size_t(grid.getNumNodes()), 0.f);
    KxDArray<int32_t> uses(std::size_t(grid.getNumNodes()), 0);
    for (int32_t t = 0; t < grid.getNumTetras(); ++t)
        for (int i = 0; i < 4; ++i) {
            const int32_t n = grid.getTetra(t).nodes[i];
            sum[std::size_t(n)] += perCorner ? v[4 * std::size_t(t) + std::size_t(i)] : v[t];
            ++uses[std::size_t(n)];
        }
    for (std::size_t n = 0; n < sum.size(); ++n)
        if (uses[n]) sum[n] /= float(uses[n]);
    m_nodeValues.swap(sum);
}

void VxIsoTetra::computeIsosurface(float threshold)
{
    const VxTetraGrid& grid = *m_field->getGrid();
    const float* values = !m_nodeValues.empty()                                     ? m_nodeValues.data()
                          : m_field->getEncoding() == VxTetraScalarField3::PER_NODE ? m_field->getValues()
                                                                                    : nullptr;
    static_assert(sizeof(VxTetraGrid::Tetra) % sizeof(int32_t) == 0, "tetrahedra are read as int32 rows");
    VxTetraSurface s = VxTetraSurface::extract(
        grid.getNodes(), grid.getNumNodes(), grid.getNumTetras() ? grid.getTetras()->nodes : nullptr,
        sizeof(VxTetraGrid::Tetra) / sizeof(int32_t), std::size_t(grid.getNumTetras()), values, threshold,
        VxApplication::instance()->progress());
    m_surface->normals.setNum(0);
    m_surface->adoptCoords(s.numVertices, s.xyz.release());
    m_surface->adoptTriangles(int(s.numTriangles), s.triangles.release());
}

void VxIsoTetra::savePorts(FILE* fp)
{
    VxTriBase::savePorts(fp);
    if (!portAction.isSnapped(0))
        fprintf(fp, "\"%s\" %s  snap 0 0\n", getLabel().toUtf8().constData(),
                portAction.getName().toUtf8().constData());
}
