#pragma once
#include <kx/KxBox3.h>

#include <Inventor/SbMatrix.h>

#include <QString>

// Where a uniform volume's nodes lie: world position of node (i, j, k) is
// origin + i * spacing[0] * axis[0] + j * spacing[1] * axis[1] + k * spacing[2] * axis[2].
// A field keeps the box its nodes span along the coordinate axes from the origin; what the axes
// add beyond that (a turn, a mirror, a shear) becomes its transform about the first node.
struct VxVolumePlacement
{
    double origin[3] = {0, 0, 0};
    double spacing[3] = {1, 1, 1};
    double axis[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

    // Folds the axes' lengths and signs into the spacing so that the axes are unit vectors and the
    // spacing positive, then checks that the nodes of dims can be placed in single precision, where
    // the field keeps them. Returns an empty string, or what is wrong (a non-finite number, an axis
    // of length zero, a box or a spacing beyond what single precision holds).
    QString normalise(const KxDim3l& dims);

    KxBox3f box(const KxDim3l& dims) const;
    KxVec3f voxelSize() const { return KxVec3f(float(spacing[0]), float(spacing[1]), float(spacing[2])); }
    // False (and the identity) when the axes are the coordinate axes.
    bool transform(SbMatrix& m) const;

private:
    QString checkSinglePrecision(const KxDim3l& dims) const;
};
