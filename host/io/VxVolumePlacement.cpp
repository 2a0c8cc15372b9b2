#include <io/VxVolumePlacement.h>

#include <cfloat>
#include <cmath>

namespace {

bool fitsFloat(double v)
{
    return std::fabs(v) <= double(FLT_MAX);
}

} // namespace

QString VxVolumePlacement::normalise(const KxDim3l& dims)
{
    for (int a = 0; a < 3; ++a) {
        if (!std::isfinite(origin[a]))
            return QString("the origin's %1 coordinate is not a finite number").arg(QChar('x' + a));
        if (!std::isfinite(spacing[a]))
            return QString("the spacing along axis %1 is not a finite number").arg(a + 1);
        double length = 0;
        for (int c = 0; c < 3; ++c) {
            if (!std::isfinite(axis[a][c]))
                return QString("the direction of axis %1 holds a non-finite number").arg(a + 1);
            length += axis[a][c] * axis[a][c];
        }
        length = std::sqrt(length);
        if (!(length > 0)) return QString("the direction of axis %1 has length zero").arg(a + 1);
        double s = spacing[a] * length;
        if (s == 0) return QString("the spacing along axis %1 is zero").arg(a + 1);
        // A negative spacing runs the axis backwards: a mirror, kept in the direction.
        const double sign = s < 0 ? -1.0 : 1.0;
        for (int c = 0; c < 3; ++c) axis[a][c] = sign * axis[a][c] / length;
        spacing[a] = std::fabs(s);
    }
    return checkSinglePrecision(dims);
}

// The field keeps its box, spacing and transform in floats, and the engine steps from node to node
// in floats: each must be finite there, and neighbouring nodes must stay apart.
QString VxVolumePlacement::checkSinglePrecision(const KxDim3l& d) const
{
    const KxBox3f b = box(d);
    for (int a = 0; a < 3; ++a) {
        if (!fitsFloat(origin[a]))
            return QString("the origin's %1 coordinate %2 is beyond single precision")
                .arg(QChar('x' + a))
                .arg(origin[a]);
        if (!fitsFloat(spacing[a]) || float(spacing[a]) == 0.f)
            return QString("the spacing %1 along axis %2 is beyond single precision")
                .arg(spacing[a])
                .arg(a + 1);
        if (d[a] < 2) continue;
        const float extent = b.max(a) - b.min(a);
        if (!std::isfinite(extent))
            return QString("along axis %1, %2 nodes %3 apart from %4 reach beyond single precision")
                .arg(a + 1)
                .arg(d[a])
                .arg(spacing[a])
                .arg(origin[a]);
        if (!(extent / float(d[a] - 1) > 0.f))
            return QString("along axis %1, nodes %2 apart at %3 cannot be told apart in single precision")
                .arg(a + 1)
                .arg(spacing[a])
                .arg(origin[a]);
    }
    SbMatrix m;
    if (!transform(m)) return QString();
    // Turned, the box's corners land elsewhere, and the transform shifts by up to a few origins.
    bool finite = std::isfinite(m[3][0]) && std::isfinite(m[3][1]) && std::isfinite(m[3][2]);
    for (int corner = 0; corner < 8; ++corner)
        for (int c = 0; c < 3; ++c) {
            double w = origin[c];
            for (int a = 0; a < 3; ++a)
                w += axis[a][c] * (double(corner >> a & 1 ? b.max(a) : b.min(a)) - origin[a]);
            finite = finite && fitsFloat(w);
        }
    return finite ? QString() : "the turned volume reaches beyond single precision";
}

KxBox3f VxVolumePlacement::box(const KxDim3l& d) const
{
    auto end = [&](int a) { return float(origin[a] + double(d[a] > 0 ? d[a] - 1 : 0) * spacing[a]); };
    return KxBox3f(float(origin[0]), end(0), float(origin[1]), end(1), float(origin[2]), end(2));
}

bool VxVolumePlacement::transform(SbMatrix& m) const
{
    m = SbMatrix::identity();
    bool identity = true;
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 3; ++c)
            identity = identity && std::fabs(axis[a][c] - (a == c ? 1.0 : 0.0)) < 1e-6;
    if (identity) return false;
    // world = A p + (o - A o) with A's columns the axes; SbMatrix multiplies row vectors, so each
    // axis is a row.
    double shift[3];
    for (int r = 0; r < 3; ++r)
        shift[r] = origin[r] - (axis[0][r] * origin[0] + axis[1][r] * origin[1] + axis[2][r] * origin[2]);
    m = SbMatrix(float(axis[0][0]), float(axis[0][1]), float(axis[0][2]), 0.f, //
                 float(axis[1][0]), float(axis[1][1]), float(axis[1][2]), 0.f, //
                 float(axis[2][0]), float(axis[2][1]), float(axis[2][2]), 0.f, //
                 float(shift[0]), float(shift[1]), float(shift[2]), 1.f);
    return true;
}
