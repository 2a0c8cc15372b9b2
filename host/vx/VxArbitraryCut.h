#pragma once
#include <vx/VxPlanarModBase.h>
#include <vx/VxPortFloatTextN.h>

#include <Inventor/SbVec2s.h>

// A slice through any field that can be evaluated at points, on the plane through "Origin" with
// "Normal". A field connected for the first time moves the origin to the centre of its box unless
// the origin was set in the same run. A normal of no length (or not a number) leaves no plane.
//
// In-plane axes: u is the x axis projected into the plane (the y axis when the normal is nearly x),
// v = normal x u. So the normal z gives u = x, v = y; -y gives u = x, v = z; x gives u = y, v = z.
//
// Sampling: the rectangle spanned along u and v by the part of the plane inside the field's box;
// the origin is its corner at the lowest u and v, and du, dv divide its sides into res - 1 steps.
class VxArbitraryCut : public VxPlanarModBase
{
    KX_HEADER(VxArbitraryCut)

public:
    VxArbitraryCut();

    VxPortFloatTextN portOrigin;
    VxPortFloatTextN portNormal;

    void update() override;
    void compute() override;

    // Sample counts along u and v that give about one sample per cell of the field (node spacing
    // of lattices, the mean spacing of the nodes of other grids), between 2 and 4096.
    SbVec2s getNativeResolution() const;

protected:
    explicit VxArbitraryCut(const KxTypeInfo* dataType);
    void getDrawingResolution(int& nu, int& nv) const override;
};
