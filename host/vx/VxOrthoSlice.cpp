#include <vx/VxOrthoSlice.h>
#include <vx/VxRegScalarField3.h>

KX_SOURCE(VxOrthoSlice, VxPlanarModBase)

namespace {

QString tr(const char* text)
{
    return VxModule::translate("VxOrthoSlice", text);
}

// Planes of nodes are planes in space only for uniform and rectilinear coordinates.
int planarLattice(void*, VxObject* source)
{
    auto* field = kx_type_cast<VxRegScalarField3>(source);
    return field && (field->coordType() == VX_COORD_UNIFORM || field->coordType() == VX_COORD_RECTILINEAR);
}

} // namespace

VxOrthoSlice::VxOrthoSlice()
    : VxPlanarModBase(VxRegScalarField3::getClassTypeId()),
      portSliceOrientation(this, tr("Orientation"), "sliceOrientation", 3),
      portSliceNumber(this, tr("Slice Number"), "sliceNumber")
{
    portData.setSourceCheck(planarLattice, nullptr);
    portSliceOrientation.setLabel(0, "xy");
    portSliceOrientation.setLabel(1, "xz");
    portSliceOrientation.setLabel(2, "yz");
    // Until a field gives the range, a number set by a script is kept as it is.
    portSliceNumber.setMinMax(0, 1 << 30);
    setTreeViewAccessiblePort(&portSliceNumber);
}

void VxOrthoSlice::axes(int orientation, int& uAxis, int& vAxis, int& normalAxis)
{
    uAxis = orientation == YZ ? 1 : 0;
    vAxis = orientation == XY ? 1 : 2;
    normalAxis = 3 - uAxis - vAxis;
}

VxRegScalarField3* VxOrthoSlice::getLattice() const
{
    return vxconnection_cast<VxRegScalarField3>(portData);
}

void VxOrthoSlice::update()
{
    VxRegScalarField3* field = getLattice();
    if (!field) return;
    int u, v, w;
    axes(getOrientation(), u, v, w);
    const int n = int(field->getDims()[w]);
    const bool numberSet = portSliceNumber.isNew(VxPort::NEW_VALUE);
    portSliceNumber.setMinMax(0, n - 1);
    if ((portData.isNew(VxPort::NEW_SOURCE) || portSliceOrientation.isNew()) && !numberSet)
        portSliceNumber.setValue(n / 2);
}

void VxOrthoSlice::compute()
{
    VxRegScalarField3* field = getLattice();
    if (!field || field->getDims().count() == 0) {
        clearPlane();
    } else {
        int u, v, w;
        axes(getOrientation(), u, v, w);
        const KxBox3f box = field->getBoundingBox();
        const int64_t k = std::min<int64_t>(getSliceNumber(), field->getDims()[w] - 1);
        const KxVec3f node = field->lattice().coords()->pos(w == 0 ? k : 0, w == 1 ? k : 0, w == 2 ? k : 0);
        SbVec3f origin, eu(0, 0, 0), ev(0, 0, 0);
        origin[u] = box.min(u), origin[v] = box.min(v), origin[w] = node[w];
        eu[u] = 1, ev[v] = 1;
        setPlane(origin, eu, ev);
    }
    VxPlanarModBase::compute();
}

bool VxOrthoSlice::getSampling(int nu, int nv, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const
{
    VxRegScalarField3* field = getLattice();
    if (!field || !hasPlane() || nu < 2 || nv < 2) return false;
    int u, v, w;
    axes(getOrientation(), u, v, w);
    // The steps as the lattice computes its voxel size, so that samples fall on nodes exactly.
    const KxVec3f size = field->getBoundingBox().getSize();
    origin = this->origin();
    du = dv = SbVec3f(0, 0, 0);
    du[u] = size[u] / float(nu - 1);
    dv[v] = size[v] / float(nv - 1);
    return true;
}

void VxOrthoSlice::getDrawingResolution(int& nu, int& nv) const
{
    nu = nv = 2;
    if (VxRegScalarField3* field = getLattice()) {
        int u, v, w;
        axes(getOrientation(), u, v, w);
        nu = int(std::min<int64_t>(field->getDims()[u], 1 << 14));
        nv = int(std::min<int64_t>(field->getDims()[v], 1 << 14));
    }
}
