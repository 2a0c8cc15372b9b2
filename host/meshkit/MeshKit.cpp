#include <meshkit/MeshKit.h>
#include <meshkit/PoCartesianGrid2D.h>
#include <meshkit/PoKitElement.h>
#include <meshkit/PoMeshContouring.h>
#include <meshkit/PoNonLinearDataMapping.h>
#include <meshkit/SoAnnoText3Property.h>

#include <oiv/OivInit.h>

#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoPickAction.h>

#include <mutex>

namespace meshkit {

void init()
{
    static std::once_flag once;
    std::call_once(once, [] {
        oivInit();
        PoKitElement::initClass();
        SO_ENABLE(SoGLRenderAction, PoKitElement);
        SO_ENABLE(SoGetBoundingBoxAction, PoKitElement);
        SO_ENABLE(SoCallbackAction, PoKitElement);
        SO_ENABLE(SoPickAction, PoKitElement);
        PoSFCartesianGrid2D::initClass();
        PoMesh::initClass();
        PoCartesianGrid2D::initClass();
        PoQuadrangleMesh::initClass();
        PoNonLinearDataMapping::initClass();
        SoAnnoText3Property::initClass();
        PoMeshContouring::initClass();
    });
}

} // namespace meshkit
