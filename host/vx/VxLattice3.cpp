#include <vx/VxLattice3.h>

#include <kx/KxException.h>
#include <kx/KxLatticeSize.h>
#include <kx/KxMemory.h>

#include <cstring>

VxLattice3::VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data)
    : m_dims(dims), m_type(type), m_data(data, &kxfree), m_coords(coords)
{
    if (!type.isValid()) throw KxException("unknown primitive type of lattice values");
    const QString bad = KxLatticeSize::check(dims, type);
    if (!bad.isEmpty()) throw KxException("lattice " + bad);
    if (!m_data && byteSize()) {
        m_data.reset(kxmalloc(byteSize()));
        std::memset(m_data.get(), 0, byteSize());
    }
}

double VxLattice3::valueAt(int64_t index) const
{
    double v = 0;
    kxDispatchPrimType(m_type, const_cast<void*>(m_data.get()), [&](auto* p) { v = double(p[index]); });
    return v;
}
