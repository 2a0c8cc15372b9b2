#include <vx/VxDisplay.h>

#include <Inventor/nodes/SoDepthBuffer.h>
#include <Inventor/nodes/SoPickStyle.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoSwitch.h>

VxDisplay::VxDisplay(VxModule* owner, bool visible, bool pickable, bool onTop)
    : m_owner(owner), m_visible(!visible), m_pickable(!pickable), m_onTop(!onTop), m_root(new SoSwitch),
      m_content(new SoSeparator), m_pickStyle(new SoPickStyle), m_depth(new SoDepthBuffer)
{
    // Switch > separator (pick style, depth test, content): the settings stay inside the separator.
    auto* group = new SoSeparator;
    group->addChild(m_pickStyle.get());
    group->addChild(m_depth.get());
    group->addChild(m_content.get());
    m_root->addChild(group);
    setVisible(visible);
    setPickable(pickable);
    setOnTop(onTop);
}

VxDisplay::~VxDisplay() = default;

void VxDisplay::setVisible(bool on)
{
    if (on == m_visible) return;
    m_visible = on;
    m_root->whichChild = on ? SO_SWITCH_ALL : SO_SWITCH_NONE;
}

void VxDisplay::setPickable(bool on)
{
    if (on == m_pickable) return;
    m_pickable = on;
    m_pickStyle->style = on ? SoPickStyle::SHAPE : SoPickStyle::UNPICKABLE;
}

void VxDisplay::setOnTop(bool on)
{
    if (on == m_onTop) return;
    m_onTop = on;
    m_depth->test = !on;
}
