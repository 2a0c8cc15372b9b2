#include <vx/VxCellBuckets.h>
#include <vx/VxTetraLocation3.h>
#include <vx/VxTetraScalarField3.h>

#include <algorithm>
#include <cmath>

VxTetraLocation3::VxTetraLocation3(const VxTetraScalarField3& field) : m_field(field) {}

bool VxTetraLocation3::barycentric(int tetra, const double* p, double* w) const
{
    const VxTetraGrid& g = *m_field.getGrid();
    const VxTetraGrid::Tetra& t = g.getTetra(tetra);
    double e[3][3], d[3];
    const KxVec3f p0 = g.getNode(t.nodes[0]);
    for (int i = 0; i < 3; ++i) {
        const KxVec3f q = g.getNode(t.nodes[i + 1]);
        for (int a = 0; a < 3; ++a) e[i][a] = double(q[a]) - p0[a];
        d[i] = p[i] - p0[i];
    }
    auto det = [](const double* a, const double* b, const double* c) {
        return a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
               a[2] * (b[0] * c[1] - b[1] * c[0]);
    };
    const double whole = det(e[0], e[1], e[2]);
    if (whole == 0 || !std::isfinite(whole)) return false;
    w[1] = det(d, e[1], e[2]) / whole;
    w[2] = det(e[0], d, e[2]) / whole;
    w[3] = det(e[0], e[1], d) / whole;
    w[0] = 1 - w[1] - w[2] - w[3];
    return true;
}

bool VxTetraLocation3::accept(int tetra, const double* w)
{
    for (int i = 0; i < 4; ++i)
        if (!(w[i] >= -TOLERANCE)) return false;
    double sum = 0;
    for (int i = 0; i < 4; ++i) sum += m_weights[i] = std::max(0.0, w[i]);
    for (double& x : m_weights) x /= sum;
    m_tetra = tetra;
    return m_found = true;
}

bool VxTetraLocation3::set(const SbVec3f& p)
{
    m_found = false;
    const double q[3] = {p[0], p[1], p[2]};
    const VxCellBuckets::Range r = m_field.getGrid()->cellBuckets().candidates(KxVec3f(p[0], p[1], p[2]));
    for (const int32_t* c = r.begin; c != r.end; ++c) {
        double w[4];
        if (barycentric(int(*c), q, w) && accept(int(*c), w)) return true;
    }
    return false;
}

bool VxTetraLocation3::move(const SbVec3f& p)
{
    if (!m_found) return set(p);
    const VxTetraGrid& g = *m_field.getGrid();
    const double q[3] = {p[0], p[1], p[2]};
    int tetra = m_tetra;
    // A walk is short between neighbouring samples; a bound keeps a degenerate mesh from cycling.
    for (int step = 0; step < 64; ++step) {
        double w[4];
        if (!barycentric(tetra, q, w)) break;
        if (accept(tetra, w)) return true;
        const int worst = int(std::min_element(w, w + 4) - w);
        const int next = g.getTetra(tetra).neighbours[worst];
        if (next == VxTetraGrid::NO_NEIGHBOUR) break;
        tetra = next;
    }
    return set(p);
}

bool VxTetraLocation3::eval(float& value) const
{
    if (!m_found || !m_field.hasValues()) return false;
    const float* v = m_field.getValues();
    const int32_t* nodes = m_field.getGrid()->getTetra(m_tetra).nodes;
    double sum = 0;
    switch (m_field.getEncoding()) {
    case VxTetraScalarField3::PER_NODE:
        for (int i = 0; i < 4; ++i)
            if (m_weights[i] != 0) sum += m_weights[i] * v[nodes[i]];
        break;
    case VxTetraScalarField3::PER_TETRA_CORNER:
        for (int i = 0; i < 4; ++i)
            if (m_weights[i] != 0) sum += m_weights[i] * v[4 * std::size_t(m_tetra) + std::size_t(i)];
        break;
    default:
        sum = v[m_tetra];
        break;
    }
    value = float(sum);
    return value == value;
}
