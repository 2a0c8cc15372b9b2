#include <vx/VxLattice3.h>

#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <cstring>

VxLattice3::VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data)
    : m_dims(dims), m_type(type), m_data(data), m_coords(coords)
{
    if (!type.isValid()) throw KxException("unknown primitive type of lattice values");
    if (dims.nx < 0 || dims.ny < 0 || dims.nz < 0) throw KxException("negative lattice dimensions");
    if (!m_data && byteSize()) {
        m_data = kxmalloc(byteSize());
        std::memset(m_data, 0, byteSize());
    }
}

VxLattice3::~VxLattice3()
{
    kxfree(m_data);
}

double VxLattice3::valueAt(int64_t index) const
{
    double v = 0;
    kxDispatchPrimType(m_type, const_cast<void*>(m_data), [&](auto* p) { v = double(p[index]); });
    return v;
}
