#pragma once
#include <vx/VxLocation3.h>

class VxCoord3;
class VxRegScalarField3;

// Location in a field on a regular lattice; values are interpolated trilinearly in the cell.
//
// Uniform and rectilinear coordinates (positions along each axis increasing or decreasing) are
// searched axis by axis: set() by bisection, move() by stepping from the last cell. Other
// coordinates (curvilinear, or rectilinear positions that turn back) invert the trilinear map of a
// cell by Newton's method: move() walks from the last cell towards the point, set() tries the cells
// that the lattice's spatial index (built once, VxLattice3::cellIndex) names for the point. An axis of one
// node has no cells: the point must lie on that node's plane.
class VxRegLocation3 : public VxLocation3
{
public:
    explicit VxRegLocation3(const VxRegScalarField3& field);
    ~VxRegLocation3() override;

    bool set(const SbVec3f& p) override;
    bool move(const SbVec3f& p) override;
    bool eval(float& value) const override;

    // The cell found last (its lowest node) and the local coordinates in it, each in [0, 1].
    const int* getCell() const { return m_cell; }
    const double* getLocal() const { return m_local; }

private:
    bool locateAxes(const SbVec3f& p, bool fromLast);
    bool locateAxis(int axis, float p, bool fromLast);
    float axisPos(int axis, int64_t i) const;
    bool walk(const SbVec3f& p, int maxSteps);
    bool inverseMap(const SbVec3f& p, const int* cell, double* local) const;
    bool inside(const double* local) const;

    const VxRegScalarField3& m_field;
    const VxCoord3* m_coords;
    int64_t m_dims[3];
    bool m_uniform, m_axisWise;
    float m_first[3] = {0, 0, 0}, m_step[3] = {0, 0, 0};
    bool m_found = false;
    int m_cell[3] = {0, 0, 0};
    double m_local[3] = {0, 0, 0};
};
