#pragma once
#include <vx/VxModule.h>

#include <kx/KxHandle.h>

class SoMatrixTransform;
class SoGroup;
class SoNode;
class VxPlanarModBase;

// A module that draws on a slice (contours, say): connected to a field (portData) and to a slice
// ("Slice"). The representation mode says where its scene goes: OVERLAY hangs it under the slice's
// overlay root, so it is drawn with the slice, in the slice's frame; GEOMETRY shows it in the
// module's own separator under the slice's transformation. Either way the coordinates of the scene
// are in the slice's frame (the field's own frame of the slice's field).
//
// The derived module hands its scene to setOverlayNode once; compute() of this class moves it when
// the slice connection changed, and removeOverlay() takes it off the slice. With a display set
// (setDisplay), the display's root is hung in the scene's place, holding the scene.
class VxOverlayModule : public VxModule
{
    KX_HEADER(VxOverlayModule)

public:
    enum GraphicalRepMgtType
    {
        GEOMETRY = 0,
        OVERLAY = 1
    };

    VxConnection portSlice;

    GraphicalRepMgtType getGraphicalRepMgtType() const { return m_mode; }
    VxPlanarModBase* getSlice() const;

    void compute() override;
    // Detaches the module's scene from the slice it hangs on; nothing when it hangs on none.
    void removeOverlay();
    // Whether the scene hangs on a slice now.
    bool isOverlaid() const { return m_parent.get() != nullptr; }
    // The scene the derived module handed over (its lines, say), for writing it out.
    SoNode* getOverlayNode() const { return m_node.get(); }

protected:
    VxOverlayModule(const KxTypeInfo* dataType, GraphicalRepMgtType mode);
    ~VxOverlayModule() override;

    void setOverlayNode(SoNode* node);

private:
    // What is hung: the display's root when there is a display, else the scene itself.
    SoNode* hungNode() const;
    void attach();

    GraphicalRepMgtType m_mode;
    KxHandle<SoNode> m_node;
    KxHandle<SoMatrixTransform> m_transform;
    // The group the scene hangs in (a slice's overlay root or this module's separator), held so that
    // it can be detached also after the slice is gone.
    KxHandle<SoGroup> m_parent;
    KxHandle<SoNode> m_hung;
};
