#include <meshkit/PoKitElement.h>

#include <Inventor/misc/SoState.h>
#include <Inventor/nodes/SoNode.h>

namespace meshkit {

SO_ELEMENT_SOURCE(PoKitElement)

void PoKitElement::initClass()
{
    SO_ELEMENT_INIT_CLASS(PoKitElement, inherited);
}

PoKitElement::~PoKitElement() = default;

void PoKitElement::init(SoState* state)
{
    inherited::init(state);
    m_mesh = nullptr;
    m_mapping = nullptr;
    m_text = nullptr;
    m_nodeId = 0;
}

void PoKitElement::push(SoState* state)
{
    inherited::push(state);
    const auto* below = static_cast<const PoKitElement*>(getNextInStack());
    m_mesh = below->m_mesh;
    m_mapping = below->m_mapping;
    m_text = below->m_text;
    m_nodeId = below->m_nodeId;
}

SbBool PoKitElement::matches(const SoElement* element) const
{
    return static_cast<const PoKitElement*>(element)->m_nodeId == m_nodeId;
}

SoElement* PoKitElement::copyMatchInfo() const
{
    auto* copy = static_cast<PoKitElement*>(getTypeId().createInstance());
    copy->m_nodeId = m_nodeId;
    return copy;
}

PoKitElement* PoKitElement::writable(SoState* state, SoNode* node)
{
    auto* element = static_cast<PoKitElement*>(state->getElement(classStackIndex));
    if (element && node) element->m_nodeId = node->getNodeId();
    return element;
}

void PoKitElement::setMesh(SoState* state, SoNode* node, const PoMesh* mesh)
{
    if (PoKitElement* e = writable(state, node)) e->m_mesh = mesh;
}

void PoKitElement::setDataMapping(SoState* state, SoNode* node, const PoNonLinearDataMapping* mapping)
{
    if (PoKitElement* e = writable(state, node)) e->m_mapping = mapping;
}

void PoKitElement::setTextProperty(SoState* state, SoNode* node, const SoAnnoText3Property* property)
{
    if (PoKitElement* e = writable(state, node)) e->m_text = property;
}

const PoMesh* PoKitElement::getMesh(SoState* state)
{
    const auto* e = static_cast<const PoKitElement*>(state->getConstElement(classStackIndex));
    return e ? e->m_mesh : nullptr;
}

const PoNonLinearDataMapping* PoKitElement::getDataMapping(SoState* state)
{
    const auto* e = static_cast<const PoKitElement*>(state->getConstElement(classStackIndex));
    return e ? e->m_mapping : nullptr;
}

const SoAnnoText3Property* PoKitElement::getTextProperty(SoState* state)
{
    const auto* e = static_cast<const PoKitElement*>(state->getConstElement(classStackIndex));
    return e ? e->m_text : nullptr;
}

} // namespace meshkit
