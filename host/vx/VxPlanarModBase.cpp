#include <vx/VxColormap.h>
#include <vx/VxPlanarModBase.h>
#include <vx/VxPortColormap.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>

#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoFaceSet.h>
#include <Inventor/nodes/SoLightModel.h>
#include <Inventor/nodes/SoMatrixTransform.h>
#include <Inventor/nodes/SoPolygonOffset.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoSwitch.h>
#include <Inventor/nodes/SoTexture2.h>
#include <Inventor/nodes/SoTextureCoordinate2.h>
#include <Inventor/nodes/SoTransparencyType.h>

#include <QImage>

#include <algorithm>
#include <cmath>
#include <vector>

KX_ABSTRACT_SOURCE(VxPlanarModBase, VxModule)

namespace {

// The points where the plane meets the box's edges, and the corners on it.
std::vector<KxVec3d> planeInBox(const KxBox3f& box, const SbVec3f& o, const SbVec3f& n)
{
    std::vector<KxVec3d> points;
    const KxVec3f size = box.getSize();
    const double tol = 1e-6 * std::max({double(size.x), double(size.y), double(size.z)});
    auto corner = [&](int c) {
        return KxVec3d(c & 1 ? box.xmax : box.xmin, c & 2 ? box.ymax : box.ymin, c & 4 ? box.zmax : box.zmin);
    };
    const KxVec3d od(o[0], o[1], o[2]), nd(n[0], n[1], n[2]);
    double dist[8];
    for (int c = 0; c < 8; ++c) {
        dist[c] = (corner(c) - od).dot(nd);
        if (std::fabs(dist[c]) <= tol) points.push_back(corner(c));
    }
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 8; ++c) {
            if (c >> a & 1) continue;
            const int d = c | 1 << a;
            if ((dist[c] < -tol && dist[d] > tol) || (dist[c] > tol && dist[d] < -tol))
                points.push_back(corner(c) + (corner(d) - corner(c)) * (dist[c] / (dist[c] - dist[d])));
        }
    return points;
}

} // namespace

VxPlanarModBase::VxPlanarModBase(const KxTypeInfo* dataType)
    : VxModule(dataType),
      m_colormap(new VxPortColormap(this, translate("VxPlanarModBase", "Colormap"), "colormap")),
      m_transform(new SoMatrixTransform), m_plane(new SoSwitch), m_texture(new SoTexture2),
      m_corners(new SoCoordinate3), m_texCoords(new SoTextureCoordinate2), m_overlays(new SoSeparator)
{
    auto* look = new SoLightModel;
    look->model = SoLightModel::BASE_COLOR;
    m_texture->model = SoTexture2::REPLACE;
    auto* quad = new SoFaceSet;
    quad->numVertices.setValue(4);
    // Texels where the field has no value are clear: blended, whatever the viewer's default.
    auto* clear = new SoTransparencyType;
    clear->value = SoTransparencyType::SORTED_OBJECT_BLEND;
    // The plane lies a little behind its own depth, so that lines and labels drawn in it by overlays
    // win the depth test against it (the plane is blended, so it may well be drawn after them).
    auto* behind = new SoPolygonOffset;
    behind->factor = 1.f;
    behind->units = 1.f;
    behind->styles = SoPolygonOffset::FILLED;
    auto* plane = new SoSeparator;
    plane->addChild(look);
    plane->addChild(clear);
    plane->addChild(behind);
    plane->addChild(m_texture.get());
    plane->addChild(m_texCoords.get());
    plane->addChild(m_corners.get());
    plane->addChild(quad);
    m_plane->addChild(plane);
    m_plane->whichChild = SO_SWITCH_NONE;
}

VxPlanarModBase::~VxPlanarModBase()
{
    delete m_colormap;
}

void VxPlanarModBase::planeTouch()
{
    m_redraw = true;
    portTouched(nullptr);
}

void VxPlanarModBase::setPlane(const SbVec3f& origin, const SbVec3f& u, const SbVec3f& v)
{
    const SbVec3f n = u.cross(v);
    if (m_hasPlane && origin == m_origin && u == m_u && v == m_v) return;
    m_origin = origin, m_u = u, m_v = v, m_normal = n;
    m_hasPlane = true;
    m_redraw = true;
    touchDownstream();
}

void VxPlanarModBase::clearPlane()
{
    if (!m_hasPlane) return;
    m_hasPlane = false;
    m_redraw = true;
    touchDownstream();
}

bool VxPlanarModBase::getTransform(SbMatrix& m) const
{
    VxScalarField3* field = getField();
    if (!field) {
        m = SbMatrix::identity();
        return false;
    }
    return field->getTransform(m);
}

bool VxPlanarModBase::getPlaneRect(float& u0, float& u1, float& v0, float& v1) const
{
    VxScalarField3* field = getField();
    if (!m_hasPlane || !field) return false;
    const std::vector<KxVec3d> points = planeInBox(field->getBoundingBox(), m_origin, m_normal);
    if (points.empty()) return false;
    const KxVec3d o(m_origin[0], m_origin[1], m_origin[2]), u(m_u[0], m_u[1], m_u[2]),
        v(m_v[0], m_v[1], m_v[2]);
    double lo[2] = {HUGE_VAL, HUGE_VAL}, hi[2] = {-HUGE_VAL, -HUGE_VAL};
    for (const KxVec3d& p : points) {
        const double c[2] = {(p - o).dot(u), (p - o).dot(v)};
        for (int i = 0; i < 2; ++i) lo[i] = std::min(lo[i], c[i]), hi[i] = std::max(hi[i], c[i]);
    }
    u0 = float(lo[0]), u1 = float(hi[0]), v0 = float(lo[1]), v1 = float(hi[1]);
    return true;
}

bool VxPlanarModBase::getSampling(int nu, int nv, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const
{
    float u0, u1, v0, v1;
    if (nu < 2 || nv < 2 || !getPlaneRect(u0, u1, v0, v1)) return false;
    origin = m_origin + m_u * u0 + m_v * v0;
    du = m_u * ((u1 - u0) / float(nu - 1));
    dv = m_v * ((v1 - v0) / float(nv - 1));
    return true;
}

bool VxPlanarModBase::getSamplingParameters(int res, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const
{
    return getSampling(res, res, origin, du, dv);
}

KxBox3f VxPlanarModBase::getBoundingBox() const
{
    VxScalarField3* field = getField();
    if (!m_hasPlane || !field) return KxBox3f();
    const KxBox3f box = field->getBoundingBox();
    const std::vector<KxVec3d> points = planeInBox(box, m_origin, m_normal);
    if (points.empty()) return KxBox3f();
    double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (const KxVec3d& p : points)
        for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], p[a]), hi[a] = std::max(hi[a], p[a]);
    const KxVec3f size = box.getSize();
    const double slack = 1e-5 * std::max({double(size.x), double(size.y), double(size.z)});
    return KxBox3f(float(lo[0] - slack), float(hi[0] + slack), float(lo[1] - slack), float(hi[1] + slack),
                   float(lo[2] - slack), float(hi[2] + slack));
}

void VxPlanarModBase::compute()
{
    VxModule::compute();
    if (m_redraw || portData.isNew() || m_colormap->isNew()) draw();
    // Overlays draw in the field's frame: a new field (or a turned one) concerns them too.
    if (portData.isNew()) touchDownstream();
    m_redraw = false;
    showGeom(m_transform.get());
    showGeom(m_plane.get());
    showGeom(m_overlays.get());
}

void VxPlanarModBase::draw()
{
    SbMatrix m;
    getTransform(m);
    m_transform->matrix = m;
    VxScalarField3* field = getField();
    int nu = 0, nv = 0;
    getDrawingResolution(nu, nv);
    nu = std::clamp(nu, 2, 2048), nv = std::clamp(nv, 2, 2048);
    SbVec3f o, du, dv;
    if (!field || !getSampling(nu, nv, o, du, dv)) {
        m_plane->whichChild = SO_SWITCH_NONE;
        return;
    }
    // Grey over the field's range stands in for a colour map.
    double lo = 0, hi = 1;
    if (!VxRangeProviderSpatialData::rangeOf(field, lo, hi) || !(hi > lo)) hi = lo + 1;
    const VxColormap* map = m_colormap->getColormap();
    std::vector<unsigned char> image(std::size_t(nu) * std::size_t(nv) * 4, 0);
    std::unique_ptr<VxLocation3> at = field->createLocation();
    auto byte = [](double x) { return (unsigned char)std::lround(std::clamp(x, 0.0, 1.0) * 255); };
    for (int r = 0; at && r < nv; ++r) {
        bool found = false;
        for (int c = 0; c < nu; ++c) {
            const SbVec3f p = o + du * float(c) + dv * float(r);
            found = found ? at->move(p) : at->set(p);
            float value;
            if (!found || !at->eval(value)) continue;
            unsigned char* texel = &image[(std::size_t(r) * std::size_t(nu) + std::size_t(c)) * 4];
            if (map) {
                const VxColormap::RGBA rgba = map->getRGBA(value);
                texel[0] = byte(rgba.r), texel[1] = byte(rgba.g), texel[2] = byte(rgba.b);
                texel[3] = m_colormap->isAlphaEnabled() ? byte(rgba.a) : 255;
            } else {
                texel[0] = texel[1] = texel[2] = byte((value - lo) / (hi - lo));
                texel[3] = 255;
            }
        }
    }
    m_texture->image.setValue(SbVec2s(short(nu), short(nv)), 4, image.data());
    const SbVec3f eu = du * float(nu - 1), ev = dv * float(nv - 1);
    m_corners->point.setValues(0, 4, std::vector<SbVec3f>{o, o + eu, o + eu + ev, o + ev}.data());
    // Sample centres on texel centres: the texture's outer half texels lie beyond the rectangle.
    const float s0 = 0.5f / float(nu), s1 = 1 - s0, t0 = 0.5f / float(nv), t1 = 1 - t0;
    const SbVec2f tc[4] = {SbVec2f(s0, t0), SbVec2f(s1, t0), SbVec2f(s1, t1), SbVec2f(s0, t1)};
    m_texCoords->point.setValues(0, 4, tc);
    m_plane->whichChild = SO_SWITCH_ALL;
}

bool VxPlanarModBase::getDrawing(QImage& image, SbVec3f& corner, SbVec3f& uSide, SbVec3f& vSide) const
{
    SbVec2s size;
    int components = 0;
    const unsigned char* texels = m_texture->image.getValue(size, components);
    if (m_plane->whichChild.getValue() == SO_SWITCH_NONE || !texels || components != 4) return false;
    image = QImage(texels, size[0], size[1], size[0] * 4, QImage::Format_RGBA8888).copy();
    corner = m_corners->point[0];
    uSide = m_corners->point[1] - corner;
    vSide = m_corners->point[3] - corner;
    return true;
}
