#pragma once
#include <Inventor/SbBox3f.h>
#include <Inventor/SbVec3f.h>
#include <Inventor/nodes/SoNode.h>
#include <Inventor/nodes/SoSubNode.h>

#include <cstdint>

namespace meshkit {

// A mesh of quadrangles carrying one value a node: the data that the kit's representation nodes
// after it in a traversal draw (the data mapping fills it, the contouring draws its contour lines).
// The mesh node itself draws nothing; it becomes the current mesh.
//
// A node whose value is NaN or at most NO_VALUE has no value: every quadrangle touching it is left
// out, so lines end there.
class PoMesh : public SoNode
{
    typedef SoNode inherited;
    SO_NODE_ABSTRACT_HEADER(PoMesh);

public:
    static constexpr float NO_VALUE = -1e20f;
    static bool hasValue(float v) { return v == v && v > NO_VALUE; }

    static void initClass();

    virtual int getNumNodes() const = 0;
    virtual SbVec3f getNode(int i) const = 0;
    virtual float getValue(int i) const = 0;
    virtual int getNumCells() const = 0;
    // The four nodes of a quadrangle, in cyclic order.
    virtual void getCell(int c, int32_t nodes[4]) const = 0;
    // The plane's unit axes, for labels that run along them; the mesh's own u and v directions.
    virtual SbVec3f getUAxis() const = 0;
    virtual SbVec3f getVAxis() const = 0;

    SbBox3f getMeshBox() const;
    // The cell's nodes and values; false when a node is missing or has no value.
    bool getValidCell(int c, int32_t nodes[4], float values[4]) const;

    void doAction(SoAction* action) override;
    void GLRender(SoGLRenderAction* action) override;
    void callback(SoCallbackAction* action) override;
    void getBoundingBox(SoGetBoundingBoxAction* action) override;
    void pick(SoPickAction* action) override;

protected:
    PoMesh();
    ~PoMesh() override;
};

} // namespace meshkit
