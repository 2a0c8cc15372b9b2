#include <vx/VxSpatialData.h>

KX_ABSTRACT_SOURCE(VxSpatialData, VxObject)
KX_ABSTRACT_SOURCE(VxScalarField3, VxSpatialData)

bool VxSpatialData::getTransform(SbMatrix& m) const
{
    m = m_transform;
    return m_hasTransform;
}

void VxSpatialData::setTransform(const SbMatrix& m)
{
    m_transform = m;
    m_hasTransform = !(m == SbMatrix::identity());
}
