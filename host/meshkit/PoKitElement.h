#pragma once
#include <Inventor/elements/SoSubElement.h>

namespace meshkit {

class PoMesh;
class PoNonLinearDataMapping;
class SoAnnoText3Property;

// What the kit's nodes hand down a traversal, as Open Inventor's property nodes do: the current
// mesh, the current data mapping and the current annotation text properties. Each is the last of
// its kind met before a node in its separator and above it.
class PoKitElement : public SoElement
{
    typedef SoElement inherited;
    SO_ELEMENT_HEADER(PoKitElement);

public:
    static void initClass();

    void init(SoState* state) override;
    void push(SoState* state) override;
    SbBool matches(const SoElement* element) const override;
    SoElement* copyMatchInfo() const override;

    static void setMesh(SoState* state, SoNode* node, const PoMesh* mesh);
    static void setDataMapping(SoState* state, SoNode* node, const PoNonLinearDataMapping* mapping);
    static void setTextProperty(SoState* state, SoNode* node, const SoAnnoText3Property* property);
    static const PoMesh* getMesh(SoState* state);
    static const PoNonLinearDataMapping* getDataMapping(SoState* state);
    static const SoAnnoText3Property* getTextProperty(SoState* state);

protected:
    ~PoKitElement() override;

private:
    static PoKitElement* writable(SoState* state, SoNode* node);

    const PoMesh* m_mesh = nullptr;
    const PoNonLinearDataMapping* m_mapping = nullptr;
    const SoAnnoText3Property* m_text = nullptr;
    uint32_t m_nodeId = 0; // of the node that set it last, for caches
};

} // namespace meshkit

// The actions a property node of the kit takes part in, each of them making the node current
// through its doAction (declared in the class as the overrides of SoNode's).
#define MESHKIT_PROPERTY_ACTIONS(Class)                                                                      \
    void Class::GLRender(SoGLRenderAction* action)                                                           \
    {                                                                                                        \
        doAction(action);                                                                                    \
    }                                                                                                        \
    void Class::callback(SoCallbackAction* action)                                                           \
    {                                                                                                        \
        doAction(action);                                                                                    \
    }                                                                                                        \
    void Class::getBoundingBox(SoGetBoundingBoxAction* action)                                               \
    {                                                                                                        \
        doAction(action);                                                                                    \
    }                                                                                                        \
    void Class::pick(SoPickAction* action)                                                                   \
    {                                                                                                        \
        doAction(action);                                                                                    \
    }
