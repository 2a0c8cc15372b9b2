#include <kx/KxTypedObject.h>

const KxTypeInfo* KxTypedObject::getClassTypeId()
{
    static KxTypeInfo info("KxTypedObject", nullptr, nullptr);
    return &info;
}
