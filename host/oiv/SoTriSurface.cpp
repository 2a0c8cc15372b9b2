#include <oiv/SoTriSurface.h>

#include <Inventor/SoPrimitiveVertex.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/bundles/SoMaterialBundle.h>
#include <Inventor/details/SoFaceDetail.h>
#include <Inventor/elements/SoGLLazyElement.h>
#include <Inventor/misc/SoState.h>
#include <Inventor/system/gl.h>

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

void SoTriSurface::adoptCoords(int n, float* xyz)
{
    coords.setValuesPointer(n, xyz);
    coords.enableDeleteValues();
}

void SoTriSurface::adoptNormals(int n, float* xyz)
{
    normals.setValuesPointer(n, xyz);
    normals.enableDeleteValues();
}

void SoTriSurface::adoptTriangles(int n, int32_t* ijk)
{
    triangles.setValuesPointer(n, ijk);
    triangles.enableDeleteValues();
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
    const bool haveNormals = normals.getNum() == nv;

    glPushAttrib(GL_LIGHTING_BIT | GL_POLYGON_BIT | GL_POINT_BIT);
    if (twoSidedLighting.getValue()) glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, GL_TRUE);
    switch (drawStyle.getValue()) {
    case WIREFRAME: glPolygonMode(GL_FRONT_AND_BACK, GL_LINE); break;
    case POINTS: glPolygonMode(GL_FRONT_AND_BACK, GL_POINT); break;
    default: glPolygonMode(GL_FRONT_AND_BACK, GL_FILL); break;
    }
    if (!haveNormals) glDisable(GL_LIGHTING);

    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, coords.getValues(0));
    if (haveNormals) {
        glEnableClientState(GL_NORMAL_ARRAY);
        glNormalPointer(GL_FLOAT, 0, normals.getValues(0));
    }
    if (perVertexColor) {
        glEnableClientState(GL_COLOR_ARRAY);
        // Packed 0xRRGGBBAA is stored little-endian as A, B, G, R; read it back as RGBA bytes.
        static thread_local std::vector<uint32_t> rgba;
        rgba.resize(size_t(nv));
        for (int i = 0; i < nv; ++i) rgba[size_t(i)] = __builtin_bswap32(colors[i]);
        glColorPointer(4, GL_UNSIGNED_BYTE, 0, rgba.data());
    }
    glDrawElements(GL_TRIANGLES, 3 * nt, GL_UNSIGNED_INT, triangles.getValues(0));
    if (drawStyle.getValue() == SHADED_OUTLINED) {
        glDisable(GL_LIGHTING);
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        glColor3f(0.f, 0.f, 0.f);
        glDisableClientState(GL_COLOR_ARRAY);
        glDrawElements(GL_TRIANGLES, 3 * nt, GL_UNSIGNED_INT, triangles.getValues(0));
    }
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    glPopAttrib();
    // Colours were set behind the lazy element's back.
    SoGLLazyElement::getInstance(state)->reset(state, SoLazyElement::DIFFUSE_MASK);
}
