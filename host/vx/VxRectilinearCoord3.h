#pragma once
#include <vx/VxCoord3.h>

// Nodes on axis-parallel planes at arbitrary positions: one coordinate list per axis, so a grid of
// n^3 nodes costs 3n floats instead of 3n^3. Fields on it extract through the per-node path.
class VxRectilinearCoord3 : public VxCoord3
{
public:
    // x, y and z hold dims.nx, dims.ny and dims.nz positions.
    VxRectilinearCoord3(const KxDim3l& dims, KxDArray<float> x, KxDArray<float> y, KxDArray<float> z);

    VxCoordType coordType() const override { return VX_COORD_RECTILINEAR; }
    KxBox3f getBoundingBox() const override { return m_box; }
    KxVec3f pos(int64_t i, int64_t j, int64_t k) const override { return {m_x[i], m_y[j], m_z[k]}; }
    VxCoord3* clone() const override { return new VxRectilinearCoord3(*this); }
    // Positions along one axis (0 x, 1 y, 2 z).
    const float* coords(int axis) const
    {
        return axis == 0 ? m_x.data() : axis == 1 ? m_y.data() : m_z.data();
    }

private:
    KxDArray<float> m_x, m_y, m_z;
    KxBox3f m_box;
};
