#pragma once
#include <vx/VxModule.h>

// A module that draws over another module's geometry (contours on a slice). The representation
// mode says how: as geometry in the scene, or as an overlay drawn on the slice's own plane.
class VxOverlayModule : public VxModule
{
    KX_HEADER(VxOverlayModule)

public:
    enum Representation
    {
        GEOMETRY = 0,
        OVERLAY = 1
    };

    Representation getRepresentation() const { return m_representation; }
    // Shows the overlay's geometry in the scene, or withdraws it.
    void showOverlay(SoNode* node) { showGeom(node); }
    void hideOverlay(SoNode* node) { hideGeom(node); }

protected:
    VxOverlayModule(const KxTypeInfo* dataType, Representation mode);

private:
    Representation m_representation;
};
