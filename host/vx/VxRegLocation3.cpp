#include <vx/VxCellBuckets.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegLocation3.h>
#include <vx/VxRegScalarField3.h>

#include <algorithm>
#include <cmath>

namespace {

// Positions along a rectilinear axis that never turn back, so each point lies in one interval.
bool monotone(const float* v, int64_t n)
{
    bool up = true, down = true;
    for (int64_t i = 1; i < n; ++i) up = up && v[i] >= v[i - 1], down = down && v[i] <= v[i - 1];
    return up || down;
}

KxVec3d toDouble(const SbVec3f& p)
{
    return {double(p[0]), double(p[1]), double(p[2])};
}

} // namespace

VxRegLocation3::VxRegLocation3(const VxRegScalarField3& field)
    : m_field(field), m_coords(field.lattice().coords())
{
    for (int a = 0; a < 3; ++a) m_dims[a] = field.getDims()[a];
    m_uniform = m_axisWise = m_coords->coordType() == VX_COORD_UNIFORM;
    if (m_axisWise) {
        // Node positions as the coordinates compute them, without a virtual call per position.
        auto* u = static_cast<const VxUniformCoord3*>(m_coords);
        const KxVec3f step = u->getVoxelSize();
        for (int a = 0; a < 3; ++a) m_first[a] = u->getBoundingBox().min(a), m_step[a] = step[a];
    }
    if (m_coords->coordType() == VX_COORD_RECTILINEAR) {
        auto* r = static_cast<const VxRectilinearCoord3*>(m_coords);
        m_axisWise = monotone(r->coords(0), m_dims[0]) && monotone(r->coords(1), m_dims[1]) &&
                     monotone(r->coords(2), m_dims[2]);
    }
}

VxRegLocation3::~VxRegLocation3() = default;

float VxRegLocation3::axisPos(int axis, int64_t i) const
{
    // The lattice's own positions, computed as it computes them, so nodes are found exactly.
    if (m_uniform) return m_first[axis] + float(i) * m_step[axis];
    const KxVec3f p = m_coords->pos(axis == 0 ? i : 0, axis == 1 ? i : 0, axis == 2 ? i : 0);
    return p[axis];
}

bool VxRegLocation3::locateAxis(int axis, float p, bool fromLast)
{
    const int64_t n = m_dims[axis];
    if (n == 1) {
        const KxVec3f size = m_field.getBoundingBox().getSize();
        const double slack = TOLERANCE * std::max({double(size.x), double(size.y), double(size.z), 1.0});
        if (!(std::fabs(double(p) - axisPos(axis, 0)) <= slack)) return false;
        m_cell[axis] = 0;
        m_local[axis] = 0;
        return true;
    }
    const float first = axisPos(axis, 0), last = axisPos(axis, n - 1);
    const bool increasing = last >= first;
    auto before = [increasing](float a, float b) { return increasing ? a < b : a > b; };
    int64_t i;
    if (m_uniform) {
        const double x = (double(p) - first) / ((double(last) - first) / double(n - 1));
        i = std::isfinite(x) ? int64_t(std::clamp(std::floor(x), 0.0, double(n - 2))) : 0;
    } else if (fromLast) {
        i = m_cell[axis];
    } else {
        int64_t lo = 0, hi = n - 1;
        while (hi - lo > 1) {
            const int64_t mid = lo + (hi - lo) / 2;
            (before(p, axisPos(axis, mid)) ? hi : lo) = mid;
        }
        i = lo;
    }
    i = std::clamp<int64_t>(i, 0, n - 2);
    while (i > 0 && before(p, axisPos(axis, i))) --i;
    while (i < n - 2 && before(axisPos(axis, i + 1), p)) ++i;
    const double p0 = axisPos(axis, i), p1 = axisPos(axis, i + 1);
    const double t = p1 == p0 ? 0.0 : (double(p) - p0) / (p1 - p0);
    if (!(t >= -TOLERANCE && t <= 1 + TOLERANCE)) return false;
    m_cell[axis] = int(i);
    m_local[axis] = std::clamp(t, 0.0, 1.0);
    return true;
}

bool VxRegLocation3::locateAxes(const SbVec3f& p, bool fromLast)
{
    if (m_dims[0] < 1 || m_dims[1] < 1 || m_dims[2] < 1) return false;
    return locateAxis(0, p[0], fromLast) && locateAxis(1, p[1], fromLast) && locateAxis(2, p[2], fromLast);
}

bool VxRegLocation3::inside(const double* local) const
{
    for (int a = 0; a < 3; ++a)
        if (m_dims[a] > 1 && !(local[a] >= -TOLERANCE && local[a] <= 1 + TOLERANCE)) return false;
    return true;
}

// Newton's method (Gauss-Newton over the axes with cells, so that a lattice of one layer is a
// surface) on the trilinear map of the cell. The local coordinates come back also when the point
// is outside the cell: their signs tell a walk where to go.
bool VxRegLocation3::inverseMap(const SbVec3f& p, const int* cell, double* local) const
{
    KxVec3d corner[8];
    for (int c = 0; c < 8; ++c) {
        int64_t idx[3];
        for (int a = 0; a < 3; ++a) idx[a] = cell[a] + ((c >> a & 1) && m_dims[a] > 1 ? 1 : 0);
        corner[c] = KxVec3d(m_coords->pos(idx[0], idx[1], idx[2]));
    }
    int active[3], m = 0;
    for (int a = 0; a < 3; ++a) {
        local[a] = m_dims[a] > 1 ? 0.5 : 0.0;
        if (m_dims[a] > 1) active[m++] = a;
    }
    const double size = (corner[7] - corner[0]).length() + (corner[6] - corner[1]).length();
    KxVec3d x, d[3];
    for (int iter = 0; iter < 24; ++iter) {
        x = KxVec3d(0, 0, 0);
        d[0] = d[1] = d[2] = KxVec3d(0, 0, 0);
        for (int c = 0; c < 8; ++c) {
            double w[3], dw[3];
            for (int a = 0; a < 3; ++a) {
                w[a] = (c >> a & 1) ? local[a] : 1 - local[a];
                dw[a] = (c >> a & 1) ? 1 : -1;
            }
            x += corner[c] * (w[0] * w[1] * w[2]);
            d[0] += corner[c] * (dw[0] * w[1] * w[2]);
            d[1] += corner[c] * (w[0] * dw[1] * w[2]);
            d[2] += corner[c] * (w[0] * w[1] * dw[2]);
        }
        const KxVec3d r = toDouble(p) - x;
        if (r.length() <= 1e-9 * size) return true;
        // Normal equations over the active axes, solved by Gaussian elimination.
        double A[3][4] = {};
        for (int i = 0; i < m; ++i) {
            for (int j = 0; j < m; ++j) A[i][j] = d[active[i]].dot(d[active[j]]);
            A[i][m] = d[active[i]].dot(r);
        }
        for (int i = 0; i < m; ++i) {
            int piv = i;
            for (int k = i + 1; k < m; ++k)
                if (std::fabs(A[k][i]) > std::fabs(A[piv][i])) piv = k;
            std::swap(A[i], A[piv]);
            if (std::fabs(A[i][i]) < 1e-300) return false;
            for (int k = 0; k < m; ++k)
                if (k != i)
                    for (int j = m; j >= i; --j) A[k][j] -= A[k][i] / A[i][i] * A[i][j];
        }
        double step = 0;
        for (int i = 0; i < m; ++i) {
            const double delta = A[i][m] / A[i][i];
            // Far outside the cell the map means little; a bounded step still points the way.
            local[active[i]] = std::clamp(local[active[i]] + delta, -2.0, 3.0);
            step = std::max(step, std::fabs(delta));
        }
        if (!(step == step)) return false;
        if (step < 1e-12) break;
    }
    // A point off a one-layer lattice's surface converges to its foot: not found.
    return m == 3 || (toDouble(p) - x).length() <= TOLERANCE * size;
}

bool VxRegLocation3::walk(const SbVec3f& p, int maxSteps)
{
    int cell[3] = {m_cell[0], m_cell[1], m_cell[2]};
    double local[3];
    for (int step = 0; step < maxSteps; ++step) {
        const bool converged = inverseMap(p, cell, local);
        if (converged && inside(local)) {
            std::copy(cell, cell + 3, m_cell);
            for (int a = 0; a < 3; ++a) m_local[a] = std::clamp(local[a], 0.0, 1.0);
            return true;
        }
        bool moved = false;
        for (int a = 0; a < 3; ++a) {
            if (m_dims[a] < 2) continue;
            if (local[a] < -TOLERANCE && cell[a] > 0)
                --cell[a], moved = true;
            else if (local[a] > 1 + TOLERANCE && cell[a] < m_dims[a] - 2)
                ++cell[a], moved = true;
        }
        if (!moved) return false;
    }
    return false;
}

bool VxRegLocation3::set(const SbVec3f& p)
{
    m_found = false;
    if (m_axisWise) return m_found = locateAxes(p, false);
    if (m_dims[0] < 1 || m_dims[1] < 1 || m_dims[2] < 1) return false;
    const VxLattice3& lattice = m_field.lattice();
    const int64_t nc[3] = {lattice.numCells(0), lattice.numCells(1), lattice.numCells(2)};
    auto decode = [&](int64_t c, int* cell) {
        cell[0] = int(c % nc[0]);
        cell[1] = int(c / nc[0] % nc[1]);
        cell[2] = int(c / (nc[0] * nc[1]));
    };
    const KxVec3f q(p[0], p[1], p[2]);
    const VxCellBuckets::Range r = lattice.cellIndex().candidates(q);
    for (const int32_t* c = r.begin; c != r.end; ++c) {
        int cell[3];
        decode(*c, cell);
        const KxBox3f b = lattice.cellBox(cell[0], cell[1], cell[2]);
        const float slack = float(TOLERANCE) * std::max({b.getSize().x, b.getSize().y, b.getSize().z});
        if (!b.contains(q, slack)) continue;
        double local[3];
        if (inverseMap(p, cell, local) && inside(local)) {
            std::copy(cell, cell + 3, m_cell);
            for (int a = 0; a < 3; ++a) m_local[a] = std::clamp(local[a], 0.0, 1.0);
            return m_found = true;
        }
    }
    return false;
}

bool VxRegLocation3::move(const SbVec3f& p)
{
    if (!m_found) return set(p);
    if (m_axisWise) return m_found = locateAxes(p, true);
    // A few steps cover a neighbouring sample; a point farther off, or behind a bend of the
    // boundary, is looked up afresh.
    return walk(p, 8) || set(p);
}

bool VxRegLocation3::eval(float& value) const
{
    if (!m_found) return false;
    double sum = 0;
    for (int c = 0; c < 8; ++c) {
        double w = 1;
        int64_t idx[3];
        for (int a = 0; a < 3; ++a) {
            const bool up = c >> a & 1;
            w *= up ? m_local[a] : 1 - m_local[a];
            idx[a] = m_cell[a] + (up && m_dims[a] > 1 ? 1 : 0);
        }
        if (w == 0) continue;
        const double v = m_field.evalRegDouble(int(idx[0]), int(idx[1]), int(idx[2]));
        if (v != v || m_field.isUndefined(v)) return false;
        sum += w * v;
    }
    value = float(sum);
    return value == value;
}
