#include <oiv/SoTriSurface.h>

#include <kx/KxMemory.h>

#include <Inventor/SoPrimitiveVertex.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/bundles/SoMaterialBundle.h>
#include <Inventor/details/SoFaceDetail.h>
#include <Inventor/elements/SoGLLazyElement.h>
#include <Inventor/misc/SoState.h>
#include <Inventor/system/gl.h>

#include <algorithm>
#include <vector>

SO_NODE_SOURCE(SoTriSurface);

void SoTriSurface::initClass()
{
    static bool done = false;
    if (done) return;
    done = true;
    SO_NODE_INIT_CLASS(SoTriSurface, SoShape, "Shape");
}

SoTriSurface::SoTriSurface()
{
    SO_NODE_CONSTRUCTOR(SoTriSurface);
    SO_NODE_ADD_FIELD(coords, (SbVec3f(0, 0, 0)));
    SO_NODE_ADD_FIELD(normals, (SbVec3f(0, 0, 0)));
    SO_NODE_ADD_FIELD(triangles, (SbVec3i32(0, 0, 0)));
    SO_NODE_ADD_FIELD(drawStyle, (SHADED));
    SO_NODE_ADD_FIELD(twoSidedLighting, (TRUE));
    SO_NODE_ADD_FIELD(colors, (0xffffffffu));
    SO_NODE_ADD_FIELD(materialBinding, (OVERALL));
    SO_NODE_DEFINE_ENUM_VALUE(DrawStyle, WIREFRAME);
    SO_NODE_DEFINE_ENUM_VALUE(DrawStyle, SHADED);
    SO_NODE_DEFINE_ENUM_VALUE(DrawStyle, SHADED_OUTLINED);
    SO_NODE_DEFINE_ENUM_VALUE(DrawStyle, POINTS);
    SO_NODE_SET_SF_ENUM_TYPE(drawStyle, DrawStyle);
    SO_NODE_DEFINE_ENUM_VALUE(Binding, OVERALL);
    SO_NODE_DEFINE_ENUM_VALUE(Binding, PER_VERTEX);
    SO_NODE_SET_SF_ENUM_TYPE(materialBinding, Binding);
    coords.setNum(0);
    normals.setNum(0);
    triangles.setNum(0);
    colors.setNum(0);
    coords.setDefault(FALSE);
    normals.setDefault(FALSE);
    triangles.setDefault(FALSE);
    colors.setDefault(FALSE);
}

SoTriSurface::~SoTriSurface() = default;

// setValuesPointer ignores an empty block and leaves it to the caller, who has already handed it over.
template <class Field, class Value> static void adopt(Field& field, int n, Value* block)
{
    if (n <= 0 || !block) {
        field.setNum(0);
        kxfree(block);
        return;
    }
    field.setValuesPointer(n, block);
    field.enableDeleteValues();
}

void SoTriSurface::adoptCoords(int n, float* xyz)
{
    adopt(coords, n, xyz);
}

void SoTriSurface::adoptNormals(int n, float* xyz)
{
    adopt(normals, n, xyz);
}

void SoTriSurface::adoptTriangles(int n, int32_t* ijk)
{
    adopt(triangles, n, ijk);
}

void SoTriSurface::clearGeometry()
{
    coords.setNum(0);
    normals.setNum(0);
    triangles.setNum(0);
}

void SoTriSurface::computeBBox(SoAction*, SbBox3f& box, SbVec3f& center)
{
    box.makeEmpty();
    const int n = coords.getNum();
    const SbVec3f* p = coords.getValues(0);
    for (int i = 0; i < n; ++i) box.extendBy(p[i]);
    if (!box.isEmpty()) center = box.getCenter();
}

void SoTriSurface::generatePrimitives(SoAction* action)
{
    const int nv = coords.getNum();
    const bool haveNormals = normals.getNum() == nv;
    const SbVec3f* p = coords.getValues(0);
    const SbVec3f* nrm = normals.getValues(0);
    const SbVec3i32* t = triangles.getValues(0);
    SoPrimitiveVertex pv;
    SoFaceDetail detail;
    pv.setDetail(&detail);
    for (int f = 0; f < triangles.getNum(); ++f) {
        const int32_t* idx = t[f].getValue();
        if (idx[0] < 0 || idx[1] < 0 || idx[2] < 0 || idx[0] >= nv || idx[1] >= nv || idx[2] >= nv) continue;
        detail.setFaceIndex(f);
        SbVec3f faceNormal = (p[idx[1]] - p[idx[0]]).cross(p[idx[2]] - p[idx[0]]);
        faceNormal.normalize();
        beginShape(action, TRIANGLES, &detail);
        for (int c = 0; c < 3; ++c) {
            pv.setPoint(p[idx[c]]);
            pv.setNormal(haveNormals ? nrm[idx[c]] : faceNormal);
            shapeVertex(&pv);
        }
        endShape();
    }
}

bool SoTriSurface::indicesInRange()
{
    // The node id changes with every edit of a field, so the scan runs once per change, not per frame.
    if (m_rangeChecked && m_rangeCheckedId == getNodeId()) return m_indicesInRange;
    const int nv = coords.getNum();
    const int32_t* idx = triangles.getNum() ? triangles.getValues(0)->getValue() : nullptr;
    const size_t n = size_t(triangles.getNum()) * 3;
    bool inRange = true;
    for (size_t i = 0; i < n && inRange; ++i) inRange = idx[i] >= 0 && idx[i] < nv;
    m_indicesInRange = inRange;
    m_rangeCheckedId = getNodeId();
    m_rangeChecked = true;
    return inRange;
}

void SoTriSurface::areaWeightedNormals(int numVertices, const SbVec3f* coords, int numTriangles,
                                       const int32_t* triangles, SbVec3f* normals)
{
    const int nv = numVertices;
    std::fill(normals, normals + nv, SbVec3f(0, 0, 0));
    for (int f = 0; f < numTriangles; ++f) {
        const int32_t* idx = triangles + 3 * std::size_t(f);
        if (idx[0] < 0 || idx[1] < 0 || idx[2] < 0 || idx[0] >= nv || idx[1] >= nv || idx[2] >= nv) continue;
        // The cross product's length is twice the area: larger triangles weigh more.
        const SbVec3f n = (coords[idx[1]] - coords[idx[0]]).cross(coords[idx[2]] - coords[idx[0]]);
        for (int c = 0; c < 3; ++c) normals[idx[c]] += n;
    }
    for (int v = 0; v < nv; ++v)
        if (normals[v].length() > 0.f) normals[v].normalize();
}

const SbVec3f* SoTriSurface::shadingNormals()
{
    if (m_shadingNormalsId == getNodeId() && m_shadingNormals.size() == size_t(coords.getNum()))
        return m_shadingNormals.data();
    m_shadingNormals.resize(size_t(coords.getNum()));
    static_assert(sizeof(SbVec3i32) == 3 * sizeof(int32_t), "triangles are read as int32 rows");
    areaWeightedNormals(coords.getNum(), coords.getValues(0), triangles.getNum(),
                        triangles.getNum() ? triangles.getValues(0)->getValue() : nullptr,
                        m_shadingNormals.data());
    m_shadingNormalsId = getNodeId();
    return m_shadingNormals.data();
}

void SoTriSurface::GLRender(SoGLRenderAction* action)
{
    if (!shouldGLRender(action)) return;
    SoState* state = action->getState();
    const int nv = coords.getNum();
    const int nt = triangles.getNum();
    if (nv == 0 || nt == 0) return;

    SoMaterialBundle mb(action);
    mb.sendFirst();

    const bool perVertexColor = materialBinding.getValue() == PER_VERTEX && colors.getNum() == nv;
    if (!perVertexColor && colors.getNum() > 0) {
        const uint32_t c = colors[0];
        glColor4ub(GLubyte(c >> 24), GLubyte(c >> 16), GLubyte(c >> 8), GLubyte(c));
    }
    const SbVec3f* vertexNormals = normals.getNum() == nv ? normals.getValues(0) : shadingNormals();

    glPushAttrib(GL_LIGHTING_BIT | GL_POLYGON_BIT | GL_POINT_BIT);
    // Set both ways: an inherited shape hint may have switched two-sided lighting on.
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, twoSidedLighting.getValue() ? GL_TRUE : GL_FALSE);
    switch (drawStyle.getValue()) {
    case WIREFRAME:
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        break;
    case POINTS:
        glPolygonMode(GL_FRONT_AND_BACK, GL_POINT);
        break;
    default:
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
        break;
    }

    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, coords.getValues(0));
    glEnableClientState(GL_NORMAL_ARRAY);
    glNormalPointer(GL_FLOAT, 0, vertexNormals);
    if (perVertexColor) {
        glEnableClientState(GL_COLOR_ARRAY);
        // Packed 0xRRGGBBAA is stored little-endian as A, B, G, R; read it back as RGBA bytes.
        static thread_local std::vector<uint32_t> rgba;
        rgba.resize(size_t(nv));
        for (int i = 0; i < nv; ++i) rgba[size_t(i)] = __builtin_bswap32(colors[i]);
        glColorPointer(4, GL_UNSIGNED_BYTE, 0, rgba.data());
    }
    // Indices read from a file may point past the vertices, and OpenGL would read outside the arrays:
    // draw only the triangles that generatePrimitives() would produce.
    const GLvoid* indices = triangles.getValues(0);
    GLsizei count = 3 * nt;
    static thread_local std::vector<int32_t> kept;
    if (!indicesInRange()) {
        kept.clear();
        const SbVec3i32* t = triangles.getValues(0);
        for (int f = 0; f < nt; ++f) {
            const int32_t* idx = t[f].getValue();
            if (idx[0] < 0 || idx[1] < 0 || idx[2] < 0 || idx[0] >= nv || idx[1] >= nv || idx[2] >= nv)
                continue;
            kept.insert(kept.end(), idx, idx + 3);
        }
        indices = kept.data();
        count = GLsizei(kept.size());
    }
    const bool outlined = drawStyle.getValue() == SHADED_OUTLINED;
    // Push the faces back a little so that the edges drawn on them afterwards pass the depth test
    // everywhere instead of fighting the faces for it.
    if (outlined) {
        glEnable(GL_POLYGON_OFFSET_FILL);
        glPolygonOffset(1.f, 1.f);
    }
    glDrawElements(GL_TRIANGLES, count, GL_UNSIGNED_INT, indices);
    if (outlined) {
        glDisable(GL_POLYGON_OFFSET_FILL);
        glDisable(GL_LIGHTING);
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        glColor3f(0.f, 0.f, 0.f);
        glDisableClientState(GL_COLOR_ARRAY);
        glDrawElements(GL_TRIANGLES, count, GL_UNSIGNED_INT, indices);
    }
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    glPopAttrib();
    // Colours were set behind the lazy element's back.
    SoGLLazyElement::getInstance(state)->reset(state, SoLazyElement::DIFFUSE_MASK);
}
