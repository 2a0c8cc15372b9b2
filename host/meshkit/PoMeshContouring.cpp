#include <meshkit/PoKitElement.h>
#include <meshkit/PoLabelGeometry.h>
#include <meshkit/PoMesh.h>
#include <meshkit/PoMeshContouring.h>
#include <meshkit/PoNonLinearDataMapping.h>

#include <Inventor/SbMatrix.h>
#include <Inventor/SbRotation.h>
#include <Inventor/SbViewportRegion.h>
#include <Inventor/actions/SoCallbackAction.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoPickAction.h>
#include <Inventor/nodes/SoBaseColor.h>
#include <Inventor/nodes/SoDrawStyle.h>
#include <Inventor/nodes/SoFont.h>
#include <Inventor/nodes/SoLightModel.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoText2.h>
#include <Inventor/nodes/SoText3.h>
#include <Inventor/nodes/SoTransform.h>
#include <Inventor/nodes/SoVertexProperty.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_map>

namespace meshkit {

SO_NODE_SOURCE(PoMeshContouring)

void PoMeshContouring::initClass()
{
    SO_NODE_INIT_CLASS(PoMeshContouring, SoNode, "Node");
}

PoMeshContouring::PoMeshContouring()
{
    SO_NODE_CONSTRUCTOR(PoMeshContouring);
    SO_NODE_ADD_FIELD(isoValues, (0.f));
    isoValues.setNum(0);
    isoValues.setDefault(TRUE);
    SO_NODE_ADD_FIELD(coloring, (MATERIAL));
    SO_NODE_ADD_FIELD(lineWidth, (0.f));
    SO_NODE_ADD_FIELD(annotIsVisible, (FALSE));
    SO_NODE_ADD_FIELD(annotPath, (TANGENTIAL));
    SO_NODE_ADD_FIELD(annotFontSize, (5.f));
    SO_NODE_ADD_FIELD(annotFontFactor, (1.f));
    SO_NODE_ADD_FIELD(annotReferenceSize, (1.f));
    SO_NODE_ADD_FIELD(annotGap, (1.f));
    SO_NODE_ADD_FIELD(annotMajorPeriod, (1));
    SO_NODE_ADD_FIELD(annotFirstPeriod, (1));
    SO_NODE_ADD_FIELD(annotContourClip, (FALSE));
    SO_NODE_ADD_FIELD(annotColor, (SbColor(1, 1, 1)));
    SO_NODE_ADD_FIELD(formatType, (PbNumericDisplayFormat::AUTO));
    SO_NODE_ADD_FIELD(formatDecimals, (0));
    SO_NODE_ADD_FIELD(formatTenPower, (0));
    SO_NODE_DEFINE_ENUM_VALUE(Coloring, MATERIAL);
    SO_NODE_DEFINE_ENUM_VALUE(Coloring, DATA_MAPPING);
    SO_NODE_DEFINE_ENUM_VALUE(Coloring, DARKENED_MAPPING);
    SO_NODE_DEFINE_ENUM_VALUE(Coloring, CONTRAST);
    SO_NODE_SET_SF_ENUM_TYPE(coloring, Coloring);
    SO_NODE_DEFINE_ENUM_VALUE(Path, TANGENTIAL);
    SO_NODE_DEFINE_ENUM_VALUE(Path, HORIZONTAL);
    SO_NODE_DEFINE_ENUM_VALUE(Path, VERTICAL);
    SO_NODE_SET_SF_ENUM_TYPE(annotPath, Path);
    fieldData->addEnumValue("FormatType", "AUTO", PbNumericDisplayFormat::AUTO);
    fieldData->addEnumValue("FormatType", "FLOAT", PbNumericDisplayFormat::FLOAT);
    fieldData->addEnumValue("FormatType", "INTEGER", PbNumericDisplayFormat::INTEGER);
    SO_NODE_SET_SF_ENUM_TYPE(formatType, FormatType);
}

PoMeshContouring::~PoMeshContouring()
{
    if (m_scene) m_scene->unref();
}

void PoMeshContouring::setIsovaluesList(const PbIsovaluesList& list)
{
    const std::vector<float>& v = list.getValues();
    isoValues.setNum(int(v.size()));
    if (!v.empty()) isoValues.setValues(0, int(v.size()), v.data());
}

void PoMeshContouring::setNumericDisplayFormat(const PbNumericDisplayFormat& format)
{
    formatType = format.getFormatType();
    formatDecimals = short(format.getNumDecimals());
    formatTenPower = short(format.getTenPower());
}

PbNumericDisplayFormat PoMeshContouring::getNumericDisplayFormat() const
{
    return PbNumericDisplayFormat(PbNumericDisplayFormat::FormatType(formatType.getValue()),
                                  formatDecimals.getValue(), formatTenPower.getValue());
}

void PoMeshContouring::setPreRebuildCallback(RebuildCallback callback, void* data)
{
    m_pre = callback, m_preData = data;
}

void PoMeshContouring::setPostRebuildCallback(RebuildCallback callback, void* data)
{
    m_post = callback, m_postData = data;
}

std::vector<PoMeshContouring::Polyline> PoMeshContouring::contour(const PoMesh& mesh,
                                                                  const std::vector<float>& values)
{
    std::vector<Polyline> out;
    for (float v : values) {
        if (v != v) continue;
        // The points on cut edges, each made once (keyed by the edge's nodes), and for each the one
        // or two points it is joined to.
        std::unordered_map<uint64_t, int> pointOf;
        std::vector<SbVec3f> points;
        std::vector<std::array<int, 2>> links;
        auto point = [&](int32_t a, int32_t b) {
            if (a > b) std::swap(a, b);
            const uint64_t key = uint64_t(uint32_t(a)) << 32 | uint32_t(b);
            const auto found = pointOf.find(key);
            if (found != pointOf.end()) return found->second;
            const float fa = mesh.getValue(a), fb = mesh.getValue(b);
            const SbVec3f pa = mesh.getNode(a), pb = mesh.getNode(b);
            points.push_back(pa + (pb - pa) * ((v - fa) / (fb - fa)));
            links.push_back({-1, -1});
            return pointOf[key] = int(points.size()) - 1;
        };
        auto join = [&](int p, int q) {
            links[std::size_t(p)][links[std::size_t(p)][0] < 0 ? 0 : 1] = q;
            links[std::size_t(q)][links[std::size_t(q)][0] < 0 ? 0 : 1] = p;
        };
        for (int c = 0; c < mesh.getNumCells(); ++c) {
            int32_t n[4];
            float f[4];
            if (!mesh.getValidCell(c, n, f)) continue;
            bool below[4];
            for (int k = 0; k < 4; ++k) below[k] = v > f[k];
            int cut[4], numCut = 0;
            for (int e = 0; e < 4; ++e)
                if (below[e] != below[(e + 1) % 4]) cut[numCut++] = e;
            auto edge = [&](int e) { return point(n[e], n[(e + 1) % 4]); };
            if (numCut == 2) {
                join(edge(cut[0]), edge(cut[1]));
            } else if (numCut == 4) {
                // The diagonal pair on the side of the centre's value is joined through the centre.
                const double centre = double(f[0] + f[1] + f[2] + f[3]) * 0.25;
                if (below[0] == (v > centre)) {
                    join(edge(0), edge(1));
                    join(edge(2), edge(3));
                } else {
                    join(edge(3), edge(0));
                    join(edge(1), edge(2));
                }
            }
        }
        // Chains: from the open ends first, then around what is left.
        std::vector<bool> done(points.size(), false);
        auto walk = [&](int start, bool closed) {
            Polyline line{{}, v, 0};
            int previous = -1, at = start;
            while (at >= 0 && !done[std::size_t(at)]) {
                done[std::size_t(at)] = true;
                line.points.push_back(points[std::size_t(at)]);
                const std::array<int, 2>& l = links[std::size_t(at)];
                const int next = l[0] != previous ? l[0] : l[1];
                previous = at, at = next;
            }
            if (closed) line.points.push_back(points[std::size_t(start)]);
            if (line.points.size() > 1) out.push_back(std::move(line));
        };
        for (std::size_t p = 0; p < points.size(); ++p)
            if (!done[p] && (links[p][0] < 0 || links[p][1] < 0)) walk(int(p), false);
        for (std::size_t p = 0; p < points.size(); ++p)
            if (!done[p]) walk(int(p), true);
    }
    return out;
}

namespace {

uint32_t packed(const SbColor& c)
{
    return c.getPackedValue(0.f);
}

// The colour of a line of value v.
uint32_t lineColor(int coloring, const PoNonLinearDataMapping* mapping, float v)
{
    if (!mapping) return packed(SbColor(0, 0, 0));
    const SbColor c = mapping->getColor(v);
    switch (coloring) {
    case PoMeshContouring::DATA_MAPPING:
        return packed(c);
    case PoMeshContouring::DARKENED_MAPPING:
        return packed(c * 0.5f);
    default: { // CONTRAST
        const float luminance = 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2];
        return packed(luminance > 0.5f ? SbColor(0, 0, 0) : SbColor(1, 1, 1));
    }
    }
}

// The arc length of each point of a polyline from its start.
std::vector<float> arcLengths(const std::vector<SbVec3f>& p)
{
    std::vector<float> s(p.size(), 0.f);
    for (std::size_t i = 1; i < p.size(); ++i) s[i] = s[i - 1] + (p[i] - p[i - 1]).length();
    return s;
}

// Width and height of text in the font, as drawn in polygons.
SbVec3f textSize(const std::string& text, const SbName& family, float size)
{
    auto* scratch = new SoSeparator;
    scratch->ref();
    auto* font = new SoFont;
    font->name = family;
    font->size = size;
    auto* t = new SoText3;
    t->string = text.c_str();
    scratch->addChild(font);
    scratch->addChild(t);
    SoGetBoundingBoxAction box{SbViewportRegion()};
    box.apply(scratch);
    SbVec3f min(0, 0, 0), max(0, 0, 0);
    if (!box.getBoundingBox().isEmpty()) box.getBoundingBox().getBounds(min, max);
    scratch->unref();
    return max - min;
}

} // namespace

void PoMeshContouring::placeLabels(const PoMesh& mesh, const SoAnnoText3Property* text)
{
    m_labels.clear();
    if (!annotIsVisible.getValue()) return;
    const float height =
        annotFontSize.getValue() * annotFontFactor.getValue() * annotReferenceSize.getValue();
    if (!(height > 0)) return;
    const bool raster = text && text->renderStyle.getValue() == SoAnnoText3Property::RASTER;
    const SbName family = text ? text->fontName.getValue() : SbName("DejaVu Sans");
    const PbNumericDisplayFormat format = getNumericDisplayFormat();
    const int major = std::max<int>(annotMajorPeriod.getValue(), 1),
              first = std::max<int>(annotFirstPeriod.getValue(), 1);
    const SbVec3f u = mesh.getUAxis(), v = mesh.getVAxis();
    SbVec3f normal = u.cross(v);
    normal.normalize();
    m_normal = normal;
    const uint32_t color = packed(annotColor.getValue());
    const float gap = std::max(annotGap.getValue(), 0.f);

    std::vector<LabelCircle> placed;
    for (const Polyline& line : m_lines) {
        // The position of the line's value among the iso values decides whether it is labelled.
        int position = -1;
        for (int i = 0; i < isoValues.getNum() && position < 0; ++i)
            if (isoValues[i] == line.value) position = i + 1;
        if (position < first || (position - first) % major != 0) continue;
        const std::string label = format.format(line.value);
        if (label.empty()) continue;
        const float width = raster ? 0.6f * height * float(label.size()) : textSize(label, family, height)[0];
        const std::vector<float> s = arcLengths(line.points);
        const float length = s.back(), spacing = 10 * (width + gap * height);
        if (length < 1.5f * width) continue;
        for (float at = length < spacing ? length / 2 : spacing / 2; at <= length - width / 2;
             at += spacing) {
            const std::size_t i = std::size_t(std::upper_bound(s.begin(), s.end(), at) - s.begin());
            const std::size_t b = std::min(std::max<std::size_t>(i, 1), s.size() - 1), a = b - 1;
            const float span = s[b] - s[a];
            const SbVec3f centre =
                line.points[a] + (line.points[b] - line.points[a]) * (span > 0 ? (at - s[a]) / span : 0.f);
            const float radius = width / 2 + gap * height / 4;
            if (std::any_of(placed.begin(), placed.end(), [&](const LabelCircle& c) {
                    return (c.centre - centre).length() < c.radius + radius;
                }))
                continue;
            SbVec3f baseline = annotPath.getValue() == HORIZONTAL ? u
                               : annotPath.getValue() == VERTICAL ? v
                                                                  : line.points[b] - line.points[a];
            baseline -= normal * baseline.dot(normal);
            if (!(baseline.normalize() > 0)) baseline = u;
            // Along its line a label reads forwards along u (and upwards along v across it).
            if (annotPath.getValue() == TANGENTIAL &&
                (baseline.dot(u) < -1e-6f || (std::fabs(baseline.dot(u)) <= 1e-6f && baseline.dot(v) < 0)))
                baseline = -baseline;
            placed.push_back({centre, radius});
            m_labels.push_back({centre, raster ? SbVec3f(0, 0, 0) : baseline, label, height, color});
        }
    }
    if (!annotContourClip.getValue() || placed.empty()) return;
    std::vector<Polyline> opened;
    for (const Polyline& line : m_lines)
        for (std::vector<SbVec3f>& piece : piecesOutside(line.points.data(), int(line.points.size()), placed))
            opened.push_back({std::move(piece), line.value, line.color});
    m_lines = std::move(opened);
}

SoSeparator* PoMeshContouring::makeScene(const SoAnnoText3Property* text) const
{
    auto* root = new SoSeparator;
    auto* light = new SoLightModel;
    light->model = SoLightModel::BASE_COLOR;
    root->addChild(light);
    if (lineWidth.getValue() > 0) {
        auto* style = new SoDrawStyle;
        style->lineWidth = lineWidth.getValue();
        root->addChild(style);
    }
    std::vector<SbVec3f> points;
    std::vector<int32_t> counts;
    std::vector<uint32_t> colors;
    for (const Polyline& line : m_lines) {
        points.insert(points.end(), line.points.begin(), line.points.end());
        counts.push_back(int32_t(line.points.size()));
        colors.push_back(line.color);
    }
    auto* property = new SoVertexProperty;
    property->vertex.setValues(0, int(points.size()), points.data());
    if (coloring.getValue() != MATERIAL && !colors.empty()) {
        property->orderedRGBA.setValues(0, int(colors.size()), colors.data());
        property->materialBinding = SoVertexProperty::PER_FACE; // one colour a polyline
    }
    auto* lines = new SoLineSet;
    lines->vertexProperty = property;
    lines->numVertices.setValues(0, int(counts.size()), counts.data());
    root->addChild(lines);

    if (m_labels.empty()) return root;
    const bool raster = text && text->renderStyle.getValue() == SoAnnoText3Property::RASTER;
    auto* labels = new SoSeparator;
    auto* color = new SoBaseColor;
    color->rgb = annotColor.getValue();
    auto* font = new SoFont;
    font->name = text ? text->fontName.getValue() : SbName("DejaVu Sans");
    font->size = raster ? 2.4f * annotFontSize.getValue() * annotFontFactor.getValue() : m_labels[0].height;
    labels->addChild(color);
    labels->addChild(font);
    for (const Label& l : m_labels) {
        auto* one = new SoSeparator;
        auto* place = new SoTransform;
        if (raster) {
            place->translation = l.centre;
            auto* t = new SoText2;
            t->string = l.text.c_str();
            t->justification = SoText2::CENTER;
            one->addChild(place);
            one->addChild(t);
        } else {
            // The text's x along the baseline, its y across it in the mesh's plane, its front facing
            // along u x v; its middle on the line (digits stand about 0.7 heights tall).
            SbVec3f up = m_normal.cross(l.baseline);
            up.normalize();
            SbMatrix frame = SbMatrix::identity();
            for (int k = 0; k < 3; ++k)
                frame[0][k] = l.baseline[k], frame[1][k] = up[k], frame[2][k] = m_normal[k];
            place->rotation = SbRotation(frame);
            place->translation = l.centre - up * (0.35f * l.height);
            auto* t = new SoText3;
            t->string = l.text.c_str();
            t->justification = SoText3::CENTER;
            one->addChild(place);
            one->addChild(t);
        }
        labels->addChild(one);
    }
    root->addChild(labels);
    return root;
}

void PoMeshContouring::rebuild(const PoMesh* mesh, const PoNonLinearDataMapping* mapping,
                               const SoAnnoText3Property* text)
{
    if (m_pre) m_pre(m_preData, this);
    std::vector<float> values(isoValues.getValues(0), isoValues.getValues(0) + isoValues.getNum());
    m_lines = mesh ? contour(*mesh, values) : std::vector<Polyline>();
    for (Polyline& line : m_lines)
        line.color =
            coloring.getValue() == MATERIAL ? 0 : lineColor(coloring.getValue(), mapping, line.value);
    if (mesh) placeLabels(*mesh, text);
    if (m_scene) m_scene->unref();
    m_scene = makeScene(text);
    m_scene->ref();
    if (m_post) m_post(m_postData, this);
}

SoSeparator* PoMeshContouring::scene(SoState* state)
{
    const PoMesh* mesh = PoKitElement::getMesh(state);
    const PoNonLinearDataMapping* mapping = PoKitElement::getDataMapping(state);
    const SoAnnoText3Property* text = PoKitElement::getTextProperty(state);
    const uint64_t madeFor[4] = {mesh ? mesh->getNodeId() : 0, mapping ? mapping->getNodeId() : 0,
                                 text ? text->getNodeId() : 0, getNodeId()};
    if (!m_scene || !std::equal(madeFor, madeFor + 4, m_madeFor)) {
        std::copy(madeFor, madeFor + 4, m_madeFor);
        rebuild(mesh, mapping, text);
    }
    return m_scene;
}

void PoMeshContouring::GLRender(SoGLRenderAction* action)
{
    scene(action->getState())->GLRender(action);
}

void PoMeshContouring::callback(SoCallbackAction* action)
{
    scene(action->getState())->callback(action);
}

void PoMeshContouring::getBoundingBox(SoGetBoundingBoxAction* action)
{
    scene(action->getState())->getBoundingBox(action);
}

void PoMeshContouring::pick(SoPickAction* action)
{
    scene(action->getState())->pick(action);
}

} // namespace meshkit
