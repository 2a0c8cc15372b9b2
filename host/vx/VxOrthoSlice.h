#pragma once
#include <vx/VxPlanarModBase.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortRadioBox.h>

class VxRegScalarField3;

// A slice of a field on a uniform or rectilinear lattice through a plane of nodes: "Orientation"
// xy, xz or yz (the plane's normal along z, y or x) and "Slice Number", the node index along that
// normal. A field connected for the first time, or a new orientation, puts the slice in the middle
// unless the slice number was set in the same run.
//
// In-plane axes: u along x for xy and xz, along y for yz; v along y for xy, along z for xz and yz;
// normal = u x v (so -y for xz). The drawing has one texel per node.
//
// Sampling: the origin is the minimum corner of the slice's in-plane box, du and dv run along u and
// v with steps extent / (res - 1), so sample (row r, column c) = origin + c du + r dv spans the box.
// With res equal to the node count along an in-plane axis of a uniform lattice, every sample along
// it is a lattice node, computed exactly as the lattice computes its nodes.
class VxOrthoSlice : public VxPlanarModBase
{
    KX_HEADER(VxOrthoSlice)

public:
    enum Orientation
    {
        XY = 0,
        XZ = 1,
        YZ = 2
    };

    VxOrthoSlice();

    VxPortRadioBox portSliceOrientation;
    VxPortIntSlider portSliceNumber;

    void update() override;
    void compute() override;

    int getOrientation() const { return portSliceOrientation.getValue(); }
    int getSliceNumber() const { return portSliceNumber.getValue(); }
    VxRegScalarField3* getLattice() const;
    // The lattice axes along u, v and the normal for an orientation.
    static void axes(int orientation, int& uAxis, int& vAxis, int& normalAxis);

protected:
    bool getSampling(int nu, int nv, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const override;
    void getDrawingResolution(int& nu, int& nv) const override;
};
