#include <vx/VxOverlayModule.h>

KX_ABSTRACT_SOURCE(VxOverlayModule, VxModule)

VxOverlayModule::VxOverlayModule(const KxTypeInfo* dataType, Representation mode)
    : VxModule(dataType), m_representation(mode)
{
}
