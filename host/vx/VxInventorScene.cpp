#include <vx/VxApplication.h>
#include <vx/VxInventorScene.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/nodes/SoSeparator.h>

KX_ABSTRACT_SOURCE(VxInventorScene, VxSpatialData)

VxInventorScene::VxInventorScene(SoSeparator* scene) : m_scene(scene)
{
    if (SoSeparator* root = VxApplication::instance()->getSceneRoot()) root->addChild(scene);
}

VxInventorScene::~VxInventorScene()
{
    if (SoSeparator* root = VxApplication::instance() ? VxApplication::instance()->getSceneRoot() : nullptr) {
        const int at = root->findChild(m_scene.get());
        if (at >= 0) root->removeChild(at);
    }
}

KxBox3f VxInventorScene::getBoundingBox() const
{
    SoGetBoundingBoxAction action{SbViewportRegion()};
    action.apply(m_scene.get());
    const SbBox3f box = action.getBoundingBox();
    if (box.isEmpty()) return KxBox3f();
    SbVec3f min, max;
    box.getBounds(min, max);
    return KxBox3f(min[0], max[0], min[1], max[1], min[2], max[2]);
}
