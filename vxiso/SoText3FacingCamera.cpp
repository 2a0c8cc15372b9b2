#include <vxiso/SoText3FacingCamera.h>

#include <oiv/OivInit.h>

#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/elements/SoGLCacheContextElement.h>
#include <Inventor/elements/SoModelMatrixElement.h>
#include <Inventor/elements/SoViewingMatrixElement.h>
#include <Inventor/misc/SoState.h>

#include <cmath>

SO_NODE_SOURCE(SoText3FacingCamera)

void SoText3FacingCamera::initClass()
{
    if (classTypeId != SoType::badType()) return;
    oivInit(); // the package may be loaded before anything else started Open Inventor
    // What SO_NODE_INIT_CLASS does, without handing Coin a clean-up function in this library.
    classTypeId = SoType::createType(SoText3::getClassTypeId(), "Text3FacingCamera", &createInstance,
                                     uint16_t(SoNode::getNextActionMethodIndex()));
    SoNode::incNextActionMethodIndex();
    parentFieldData = SoText3::getFieldDataPtr();
}

void SoText3FacingCamera::exitClass()
{
    if (classTypeId == SoType::badType()) return;
    atexit_cleanup();
}

SoText3FacingCamera::SoText3FacingCamera()
{
    initClass();
    SO_NODE_CONSTRUCTOR(SoText3FacingCamera);
}

SoText3FacingCamera::~SoText3FacingCamera() = default;

void SoText3FacingCamera::GLRender(SoGLRenderAction* action)
{
    SoState* state = action->getState();
    // The matrix below depends on the camera: a cache made for one view is wrong for the next.
    SoGLCacheContextElement::shouldAutoCache(state, SoGLCacheContextElement::DONT_AUTO_CACHE);
    const SbMatrix& view = SoViewingMatrixElement::get(state);
    SbMatrix m = SoModelMatrixElement::get(state) * view;
    state->push();
    auto rowLength = [&m](int row) {
        return std::sqrt(m[row][0] * m[row][0] + m[row][1] * m[row][1] + m[row][2] * m[row][2]);
    };
    const float x = rowLength(0), y = rowLength(1);
    m[0][0] = x, m[0][1] = 0, m[0][2] = 0;
    m[1][0] = 0, m[1][1] = y, m[1][2] = 0;
    m[2][0] = 0, m[2][1] = 0, m[2][2] = 1;
    // The text goes to the eye through m. Written as a model matrix under the unchanged viewing
    // matrix (m times the view's inverse), rather than as m under an identity view: the camera's
    // culling planes are in world space, and text placed in eye space would be culled there.
    SoModelMatrixElement::set(state, this, m * view.inverse());
    SoText3::GLRender(action);
    state->pop();
}
