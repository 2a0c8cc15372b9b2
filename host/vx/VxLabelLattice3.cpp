#include <vx/VxLabelLattice3.h>

#include <kx/KxException.h>
#include <kx/KxLatticeSize.h>
#include <kx/KxMemory.h>

#include <cstring>

VxLabelLattice3::VxLabelLattice3(const KxDim3l& dims, KxPrimType type, void* labels)
    : m_dims(dims), m_type(type), m_labels(labels, &kxfree)
{
    if (type != KxPrimType::UINT8 && type != KxPrimType::UINT16 && type != KxPrimType::INT32)
        throw KxException(QString("labels must be uint8, uint16 or int32, not %1").arg(type.name()));
    KxLatticeSize size;
    const QString bad = KxLatticeSize::check(dims, type, 0, &size);
    if (!bad.isEmpty()) throw KxException("label lattice " + bad);
    if (!m_labels && size.bytes) {
        m_labels.reset(kxmalloc(size.bytes));
        std::memset(m_labels.get(), 0, size.bytes);
    }
}

void VxLabelLattice3::setLabel(int64_t index, int label)
{
    switch (m_type.type()) {
    case KxPrimType::UINT8:
        static_cast<unsigned char*>(m_labels.get())[index] = (unsigned char)label;
        break;
    case KxPrimType::UINT16:
        static_cast<unsigned short*>(m_labels.get())[index] = (unsigned short)label;
        break;
    default:
        static_cast<int*>(m_labels.get())[index] = label;
        break;
    }
}
