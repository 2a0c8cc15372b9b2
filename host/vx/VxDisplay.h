#pragma once
#include <kx/KxHandle.h>

class SoDepthBuffer;
class SoPickStyle;
class SoSeparator;
class SoSwitch;
class VxModule;

// How a module's geometry is shown: whether it is visible, whether picking sees it, and whether it
// is drawn over everything else (no depth test: markers that must never hide behind a surface).
// The module puts its geometry under getContent() and hangs getRoot() where it is shown (its own
// separator, or a slice for an overlay); the switches then apply wherever that is.
class VxDisplay
{
public:
    VxDisplay(VxModule* owner, bool visible, bool pickable, bool onTop);
    ~VxDisplay();
    VxDisplay(const VxDisplay&) = delete;
    VxDisplay& operator=(const VxDisplay&) = delete;

    VxModule* getOwner() const { return m_owner; }
    SoSwitch* getRoot() const { return m_root.get(); }
    SoSeparator* getContent() const { return m_content.get(); }

    bool isVisible() const { return m_visible; }
    void setVisible(bool on);
    bool isPickable() const { return m_pickable; }
    void setPickable(bool on);
    bool isOnTop() const { return m_onTop; }
    void setOnTop(bool on);

private:
    VxModule* m_owner;
    bool m_visible, m_pickable, m_onTop;
    KxHandle<SoSwitch> m_root;
    KxHandle<SoSeparator> m_content;
    KxHandle<SoPickStyle> m_pickStyle;
    KxHandle<SoDepthBuffer> m_depth;
};
