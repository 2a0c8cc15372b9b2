#include <meshkit/PoKitElement.h>
#include <meshkit/PoMesh.h>

#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoPickAction.h>

namespace meshkit {

SO_NODE_ABSTRACT_SOURCE(PoMesh)

void PoMesh::initClass()
{
    SO_NODE_INIT_ABSTRACT_CLASS(PoMesh, SoNode, "Node");
}

PoMesh::PoMesh() = default;
PoMesh::~PoMesh() = default;

SbBox3f PoMesh::getMeshBox() const
{
    SbBox3f box;
    for (int i = 0; i < getNumNodes(); ++i) box.extendBy(getNode(i));
    return box;
}

bool PoMesh::getValidCell(int c, int32_t nodes[4], float values[4]) const
{
    getCell(c, nodes);
    for (int k = 0; k < 4; ++k) {
        if (nodes[k] < 0 || nodes[k] >= getNumNodes()) return false;
        values[k] = getValue(nodes[k]);
        if (!hasValue(values[k])) return false;
    }
    return true;
}

void PoMesh::doAction(SoAction* action)
{
    PoKitElement::setMesh(action->getState(), this, this);
}

MESHKIT_PROPERTY_ACTIONS(PoMesh)

} // namespace meshkit
