#include <vx/VxUniformLabelField3.h>

KX_ABSTRACT_SOURCE(VxUniformLabelField3, VxSpatialData)

VxUniformLabelField3::VxUniformLabelField3(const KxDim3l& dims, KxPrimType type, void* labels)
    : m_lattice(dims, type, labels),
      m_box(0, float(dims.nx > 0 ? dims.nx - 1 : 0), 0, float(dims.ny > 0 ? dims.ny - 1 : 0), 0,
            float(dims.nz > 0 ? dims.nz - 1 : 0))
{
}
