#include <io/VxVolumePlacement.h>

#include <cmath>

QString VxVolumePlacement::normalise()
{
    for (int a = 0; a < 3; ++a) {
        if (!std::isfinite(origin[a])) return "the origin is not a finite point";
        if (!std::isfinite(spacing[a])) return QString("the spacing %1 is not a finite number").arg(spacing[a]);
        double length = 0;
        for (int c = 0; c < 3; ++c) {
            if (!std::isfinite(axis[a][c])) return "an axis direction holds a non-finite number";
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
    return QString();
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
        for (int c = 0; c < 3; ++c) identity = identity && std::fabs(axis[a][c] - (a == c ? 1.0 : 0.0)) < 1e-6;
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
