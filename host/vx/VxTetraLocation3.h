#pragma once
#include <vx/VxLocation3.h>

class VxTetraScalarField3;

// Location in a field on a tetrahedral grid; values are interpolated linearly in the tetrahedron
// (by barycentric coordinates), or constant in it for values given per tetrahedron.
//
// move() walks from the last tetrahedron through the face opposite the corner whose barycentric
// coordinate is most negative, using the grid's neighbour records; set(), and a walk that runs into
// the boundary (the point may lie beyond a concave part of it), start from the tetrahedra that the
// grid's spatial index names for the point.
class VxTetraLocation3 : public VxLocation3
{
public:
    explicit VxTetraLocation3(const VxTetraScalarField3& field);

    bool set(const SbVec3f& p) override;
    bool move(const SbVec3f& p) override;
    bool eval(float& value) const override;

    int getTetra() const { return m_found ? m_tetra : -1; }
    const double* getWeights() const { return m_weights; }

private:
    // Barycentric coordinates of p in the tetrahedron; false for a flat one.
    bool barycentric(int tetra, const double* p, double* w) const;
    bool accept(int tetra, const double* w);

    const VxTetraScalarField3& m_field;
    bool m_found = false;
    int m_tetra = 0;
    double m_weights[4] = {0, 0, 0, 0};
};
