#pragma once
#include <kx/KxTypeInfo.h>

// Base of every object with a registered type.
class KxTypedObject
{
public:
    virtual ~KxTypedObject() = default;

    static const KxTypeInfo* getClassTypeId();
    virtual const KxTypeInfo* getTypeId() const = 0;
    bool isOfType(const KxTypeInfo* type) const { return getTypeId()->isDerivedFrom(type); }
    template <class T>
    bool isOfType() const
    {
        return isOfType(T::getClassTypeId());
    }
};

// Type-record boilerplate of a class. The record is a function-local static: created once, on the
// first call, safely against concurrent first calls.
#define KX_HEADER(Class)                                                                                     \
public:                                                                                                      \
    static const KxTypeInfo* getClassTypeId();                                                               \
    const KxTypeInfo* getTypeId() const override { return getClassTypeId(); }                               \
                                                                                                             \
private:

#define KX_ABSTRACT_SOURCE(Class, Parent)                                                                    \
    const KxTypeInfo* Class::getClassTypeId()                                                                \
    {                                                                                                        \
        static KxTypeInfo info(#Class, nullptr, Parent::getClassTypeId());                                   \
        return &info;                                                                                        \
    }

#define KX_SOURCE(Class, Parent)                                                                             \
    const KxTypeInfo* Class::getClassTypeId()                                                                \
    {                                                                                                        \
        static KxTypeInfo info(                                                                              \
            #Class, []() -> KxTypedObject* { return new Class; }, Parent::getClassTypeId());                 \
        return &info;                                                                                        \
    }

// Casts to T when the object is of type T, else null.
template <class T>
T* kx_type_cast(KxTypedObject* o)
{
    return o && o->isOfType(T::getClassTypeId()) ? static_cast<T*>(o) : nullptr;
}
template <class T>
const T* kx_type_cast(const KxTypedObject* o)
{
    return o && o->isOfType(T::getClassTypeId()) ? static_cast<const T*>(o) : nullptr;
}
