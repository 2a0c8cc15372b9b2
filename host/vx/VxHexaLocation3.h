#pragma once
#include <vx/VxLocation3.h>

class VxHexaScalarField3;

// Location in a field on a hexahedral grid. Within a hexahedron the position is the trilinear map
// of local coordinates (r, s, t) in [0, 1]^3 (node 0 at (0,0,0), 1 at (1,0,0), 2 at (1,1,0), 3 at
// (0,1,0), and 4 to 7 above them at t = 1), inverted by Newton's method; values are interpolated by
// the same map, or constant in the hexahedron for values given per hexahedron.
//
// move() tries the last hexahedron first (neighbouring samples mostly share it), then the
// hexahedra that the grid's spatial index names for the point, as set() does.
class VxHexaLocation3 : public VxLocation3
{
public:
    explicit VxHexaLocation3(const VxHexaScalarField3& field);

    bool set(const SbVec3f& p) override;
    bool move(const SbVec3f& p) override;
    bool eval(float& value) const override;

    int getHexa() const { return m_found ? m_hexa : -1; }
    const double* getLocal() const { return m_local; }

private:
    // Local coordinates of p in the hexahedron; false when Newton's method does not settle inside
    // it (the point lies elsewhere, or the cell is degenerate there).
    bool inside(int hexa, const double* p, double* local) const;

    const VxHexaScalarField3& m_field;
    bool m_found = false;
    int m_hexa = 0;
    double m_local[3] = {0, 0, 0};
};
