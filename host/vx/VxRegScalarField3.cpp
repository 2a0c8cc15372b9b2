#include <vx/VxRegScalarField3.h>

#include <cmath>

KX_ABSTRACT_SOURCE(VxRegScalarField3, VxScalarField3)
KX_ABSTRACT_SOURCE(VxUniformScalarField3, VxRegScalarField3)

VxRegScalarField3::VxRegScalarField3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data)
    : m_lattice(dims, type, coords, data)
{
}

namespace {

template <class T, class Skip> bool rangeOf(const T* v, int64_t n, Skip skip, double& min, double& max)
{
    bool any = false;
    for (int64_t i = 0; i < n; ++i) {
        const double x = double(v[i]);
        if (std::isnan(x) || skip(x)) continue;
        if (!any) {
            min = max = x;
            any = true;
        } else if (x < min) {
            min = x;
        } else if (x > max) {
            max = x;
        }
    }
    return any;
}

} // namespace

bool VxRegScalarField3::getRange(double& min, double& max, int mode) const
{
    min = max = 0;
    bool any = false;
    const bool skipUndefined = mode == RANGE_SKIP_UNDEFINED && m_hasUndefined;
    const int64_t n = getDims().count();
    kxDispatchPrimType(primType(), const_cast<void*>(m_lattice.dataPtr()), [&](auto* p) {
        if (skipUndefined)
            any = rangeOf(
                p, n, [this](double x) { return isUndefined(x); }, min, max);
        else
            any = rangeOf(
                p, n, [](double) { return false; }, min, max);
    });
    if (!any) min = max = 0;
    return any;
}

static KxBox3f unitSpacingBox(const KxDim3l& d)
{
    return KxBox3f(0, float(d.nx > 0 ? d.nx - 1 : 0), 0, float(d.ny > 0 ? d.ny - 1 : 0), 0,
                   float(d.nz > 0 ? d.nz - 1 : 0));
}

VxUniformScalarField3::VxUniformScalarField3(const KxDim3l& dims, KxPrimType type, void* data)
    : VxRegScalarField3(dims, type, new VxUniformCoord3(dims, unitSpacingBox(dims)), data)
{
}

void VxUniformScalarField3::setBoundingBox(const KxBox3f& box)
{
    static_cast<VxUniformCoord3*>(lattice().coords())->setBoundingBox(box);
}

void VxUniformScalarField3::setBoundingBox(const KxBox3f& box, const KxVec3f& spacing)
{
    static_cast<VxUniformCoord3*>(lattice().coords())->setBoundingBox(box, spacing);
}

KxVec3f VxUniformScalarField3::getVoxelSize() const
{
    return static_cast<const VxUniformCoord3*>(lattice().coords())->getVoxelSize();
}
