#pragma once
#include <Inventor/fields/SoMFUInt32.h>
#include <Inventor/fields/SoMFVec3f.h>
#include <Inventor/fields/SoMFVec3i32.h>
#include <Inventor/fields/SoSFBool.h>
#include <Inventor/fields/SoSFEnum.h>
#include <Inventor/nodes/SoShape.h>
#include <Inventor/nodes/SoSubNode.h>
#include <vector>

// Triangle surface of the host: vertex coordinates, per-vertex normals and triangles as three vertex
// indices each. Large arrays are handed over without copying (adopt*), after which the fields own
// and free them.
class SoTriSurface : public SoShape
{
    SO_NODE_HEADER(SoTriSurface);

public:
    enum DrawStyle
    {
        WIREFRAME = 0,
        SHADED = 1,
        SHADED_OUTLINED = 2,
        POINTS = 3
    };
    enum Binding
    {
        OVERALL = 0,
        PER_VERTEX = 1
    };

    static void initClass();
    SoTriSurface();

    SoMFVec3f coords;
    SoMFVec3f normals;
    SoMFVec3i32 triangles;
    SoSFEnum drawStyle;
    // Light both sides of the triangles, so that open surfaces look right from inside too.
    SoSFBool twoSidedLighting;
    // Packed RGBA colours (0xRRGGBBAA): one for OVERALL, one per vertex for PER_VERTEX; empty means
    // the inherited material.
    SoMFUInt32 colors;
    SoSFEnum materialBinding;

    int getNumTriangles() const { return triangles.getNum(); }
    int getNumPoints() const { return coords.getNum(); }

    // Hand over blocks allocated with kxmalloc (or new[]); n is the element count (vertices or
    // triangles), the block holds 3 n values.
    void adoptCoords(int n, float* xyz);
    void adoptNormals(int n, float* xyz);
    void adoptTriangles(int n, int32_t* ijk);
    // Empties all geometry fields.
    void clearGeometry();

    // The normals a surface without any is lit with: each vertex the area-weighted mean of its
    // triangles' normals, so they face as the triangles turn (zero where no triangle touches the
    // vertex). Triangles with an index outside 0..numVertices-1 are passed over.
    static void areaWeightedNormals(int numVertices, const SbVec3f* coords, int numTriangles,
                                    const int32_t* triangles, SbVec3f* normals);

protected:
    ~SoTriSurface() override;
    void GLRender(SoGLRenderAction* action) override;
    void generatePrimitives(SoAction* action) override;
    void computeBBox(SoAction* action, SbBox3f& box, SbVec3f& center) override;

private:
    bool indicesInRange();
    // areaWeightedNormals of the node, remade when the node changes.
    const SbVec3f* shadingNormals();

    std::vector<SbVec3f> m_shadingNormals;
    SbUniqueId m_shadingNormalsId = 0;

    SbUniqueId m_rangeCheckedId = 0;
    bool m_rangeChecked = false;
    bool m_indicesInRange = true;
};
