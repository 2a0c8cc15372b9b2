#include <vxiso/isolines/VxIsolineContouring.h>

#include <kx/KxBitfield.h>
#include <vx/VxTetraScalarField3.h>

#include <utility>

namespace {

// The points of one cell's edges: edges 0 and 3 may come from the neighbours (the carries as they
// were when the cell started, for both segments of a saddle); edges 1 and 2 are made here.
struct CellEdges
{
    int rowCarry, columnCarry;
    int madeOn1 = -1, madeOn2 = -1;
};

int edgePoint(KxDArray<SbVec3f>& points, KxDArray<int>& links, const SbVec3f* corners, const float* values,
              float iso, CellEdges& edges, int k)
{
    if (k == 0 && edges.rowCarry >= 0) return edges.rowCarry;
    if (k == 3 && edges.columnCarry >= 0) return edges.columnCarry;
    const int k1 = (k + 1) & 3;
    const float t = (iso - values[k]) / (values[k1] - values[k]);
    points.push_back(corners[k] + (corners[k1] - corners[k]) * t);
    links.push_back(-1);
    const int i = int(points.size()) - 1;
    if (k == 1) edges.madeOn1 = i;
    if (k == 2) edges.madeOn2 = i;
    return i;
}

// A segment runs from edgeA to edgeB when corner 0 is not below and from edgeB to edgeA when it is,
// so that all segments of a value keep the same side of the field on the same hand and each point
// gets one successor and one predecessor at most. Its points are handled, and made, in that order.
void addLineSegment(KxDArray<SbVec3f>& points, KxDArray<int>& links, const SbVec3f* corners,
                    const float* values, float iso, CellEdges& edges, bool flip, int edgeA, int edgeB)
{
    if (flip) std::swap(edgeA, edgeB);
    const int first = edgePoint(points, links, corners, values, iso, edges, edgeA);
    const int second = edgePoint(points, links, corners, values, iso, edges, edgeB);
    links[std::size_t(first)] = second;
}

} // namespace

void VxIsolineContouring::setTransform(const SbMatrix* m)
{
    m_useTransform = m != nullptr;
    m_transform = m ? *m : SbMatrix::identity();
}

void VxIsolineContouring::processCell(float iso, SbVec3f* corners, float* values, KxDArray<SbVec3f>& points,
                                      KxDArray<int>& links, int& columnCarry, int& rowCarry) const
{
    const bool below0 = iso > values[0];
    int code = (iso > values[1] ? 2 : 0) | (iso > values[2] ? 1 : 0) | (iso > values[3] ? 4 : 0);
    if (below0) code = 7 - code; // now: which corners differ from corner 0
    CellEdges edges{rowCarry, columnCarry};
    auto segment = [&](int a, int b) {
        addLineSegment(points, links, corners, values, iso, edges, below0, a, b);
    };
    switch (code) {
    case 0:
        break;
    case 1:
        segment(1, 2);
        break;
    case 2:
        segment(0, 1);
        break;
    case 3:
        segment(0, 2);
        break;
    case 4:
        segment(2, 3);
        break;
    case 5:
        segment(1, 3);
        break;
    case 7:
        segment(0, 3);
        break;
    case 6: {
        // Corners 1 and 3 differ from 0 and 2: the mean of the corners says whether 0 and 2 are
        // joined through the middle of the cell.
        const double centre = double(values[0] + values[1] + values[2] + values[3]) * 0.25;
        if (below0 == (double(iso) > centre)) {
            segment(0, 1);
            segment(2, 3);
        } else {
            segment(0, 3);
            segment(2, 1);
        }
        break;
    }
    }
    rowCarry = edges.madeOn2;
    columnCarry = edges.madeOn1;
}

void VxIsolineContouring::chain(const KxDArray<SbVec3f>& points, const KxDArray<int>& links)
{
    const std::size_t n = points.size();
    KxBitfield successor(n, false);
    for (std::size_t i = 0; i < n; ++i)
        if (links[i] >= 0) successor.set(std::size_t(links[i]));
    // Open lines start where no link arrives. They are all found before any walk: a walk unmarks
    // the points it passes, and those must not start lines of their own.
    std::vector<int> starts;
    for (std::size_t i = 0; i < n; ++i)
        if (!successor[i]) starts.push_back(int(i));

    for (int start : starts) {
        int count = 0;
        for (int i = start; i >= 0; i = links[std::size_t(i)]) {
            m_lines.points.push_back(points[std::size_t(i)]);
            successor.unset(std::size_t(i));
            ++count;
        }
        m_lines.numVertices.push_back(count);
    }
    // What is left are loops. The start stays marked until the walk comes back to it, so that it is
    // emitted again at the end and the loop closes in a plain line set.
    for (std::size_t start = 0; start < n; ++start) {
        if (!successor[start]) continue;
        int count = 1;
        m_lines.points.push_back(points[start]);
        for (int i = links[start]; i >= 0 && successor[std::size_t(i)]; i = links[std::size_t(i)]) {
            m_lines.points.push_back(points[std::size_t(i)]);
            successor.unset(std::size_t(i));
            ++count;
        }
        m_lines.numVertices.push_back(count);
    }
}

void VxIsolineContouring::labelNewLines(int value)
{
    const std::size_t lines = m_lines.numVertices.size();
    while (m_lines.lineValues.size() < lines) m_lines.lineValues.push_back(m_isoValues[std::size_t(value)]);
    if (!m_colors.empty())
        while (m_lines.lineColors.size() < lines) m_lines.lineColors.push_back(m_colors[std::size_t(value)]);
}

void VxIsolineContouring::intersect(const Vertex3& a, const Vertex3& b, Vertex3& out)
{
    const float d = a.dist - b.dist;
    if (std::fabs(double(d)) < 1e-10) {
        out.xyz = (a.xyz + b.xyz) * 0.5f;
        out.value = a.value; // not the mean: the value stays a's
        return;
    }
    for (int i = 0; i < 3; ++i) out.xyz[i] = a.xyz[i] + (b.xyz[i] - a.xyz[i]) * a.dist / d;
    out.value = a.value + (b.value - a.value) * a.dist / d;
}

void VxIsolineContouring::doIntersection(const VxTetraScalarField3& field, const SbVec3f& origin,
                                         const SbVec3f& normal, const SbVec3f& uVec, const SbVec3f& vVec)
{
    m_lines.clear();
    m_pointIndex = 0;
    SbVec3f o = origin, n = normal;
    m_mapPoints = m_useTransform;
    if (m_useTransform) {
        SbVec3f u, v;
        m_transform.multVecMatrix(origin, o);
        m_transform.multDirMatrix(uVec, u);
        m_transform.multDirMatrix(vVec, v);
        n = u.cross(v);
        m_inverse = m_transform.inverse();
    }
    const VxTetraGrid* grid = field.getGrid();
    const int encoding = field.getEncoding();
    if (!grid || !field.hasValues() || m_isoValues.empty() ||
        (encoding != VxTetraScalarField3::PER_NODE && encoding != VxTetraScalarField3::PER_TETRA_CORNER))
        return;

    const int32_t numNodes = grid->getNumNodes();
    const float* xyz = grid->getNodes();
    const float offset = n.dot(o);
    std::vector<float> dist(std::size_t(numNodes), 0.f);
    for (int32_t i = 0; i < numNodes; ++i)
        dist[std::size_t(i)] = n.dot(SbVec3f(xyz + 3 * std::size_t(i))) - offset;

    const float* values = field.getValues();
    const VxTetraGrid::Tetra* tetras = grid->getTetras();
    for (int32_t t = 0; t < grid->getNumTetras(); ++t) {
        if ((t & 0xffff) == 0) checkInterruption();
        const int32_t* nodes = tetras[t].nodes;
        int code = 0;
        for (int i = 0; i < 4; ++i) code |= dist[std::size_t(nodes[i])] >= 0.f ? 1 << i : 0;
        if (code == 0 || code == 15) continue;
        Vertex3 c[4];
        for (int i = 0; i < 4; ++i) {
            const std::size_t node = std::size_t(nodes[i]);
            c[i].xyz.setValue(xyz + 3 * node);
            c[i].dist = dist[node];
            c[i].value =
                encoding == VxTetraScalarField3::PER_NODE ? values[node] : values[4 * std::size_t(t) + i];
        }
        Polygon polygon;
        const int set = __builtin_popcount(unsigned(code));
        if (set == 2) {
            // Corners a, b against c, d: the four crossed edges in turn around the quadrilateral.
            int side[2][2], m[2] = {0, 0};
            for (int i = 0; i < 4; ++i) side[(code >> i) & 1][m[(code >> i) & 1]++] = i;
            const int a = side[1][0], b = side[1][1], cc = side[0][0], d = side[0][1];
            polygon.numVertices = 4;
            intersect(c[a], c[cc], polygon.vertex[0]);
            intersect(c[a], c[d], polygon.vertex[1]);
            intersect(c[b], c[d], polygon.vertex[2]);
            intersect(c[b], c[cc], polygon.vertex[3]);
            isoPoly4(polygon);
        } else {
            // One corner alone on its side: a triangle on its three edges.
            const int alone = __builtin_ctz(unsigned(set == 1 ? code : ~code & 15));
            polygon.numVertices = 3;
            for (int i = 0, m = 0; i < 4; ++i)
                if (i != alone) intersect(c[alone], c[i], polygon.vertex[m++]);
            isoPoly3(polygon);
        }
    }
    m_lines.points.resize(std::size_t(m_pointIndex));
    m_lines.lineColors.resize(std::min(m_lines.lineColors.size(), m_lines.numVertices.size()));
}

void VxIsolineContouring::isoPoly3(const Polygon& polygon)
{
    isoPoly<3>(polygon);
}

void VxIsolineContouring::isoPoly4(const Polygon& polygon)
{
    isoPoly<4>(polygon);
}

template <int N> void VxIsolineContouring::isoPoly(const Polygon& polygon)
{
    const Vertex3* p = polygon.vertex;
    for (std::size_t k = 0; k < m_isoValues.size(); ++k) {
        const float iso = m_isoValues[k];
        int code = 0;
        for (int i = 0; i < N; ++i) code |= p[i].value >= iso ? 1 << i : 0;
        if (code == 0 || code == (1 << N) - 1) continue;
        // The ambiguous quadrilateral is left alone, for this value and the rest.
        if (N == 4 && (code == 5 || code == 10)) return;
        SbVec3f ends[2];
        for (int i = 0, m = 0; i < N; ++i) {
            const int j = (i + 1) % N;
            if (((code >> i) & 1) == ((code >> j) & 1)) continue;
            const float t = (iso - p[i].value) / (p[j].value - p[i].value);
            ends[m++] = p[i].xyz + (p[j].xyz - p[i].xyz) * t;
        }
        addPolygonSegment(ends[0], ends[1], int(k), N == 4);
    }
}

void VxIsolineContouring::addPolygonSegment(SbVec3f a, SbVec3f b, int value, bool quad)
{
    if (m_mapPoints) {
        m_inverse.multVecMatrix(a, a);
        m_inverse.multVecMatrix(b, b);
    }
    KxDArray<SbVec3f>& points = m_lines.points;
    // The coordinate field's growth: by 4096 for quadrilaterals, by what is needed otherwise.
    if (quad && points.size() - std::size_t(m_pointIndex) < 2) points.resize(points.size() + 4096);
    if (points.size() < std::size_t(m_pointIndex) + 2) points.resize(std::size_t(m_pointIndex) + 2);
    points[std::size_t(m_pointIndex)] = a;
    points[std::size_t(m_pointIndex) + 1] = b;
    m_pointIndex += 2;
    const std::size_t line = m_lines.numVertices.size();
    m_lines.numVertices.push_back(2);
    m_lines.lineValues.push_back(m_isoValues[std::size_t(value)]);
    if (!m_colors.empty()) {
        if (m_lines.lineColors.size() == line) m_lines.lineColors.resize(line + 2048);
        m_lines.lineColors[line] = m_colors[std::size_t(value)];
    }
}
