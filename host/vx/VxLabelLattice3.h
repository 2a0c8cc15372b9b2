#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <memory>

// Integer labels on a lattice of nodes (x fastest); 0 is the background. Labels are stored as
// unsigned 8-bit, unsigned 16-bit or signed 32-bit values.
class VxLabelLattice3
{
public:
    // Adopts labels (kxmalloc'd) when given, even when it throws; else allocates zeroed labels.
    // Throws KxException for a type that is no label type or dimensions too large to index.
    VxLabelLattice3(const KxDim3l& dims, KxPrimType type = KxPrimType::UINT8, void* labels = nullptr);
    VxLabelLattice3(const VxLabelLattice3&) = delete;
    VxLabelLattice3& operator=(const VxLabelLattice3&) = delete;

    const KxDim3l& getDims() const { return m_dims; }
    KxPrimType primType() const { return m_type; }
    // The raw label array; the int selects a label channel, and only channel 0 exists.
    void* getLabels(int channel = 0) { return channel == 0 ? m_labels.get() : nullptr; }
    const void* getLabels(int channel = 0) const { return channel == 0 ? m_labels.get() : nullptr; }

    float labelAt(int64_t index) const
    {
        switch (m_type.type()) {
        case KxPrimType::UINT8:
            return float(static_cast<const unsigned char*>(m_labels.get())[index]);
        case KxPrimType::UINT16:
            return float(static_cast<const unsigned short*>(m_labels.get())[index]);
        default:
            return float(static_cast<const int*>(m_labels.get())[index]);
        }
    }
    void setLabel(int64_t index, int label);

private:
    KxDim3l m_dims;
    KxPrimType m_type;
    // Owns what it adopts from the start, so that a throwing constructor frees it too.
    std::unique_ptr<void, void (*)(void*)> m_labels;
};
