#include <vx/VxCellBuckets.h>
#include <vx/VxHexaLocation3.h>
#include <vx/VxHexaScalarField3.h>

#include <algorithm>
#include <cmath>

namespace {

// The trilinear weights of the eight corners at (r, s, t), and their derivatives.
void weights(const double* l, double* w, double (*dw)[3])
{
    static const int corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                     {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    for (int i = 0; i < 8; ++i) {
        double f[3], df[3];
        for (int a = 0; a < 3; ++a) {
            f[a] = corner[i][a] ? l[a] : 1 - l[a];
            df[a] = corner[i][a] ? 1 : -1;
        }
        w[i] = f[0] * f[1] * f[2];
        if (dw) {
            dw[i][0] = df[0] * f[1] * f[2];
            dw[i][1] = f[0] * df[1] * f[2];
            dw[i][2] = f[0] * f[1] * df[2];
        }
    }
}

} // namespace

VxHexaLocation3::VxHexaLocation3(const VxHexaScalarField3& field) : m_field(field) {}

bool VxHexaLocation3::inside(int hexa, const double* p, double* l) const
{
    const VxHexaGrid& g = *m_field.grid();
    const int32_t* nodes = g.getHexa(hexa).nodes;
    double x[8][3];
    for (int i = 0; i < 8; ++i) {
        const KxVec3f q = g.getNode(nodes[i]);
        for (int a = 0; a < 3; ++a) x[i][a] = q[a];
    }
    l[0] = l[1] = l[2] = 0.5;
    // Newton's method converges in a few steps on cells that are not badly distorted; a step that
    // leaves the cell far behind means the point is not in it.
    for (int iteration = 0; iteration < 16; ++iteration) {
        double w[8], dw[8][3], r[3] = {-p[0], -p[1], -p[2]}, j[3][3] = {};
        weights(l, w, dw);
        for (int i = 0; i < 8; ++i)
            for (int a = 0; a < 3; ++a) {
                r[a] += w[i] * x[i][a];
                for (int b = 0; b < 3; ++b) j[a][b] += dw[i][b] * x[i][a];
            }
        const double det = j[0][0] * (j[1][1] * j[2][2] - j[1][2] * j[2][1]) -
                           j[0][1] * (j[1][0] * j[2][2] - j[1][2] * j[2][0]) +
                           j[0][2] * (j[1][0] * j[2][1] - j[1][1] * j[2][0]);
        if (det == 0 || !std::isfinite(det)) return false;
        // Cramer's rule for J d = r.
        double d[3];
        for (int c = 0; c < 3; ++c) {
            double m[3][3];
            for (int a = 0; a < 3; ++a)
                for (int b = 0; b < 3; ++b) m[a][b] = b == c ? r[a] : j[a][b];
            d[c] = (m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                    m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                    m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0])) /
                   det;
        }
        double change = 0;
        for (int a = 0; a < 3; ++a) {
            l[a] -= d[a];
            change = std::max(change, std::fabs(d[a]));
            if (!(std::fabs(l[a] - 0.5) < 2)) return false;
        }
        if (change < 1e-12) break;
    }
    for (int a = 0; a < 3; ++a)
        if (!(l[a] >= -TOLERANCE && l[a] <= 1 + TOLERANCE)) return false;
    for (int a = 0; a < 3; ++a) l[a] = std::clamp(l[a], 0.0, 1.0);
    return true;
}

bool VxHexaLocation3::set(const SbVec3f& p)
{
    m_found = false;
    const double q[3] = {p[0], p[1], p[2]};
    const VxCellBuckets::Range r = m_field.grid()->cellBuckets().candidates(KxVec3f(p[0], p[1], p[2]));
    for (const int32_t* c = r.begin; c != r.end; ++c)
        if (inside(int(*c), q, m_local)) {
            m_hexa = int(*c);
            return m_found = true;
        }
    return false;
}

bool VxHexaLocation3::move(const SbVec3f& p)
{
    const double q[3] = {p[0], p[1], p[2]};
    if (m_found && inside(m_hexa, q, m_local)) return true;
    return set(p);
}

bool VxHexaLocation3::eval(float& value) const
{
    if (!m_found || !m_field.hasValues()) return false;
    const float* v = m_field.getValues();
    if (m_field.getEncoding() == VxHexaScalarField3::PER_HEXA) {
        value = v[m_hexa];
        return value == value;
    }
    const int32_t* nodes = m_field.grid()->getHexa(m_hexa).nodes;
    double w[8], sum = 0;
    weights(m_local, w, nullptr);
    for (int i = 0; i < 8; ++i) {
        if (w[i] == 0) continue;
        const std::size_t at = m_field.getEncoding() == VxHexaScalarField3::PER_NODE
                                   ? std::size_t(nodes[i])
                                   : 8 * std::size_t(m_hexa) + std::size_t(i);
        sum += w[i] * v[at];
    }
    value = float(sum);
    return value == value;
}
