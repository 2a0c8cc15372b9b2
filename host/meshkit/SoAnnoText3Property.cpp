#include <meshkit/PoKitElement.h>
#include <meshkit/SoAnnoText3Property.h>

#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoPickAction.h>

namespace meshkit {

SO_NODE_SOURCE(SoAnnoText3Property)

void SoAnnoText3Property::initClass()
{
    SO_NODE_INIT_CLASS(SoAnnoText3Property, SoNode, "Node");
}

SoAnnoText3Property::SoAnnoText3Property()
{
    SO_NODE_CONSTRUCTOR(SoAnnoText3Property);
    SO_NODE_ADD_FIELD(renderStyle, (POLYGONS));
    SO_NODE_ADD_FIELD(fontName, ("DejaVu Sans"));
    SO_NODE_DEFINE_ENUM_VALUE(RenderStyle, POLYGONS);
    SO_NODE_DEFINE_ENUM_VALUE(RenderStyle, RASTER);
    SO_NODE_SET_SF_ENUM_TYPE(renderStyle, RenderStyle);
}

SoAnnoText3Property::~SoAnnoText3Property() = default;

void SoAnnoText3Property::doAction(SoAction* action)
{
    PoKitElement::setTextProperty(action->getState(), this, this);
}

MESHKIT_PROPERTY_ACTIONS(SoAnnoText3Property)

} // namespace meshkit
