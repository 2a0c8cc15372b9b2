#pragma once
#include <kx/KxTypeInfo.h>

#include <atomic>
#include <type_traits>

// Base of the interfaces that objects offer to each other (coordinate access, ...). An interface is
// counted: ref() / unref(), and the last unref() deletes it. Each interface class carries a KxTypeInfo
// record (KX_INTERFACE_HEADER / KX_INTERFACE_SOURCE) so that it can be asked for by type or by name;
// the records are abstract (they create nothing). The members have names of their own so that a class
// may be both a KxTypedObject and an interface.
class KxInterface
{
public:
    KxInterface() = default;
    KxInterface(const KxInterface&) = delete;
    KxInterface& operator=(const KxInterface&) = delete;
    virtual ~KxInterface();

    void ref() const { m_refs.fetch_add(1, std::memory_order_relaxed); }
    // Drops a reference; deletes the interface when it was the last one.
    void unref() const;
    // Drops a reference without deleting, for handing a new interface to a caller at count 0.
    void unrefNoDelete() const { m_refs.fetch_sub(1, std::memory_order_acq_rel); }
    int getRefCount() const { return m_refs.load(std::memory_order_relaxed); }

    static const KxTypeInfo* getClassInterfaceType();
    virtual const KxTypeInfo* getInterfaceType() const { return getClassInterfaceType(); }
    bool implements(const KxTypeInfo* type) const { return getInterfaceType()->isDerivedFrom(type); }

private:
    mutable std::atomic<int> m_refs{0};
};

// Type-record boilerplate of an interface class.
#define KX_INTERFACE_HEADER(Class)                                                                           \
public:                                                                                                      \
    static const KxTypeInfo* getClassInterfaceType();                                                        \
    const KxTypeInfo* getInterfaceType() const override                                                      \
    {                                                                                                        \
        return getClassInterfaceType();                                                                      \
    }                                                                                                        \
                                                                                                             \
private:

#define KX_INTERFACE_SOURCE(Class, Parent)                                                                   \
    const KxTypeInfo* Class::getClassInterfaceType()                                                         \
    {                                                                                                        \
        static KxTypeInfo info(#Class, nullptr, Parent::getClassInterfaceType());                            \
        return &info;                                                                                        \
    }

// The interface as a T, or null. This is a dynamic_cast on purpose: a forwarding proxy derives from its
// interface without a record of its own, and an object may offer several interfaces through multiple
// inheritance; a record check followed by a static_cast would accept the first wrongly and could not
// adjust the pointer in the second.
template <class T> const T* kxinterface_cast(const KxInterface* i)
{
    static_assert(std::is_base_of<KxInterface, T>::value, "kxinterface_cast casts to interfaces only");
    return dynamic_cast<const T*>(i);
}
template <class T> T* kxinterface_cast(KxInterface* i)
{
    static_assert(std::is_base_of<KxInterface, T>::value, "kxinterface_cast casts to interfaces only");
    return dynamic_cast<T*>(i);
}
