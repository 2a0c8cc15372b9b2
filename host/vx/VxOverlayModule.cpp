#include <vx/VxDisplay.h>
#include <vx/VxOverlayModule.h>
#include <vx/VxPlanarModBase.h>

#include <Inventor/nodes/SoMatrixTransform.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoSwitch.h>

KX_ABSTRACT_SOURCE(VxOverlayModule, VxModule)

VxOverlayModule::VxOverlayModule(const KxTypeInfo* dataType, GraphicalRepMgtType mode)
    : VxModule(dataType),
      portSlice(this, translate("VxOverlayModule", "Slice"), "slice", VxPlanarModBase::getClassTypeId()),
      m_mode(mode), m_transform(new SoMatrixTransform)
{
}

VxOverlayModule::~VxOverlayModule()
{
    removeOverlay();
}

VxPlanarModBase* VxOverlayModule::getSlice() const
{
    return vxconnection_cast<VxPlanarModBase>(portSlice);
}

void VxOverlayModule::setOverlayNode(SoNode* node)
{
    removeOverlay();
    m_node = node;
}

SoNode* VxOverlayModule::hungNode() const
{
    if (VxDisplay* d = getDisplay()) {
        if (d->getContent()->findChild(m_node.get()) < 0) d->getContent()->addChild(m_node.get());
        return d->getRoot();
    }
    return m_node.get();
}

void VxOverlayModule::removeOverlay()
{
    if (m_parent) {
        const int at = m_parent->findChild(m_hung.get());
        if (at >= 0) m_parent->removeChild(at);
        if (m_mode == GEOMETRY) hideGeom(m_transform.get());
    }
    m_parent = nullptr;
    m_hung = nullptr;
}

void VxOverlayModule::attach()
{
    VxPlanarModBase* slice = getSlice();
    if (!slice || !m_node) return;
    SoGroup* parent;
    if (m_mode == OVERLAY) {
        parent = slice->getOverlayRoot();
    } else {
        SbMatrix m;
        slice->getTransform(m);
        m_transform->matrix = m;
        showGeom(m_transform.get());
        parent = getSeparator();
    }
    m_hung = hungNode();
    if (parent->findChild(m_hung.get()) < 0) parent->addChild(m_hung.get());
    m_parent = parent;
}

void VxOverlayModule::compute()
{
    VxModule::compute();
    // A new slice, or a display set since.
    if (portSlice.isNew() || !m_parent || (getDisplay() && m_hung.get() != getDisplay()->getRoot())) {
        removeOverlay();
        attach();
    } else if (m_mode == GEOMETRY && getSlice()) {
        // The slice's field may have turned since.
        SbMatrix m;
        getSlice()->getTransform(m);
        if (!(m == m_transform->matrix.getValue())) m_transform->matrix = m;
    }
}
