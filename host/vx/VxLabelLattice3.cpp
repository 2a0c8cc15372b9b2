#include <vx/VxLabelLattice3.h>

#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <cstring>

VxLabelLattice3::VxLabelLattice3(const KxDim3l& dims, KxPrimType type, void* labels)
    : m_dims(dims), m_type(type), m_labels(labels)
{
    if (type != KxPrimType::UINT8 && type != KxPrimType::UINT16 && type != KxPrimType::INT32)
        throw KxException(QString("labels must be uint8, uint16 or int32, not %1").arg(type.name()));
    if (dims.nx < 0 || dims.ny < 0 || dims.nz < 0) throw KxException("negative label lattice dimensions");
    const std::size_t bytes = std::size_t(dims.count()) * type.size();
    if (!m_labels && bytes) {
        m_labels = kxmalloc(bytes);
        std::memset(m_labels, 0, bytes);
    }
}

VxLabelLattice3::~VxLabelLattice3()
{
    kxfree(m_labels);
}

void VxLabelLattice3::setLabel(int64_t index, int label)
{
    switch (m_type.type()) {
    case KxPrimType::UINT8: static_cast<unsigned char*>(m_labels)[index] = (unsigned char)label; break;
    case KxPrimType::UINT16: static_cast<unsigned short*>(m_labels)[index] = (unsigned short)label; break;
    default: static_cast<int*>(m_labels)[index] = label; break;
    }
}
