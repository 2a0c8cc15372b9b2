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
    template <class T> bool isOfType() const { return isOfType(T::getClassTypeId()); }
};

// Type-record boilerplate of a class. The record is a function-local static: created once, on the
// first call, safely against concurrent first calls.
#define KX_HEADER(Class)                                                                                     \
public:                                                                                                      \
    static const KxTypeInfo* getClassTypeId();                                                               \
    const KxTypeInfo* getTypeId() const override                                                             \
    {                                                                                                        \
        return getClassTypeId();                                                                             \
    }                                                                                                        \
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
template <class T> T* kx_type_cast(KxTypedObject* o)
{
    return o && o->isOfType(T::getClassTypeId()) ? static_cast<T*>(o) : nullptr;
}
template <class T> const T* kx_type_cast(const KxTypedObject* o)
{
    return o && o->isOfType(T::getClassTypeId()) ? static_cast<const T*>(o) : nullptr;
}

// Type-record boilerplate of a class that a package registers: besides the record, a factory
// (createInstance), deleteInstance, and initClass/exitClass with the free functions
// kxInitClass_<Class>/kxExitClass_<Class> that the package's entry points call.
#define KX_PACKAGE_HEADER(Class)                                                                             \
public:                                                                                                      \
    static const KxTypeInfo* getClassTypeId();                                                               \
    const KxTypeInfo* getTypeId() const override                                                             \
    {                                                                                                        \
        return getClassTypeId();                                                                             \
    }                                                                                                        \
    static Class* createInstance();                                                                          \
    static KxTypedObject* createInstanceKxTypedObject();                                                     \
    void deleteInstance();                                                                                   \
    static void initClass();                                                                                 \
    static void exitClass();                                                                                 \
                                                                                                             \
private:

#define KX_PACKAGE_SOURCE(Class, Parent)                                                                     \
    const KxTypeInfo* Class::getClassTypeId()                                                                \
    {                                                                                                        \
        static KxTypeInfo info(#Class, &Class::createInstanceKxTypedObject, Parent::getClassTypeId());       \
        return &info;                                                                                        \
    }                                                                                                        \
    Class* Class::createInstance()                                                                           \
    {                                                                                                        \
        return new Class;                                                                                    \
    }                                                                                                        \
    KxTypedObject* Class::createInstanceKxTypedObject()                                                      \
    {                                                                                                        \
        return createInstance();                                                                             \
    }                                                                                                        \
    void Class::deleteInstance()                                                                             \
    {                                                                                                        \
        delete this;                                                                                         \
    }                                                                                                        \
    void Class::initClass()                                                                                  \
    {                                                                                                        \
        getClassTypeId();                                                                                    \
    }                                                                                                        \
    void Class::exitClass()                                                                                  \
    {                                                                                                        \
        KxTypeInfo::removeType(#Class);                                                                      \
    }                                                                                                        \
    void kxInitClass_##Class()                                                                               \
    {                                                                                                        \
        Class::initClass();                                                                                  \
    }                                                                                                        \
    void kxExitClass_##Class()                                                                               \
    {                                                                                                        \
        Class::exitClass();                                                                                  \
    }
