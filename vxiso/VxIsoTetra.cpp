#include <vxiso/VxIsoTetra.h>

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

// The crossing edges of each case (bit i set: node i at or above the threshold), as node pairs of
// the tetrahedron, in the order their vertices make the triangles: three edges give (u0, u1, u2),
// four give (u0, u1, u2) and (u2, u3, u0).
//
// Orientation: case 1 fixes it and every other case follows. In a tetrahedron with
// det(P1 - P0, P2 - P0, P3 - P0) > 0 every triangle's normal (u1 - u0) x (u2 - u0) points towards
// the nodes at or above the threshold; in a negatively oriented one it points away from them. A
// mesh whose tetrahedra all have one orientation thus gets a consistently oriented surface.
struct TetraCase
{
    int count;
    signed char edges[4][2];
};
constexpr TetraCase g_tetraCases[16] = {
    {0, {}},
    {3, {{0, 1}, {0, 3}, {0, 2}}},
    {3, {{0, 1}, {1, 2}, {1, 3}}},
    {4, {{1, 2}, {1, 3}, {0, 3}, {0, 2}}},
    {3, {{0, 2}, {2, 3}, {1, 2}}},
    {4, {{0, 1}, {0, 3}, {2, 3}, {1, 2}}},
    {4, {{0, 2}, {2, 3}, {1, 3}, {0, 1}}},
    {3, {{0, 3}, {2, 3}, {1, 3}}},
    {3, {{0, 3}, {1, 3}, {2, 3}}},
    {4, {{1, 3}, {2, 3}, {0, 2}, {0, 1}}},
    {4, {{0, 1}, {1, 2}, {2, 3}, {0, 3}}},
    {3, {{0, 2}, {1, 2}, {2, 3}}},
    {4, {{0, 3}, {1, 3}, {1, 2}, {0, 2}}},
    {3, {{0, 1}, {1, 3}, {1, 2}}},
    {3, {{0, 1}, {0, 2}, {0, 3}}},
    {0, {}},
};

// A grid edge that carries a vertex, kept at its higher-numbered end node.
struct Edge
{
    int32_t node;   // the lower-numbered end node
    int32_t vertex; // the surface vertex on the edge
};

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
    // A field without values has no surface.
    const std::size_t T = values ? std::size_t(grid.getNumTetras()) : 0;
    std::vector<KxSmallArray<Edge, 6>> edges(std::size_t(grid.getNumNodes()));
    // The upper bounds: four vertices and two triangles a tetrahedron.
    KxDArray<float> xyz(3 * 4 * T);
    KxDArray<int32_t> triangles(3 * 2 * T);
    int32_t numVertices = 0;
    std::size_t numTriangles = 0;
    KxProgressInterface* progress = VxApplication::instance()->progress();

    for (std::size_t t = 0; t < T; ++t) {
        if ((t & 0xffff) == 0) progress->setProgressValue(float(t) / float(T));
        const VxTetraGrid::Tetra& tet = grid.getTetras()[t];
        float s[4];
        int c = 0;
        for (int i = 0; i < 4; ++i) {
            s[i] = values[tet.nodes[i]];
            c |= int(s[i] >= threshold) << i;
        }
        if (c == 0 || c == 15) continue;
        // A missing value (NaN) has no place to interpolate to.
        if (s[0] != s[0] || s[1] != s[1] || s[2] != s[2] || s[3] != s[3]) continue;
        const TetraCase& tc = g_tetraCases[c];
        int32_t u[4];
        for (int e = 0; e < tc.count; ++e) {
            const int i = tc.edges[e][0], j = tc.edges[e][1];
            const int32_t a = std::min(tet.nodes[i], tet.nodes[j]), b = std::max(tet.nodes[i], tet.nodes[j]);
            KxSmallArray<Edge, 6>& list = edges[std::size_t(b)];
            const Edge* found =
                std::find_if(list.begin(), list.end(), [a](const Edge& x) { return x.node == a; });
            if (found != list.end()) {
                u[e] = found->vertex;
                continue;
            }
            const KxVec3f p = grid.getNode(tet.nodes[i]), q = grid.getNode(tet.nodes[j]);
            const float w = threshold - s[i], d = s[j] - s[i];
            float* out = &xyz[3 * std::size_t(numVertices)];
            out[0] = p.x + w * (q.x - p.x) / d;
            out[1] = p.y + w * (q.y - p.y) / d;
            out[2] = p.z + w * (q.z - p.z) / d;
            list.push_back({a, numVertices});
            u[e] = numVertices++;
        }
        int32_t* tri = &triangles[3 * numTriangles];
        tri[0] = u[0], tri[1] = u[1], tri[2] = u[2];
        ++numTriangles;
        if (tc.count == 4) {
            tri[3] = u[2], tri[4] = u[3], tri[5] = u[0];
            ++numTriangles;
        }
    }
    edges.clear();
    edges.shrink_to_fit();

    xyz.resize(3 * std::size_t(numVertices));
    xyz.shrinkToFit();
    triangles.resize(3 * numTriangles);
    triangles.shrinkToFit();
    m_surface->normals.setNum(0);
    m_surface->adoptCoords(numVertices, xyz.release());
    m_surface->adoptTriangles(int(numTriangles), triangles.release());
}

void VxIsoTetra::savePorts(FILE* fp)
{
    VxTriBase::savePorts(fp);
    if (!portAction.isSnapped(0))
        fprintf(fp, "\"%s\" %s  snap 0 0\n", getLabel().toUtf8().constData(),
                portAction.getName().toUtf8().constData());
}
