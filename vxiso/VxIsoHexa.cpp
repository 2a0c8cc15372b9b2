#include <vxiso/VxIsoHexa.h>
#include <vxiso/extractor/VxIsosurfaceByteCaseTable.h>

#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDrawStyle.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>

#include <cmath>
#include <cstring>
#include <new>

KX_PACKAGE_SOURCE(VxIsoHexa, VxTriBase)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxIsoHexa", text);
}

using vxiso::tables::LUT;
namespace row = vxiso::tables;

} // namespace

VxIsoHexa::VxIsoHexa()
    : VxTriBase(VxHexaScalarField3::getClassTypeId()), portThreshold(this, tr("Threshold"), "threshold"),
      portAverage(this, tr("Average"), "average", 1), portDoIt(this, tr("Action"), "doIt")
{
    portAverage.setAliasName("Average");
    portAverage.setValue(0, true);
    portAverage.hide();
    portDrawStyle().setValue(1);
}

VxIsoHexa::~VxIsoHexa() = default;

void VxIsoHexa::update()
{
    VxTriBase::update();
    portColormap().show();
    const auto* field = vxconnection_cast<VxHexaScalarField3>(portData);
    if (!field || !portData.isNew()) return;
    double lo = 0, hi = 0;
    field->getRange(lo, hi);
    if (!portData.isNew(VxPort::NEW_VALUE)) {
        lo = std::min(lo, double(portThreshold.getMinValue()));
        hi = std::max(hi, double(portThreshold.getMaxValue()));
    }
    portThreshold.setMinMax(float(lo), float(hi));
}

void VxIsoHexa::compute()
{
    VxViewBase::compute();
    auto* field = vxconnection_cast<VxHexaScalarField3>(portData);
    if (!field) {
        hideGeom(m_surface.get());
        return;
    }
    const int encoding = field->getEncoding();
    if (encoding != VxHexaScalarField3::PER_NODE && encoding != VxHexaScalarField3::PER_HEXA) {
        VxApplication::instance()->message()->error(tr("HexaIsosurface: unsupported encoding type"));
        return;
    }
    m_grid = field->grid();
    m_perCell = encoding == VxHexaScalarField3::PER_HEXA && !portAverage.getValue(0);
    if (!field->hasValues()) {
        m_values = nullptr;
    } else if (encoding == VxHexaScalarField3::PER_HEXA && !m_perCell) {
        // Rebuilt for new data as well: another field may live on a grid of the same size.
        if (m_averaged.size() != std::size_t(m_grid->getNumNodes()) || portData.isNew()) average(field);
        m_values = m_averaged.data();
    } else {
        m_values = field->getValues();
    }

    if (portThreshold.isNew() || portData.isNew() || portAverage.isNew() || portDoIt.wasHit(0)) {
        KxProgressInterface* progress = VxApplication::instance()->progress();
        progress->startWorking(tr("Extracting Isosurface"));
        m_threshold = portThreshold.getValue();
        try {
            computeSurface();
        } catch (const std::exception& e) {
            progress->stopWorking();
            VxApplication::instance()->message()->error(QString::fromUtf8(e.what()));
            return;
        }
        progress->stopWorking();
        computed = true;
        if (!handlePseudoColor(0)) {
            m_surface->colors.setValue(portColormap().getPackedColor(m_threshold));
            m_surface->materialBinding = SoTriSurface::OVERALL;
        }
    }
    handleDrawStyle();
    showGeom(m_surface.get());
}

void VxIsoHexa::average(VxHexaScalarField3* field)
{
    const VxHexaGrid& grid = *field->grid();
    const float* v = field->getValues();
    KxDArray<int32_t> uses(std::size_t(grid.getNumNodes()), 0);
    m_averaged.clear();
    m_averaged.resize(std::size_t(grid.getNumNodes()), 0.f);
    for (int32_t h = 0; h < grid.getNumHexas(); ++h)
        for (int32_t n : grid.getHexa(h).nodes) {
            m_averaged[std::size_t(n)] += v[h];
            ++uses[std::size_t(n)];
        }
    for (std::size_t n = 0; n < m_averaged.size(); ++n)
        if (uses[n]) m_averaged[n] /= float(uses[n]);
}

void VxIsoHexa::computeSurface()
{
    SoTriSurface& s = *m_surface;
    s.coords.enableNotify(FALSE);
    s.triangles.enableNotify(FALSE);
    s.colors.enableNotify(FALSE);
    KxDArray<float> xyz;
    KxDArray<int32_t> triangles;
    try {
        if (m_values) {
            if (m_perCell)
                computeSurfacePerCell(xyz, triangles);
            else
                computeSurfaceMC(xyz, triangles);
        }
    } catch (...) { // the previous surface stays
        s.coords.enableNotify(TRUE);
        s.triangles.enableNotify(TRUE);
        s.colors.enableNotify(TRUE);
        throw;
    }
    const int numTriangles = int(triangles.size() / 3), numVertices = int(xyz.size() / 3);
    s.normals.setNum(0);
    s.adoptCoords(numVertices, xyz.release());
    s.adoptTriangles(numTriangles, triangles.release());
    s.coords.enableNotify(TRUE);
    s.triangles.enableNotify(TRUE);
    s.colors.enableNotify(TRUE);
    s.coords.touch();
    s.triangles.touch();
    VxApplication::instance()->message()->printf("Isosurface contains %d triangles.\n", numTriangles);
}

int VxIsoHexa::computeIndex(const int* cellNodes) const
{
    int index = 0;
    for (int i = 0; i < 8; ++i) index |= int(m_values[cellNodes[i]] > m_threshold) << i;
    return index;
}

KxVec3f VxIsoHexa::computeIntersection(const int* cellNodes, int edge) const
{
    const int a = cellNodes[edge_ends_uh[edge][0]], b = cellNodes[edge_ends_uh[edge][1]];
    const float va = m_values[a], vb = m_values[b];
    const float d = vb - va;
    // Values too close to tell apart (equal ends of a flat or degenerate cell) meet halfway.
    const float t = std::fabs(double(d)) >= 1e-8 ? (vb - m_threshold) / d : 0.5f;
    const KxVec3f p = m_grid->getNode(a), q = m_grid->getNode(b);
    return {t * p.x + (1 - t) * q.x, t * p.y + (1 - t) * q.y, t * p.z + (1 - t) * q.z};
}

// Progress now and then; an interruption stops the extraction, which then keeps nothing.
static void reportProgress(std::size_t done, std::size_t all)
{
    KxProgressInterface* progress = VxApplication::instance()->progress();
    progress->setProgressValue(float(done) / float(all));
    if (progress->wasInterrupted()) throw KxInterrupted();
}

void VxIsoHexa::computeSurfaceMC(KxDArray<float>& xyz, KxDArray<int32_t>& triangles)
{
    for (int32_t h = 0; h < m_grid->getNumHexas(); ++h) {
        if ((h & 0xffff) == 0) reportProgress(std::size_t(h), std::size_t(m_grid->getNumHexas()));
        const int* nodes = m_grid->getHexa(h).nodes;
        m_case = computeIndex(nodes);
        const signed char* r = LUT[m_case];
        int32_t vertexOf[13];
        for (int e = 0; e < r[row::EDGE_COUNT]; ++e) {
            const int edge = r[row::EDGES + e];
            const KxVec3f v = computeIntersection(nodes, edge);
            vertexOf[edge] = int32_t(xyz.size() / 3);
            float* out = xyz.extend(3);
            out[0] = v.x, out[1] = v.y, out[2] = v.z;
        }
        for (int k = 0; k < 3 * r[row::TRIANGLE_COUNT]; ++k)
            triangles.push_back(vertexOf[r[row::TRIANGLES + k]]);
    }
    xyz.shrinkToFit();
    triangles.shrinkToFit();
}

void VxIsoHexa::computeSurfacePerCell(KxDArray<float>& xyz, KxDArray<int32_t>& triangles)
{
    const std::size_t numNodes = std::size_t(m_grid->getNumNodes());
    xyz.resize(3 * numNodes);
    if (numNodes) std::memcpy(xyz.data(), m_grid->getNodes(), 3 * numNodes * sizeof(float));
    const std::vector<VxHexaGrid::Face>& faces = m_grid->getFaces();
    for (std::size_t i = 0; i < faces.size(); ++i) {
        if (i % 1000 == 0) reportProgress(i, faces.size());
        const VxHexaGrid::Face& f = faces[i];
        if (f.cells[1] == VxHexaGrid::NO_CELL) continue;
        const bool firstBelow = m_threshold > m_values[f.cells[0]];
        if (firstBelow == (m_threshold > m_values[f.cells[1]])) continue;
        if (triangles.size() + 6 > triangles.capacity()) triangles.reserve(triangles.capacity() + 3 * 1024);
        const int32_t* n = f.nodes;
        // Facing away from the lower cell.
        const int32_t t[6] = {n[0], n[1], n[2], n[2], n[3], n[0]};
        const int32_t r[6] = {n[2], n[1], n[0], n[0], n[3], n[2]};
        for (int32_t v : firstBelow ? t : r) triangles.push_back(v);
    }
    triangles.shrinkToFit();
}

int VxIsoHexa::parse(Tcl_Interp* interp, int argc, char** argv)
{
    // A placeholder command, kept for the scripts that call it.
    if (argc >= 2 && !strcmp(argv[1], "xxx")) return TCL_OK;
    return VxTriBase::parse(interp, argc, argv);
}

QStringList VxIsoHexa::commands() const
{
    return QStringList{"xxx"} + VxTriBase::commands();
}

void VxIsoHexa::savePorts(FILE* fp)
{
    VxTriBase::savePorts(fp);
    if (computed) fprintf(fp, "\"%s\" doIt hit\n", getName().toUtf8().constData());
}
