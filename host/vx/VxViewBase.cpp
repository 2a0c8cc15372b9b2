#include <vx/VxPortButtonList.h>
#include <vx/VxViewBase.h>

#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/nodes/SoSeparator.h>

KX_ABSTRACT_SOURCE(VxViewBase, VxModule)

namespace {
enum BufferButton
{
    ADD = 0,
    CLEAR = 1,
    SHOW = 2,
    HIDE = 3
};
}

VxViewBase::VxViewBase(const KxTypeInfo* dataType)
    : VxModule(dataType), m_buffer(new VxPortButtonList(this, translate("VxViewBase", "Buffer"), "buffer", 4))
{
    m_buffer->setLabel(ADD, translate("VxViewBase", "Add"));
    m_buffer->setLabel(CLEAR, translate("VxViewBase", "Clear"));
    m_buffer->setLabel(SHOW, translate("VxViewBase", "Show"));
    m_buffer->setLabel(HIDE, translate("VxViewBase", "Hide"));
    m_buffer->hide();
}

VxViewBase::~VxViewBase()
{
    delete m_buffer;
}

void VxViewBase::update() {}

void VxViewBase::compute()
{
    handleBuffer();
}

int VxViewBase::getNumBuffered() const
{
    return m_bufferRoot ? m_bufferRoot->getNumChildren() : 0;
}

void VxViewBase::handleBuffer()
{
    if (m_buffer->wasHit(ADD)) {
        if (SoNode* geometry = getGeometry()) {
            if (!m_bufferRoot) {
                m_bufferRoot = new SoSeparator;
                showGeom(m_bufferRoot.get());
            }
            // A deep copy: the live geometry keeps changing, the buffered one must not.
            m_bufferRoot->addChild(geometry->copy(TRUE));
        }
    }
    if (m_buffer->wasHit(CLEAR) && m_bufferRoot) m_bufferRoot->removeAllChildren();
    if (m_buffer->wasHit(SHOW) && m_bufferRoot) showGeom(m_bufferRoot.get());
    if (m_buffer->wasHit(HIDE) && m_bufferRoot) hideGeom(m_bufferRoot.get());
}
