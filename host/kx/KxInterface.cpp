#include <kx/KxInterface.h>

// Out of line so that the vtable and type_info live in this library only.
KxInterface::~KxInterface() = default;

void KxInterface::unref() const
{
    if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

const KxTypeInfo* KxInterface::getClassInterfaceType()
{
    static KxTypeInfo info("KxInterface", nullptr, nullptr);
    return &info;
}
