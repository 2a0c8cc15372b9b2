#pragma once
#include <vx/VxSpatialData.h>

#include <kx/KxHandle.h>

class SoSeparator;

// An Open Inventor scene as data: what a scene file holds (a module's scene written with its
// labels, say), shown in the host's scene for as long as the object lives.
class VxInventorScene : public VxSpatialData
{
    KX_HEADER(VxInventorScene)

public:
    // Takes a reference to the scene and shows it.
    explicit VxInventorScene(SoSeparator* scene);
    ~VxInventorScene() override;

    SoSeparator* getScene() const { return m_scene.get(); }
    KxBox3f getBoundingBox() const override;

private:
    KxHandle<SoSeparator> m_scene;
};
