#include <vx/VxObject.h>

KX_ABSTRACT_SOURCE(VxObject, KxTypedObject)
