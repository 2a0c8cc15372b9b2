// The value labels along the contour lines, and the contour clip that opens the lines under them.
#include <vxiso/SoText3FacingCamera.h>
#include <vxiso/VxIsolines.h>
#include <vxiso/isolines/VxIsolineLabelGeometry.h>

#include <oiv/OivFonts.h>
#include <vx/VxApplication.h>
#include <vx/VxMessage.h>
#include <vx/VxPlanarModBase.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/nodekits/SoShapeKit.h>
#include <Inventor/nodes/SoFont.h>
#include <Inventor/nodes/SoLightModel.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoMaterial.h>
#include <Inventor/nodes/SoRotation.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoTransform.h>
#include <Inventor/nodes/SoTranslation.h>
#include <Inventor/nodes/SoVertexProperty.h>

#include <QSet>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// One line of the line set: its points and value.
struct Line
{
    const SbVec3f* points;
    int count;
    float value;
};

// The line set's lines with their values (lines past the values get 0).
std::vector<Line> getLines(const SoLineSet* lineSet, const KxDArray<float>& values)
{
    std::vector<Line> lines;
    const auto* property = static_cast<const SoVertexProperty*>(lineSet->vertexProperty.getValue());
    const int numPoints = property ? property->vertex.getNum() : 0;
    const SbVec3f* p = numPoints ? property->vertex.getValues(0) : nullptr;
    for (int l = 0, first = 0; l < lineSet->numVertices.getNum() && first < numPoints; ++l) {
        const int n = std::min(int(lineSet->numVertices[l]), numPoints - first);
        lines.push_back({p + first, n, l < int(values.size()) ? values[std::size_t(l)] : 0.f});
        first += n;
    }
    return lines;
}

// The font's family as drawn: an installed one, with one warning per family that is not.
QString drawnFontName(const VxPortFontSelection& port)
{
    static QSet<QString> warned;
    bool installed = false;
    const QString family = port.getFontFamily();
    const QString drawn = oivInstalledFontFamily(family, &installed);
    if (installed || drawn.isEmpty()) return port.getFontDescription();
    if (!warned.contains(family)) {
        warned.insert(family);
        VxApplication::instance()->message()->warning(
            QString("The font \"%1\" is not installed; labels are drawn in \"%2\".").arg(family, drawn));
    }
    const QString description = port.getFontDescription();
    return drawn + description.mid(family.size()); // the style (":Bold" ...) kept
}

} // namespace

SoText3* VxIsolines::getSoText3(SoFont* font, SoTransform* scale, float value, SbVec3f& size, bool tangential)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.0f", double(value));
    SoText3* shown = tangential ? new SoText3 : new SoText3FacingCamera;
    shown->string = text;
    shown->justification = SoText3::CENTER;

    // Measured as plain text under the font and scale, on a scratch separator.
    SoSeparator* scratch = new SoSeparator;
    scratch->ref();
    scratch->addChild(font);
    scratch->addChild(scale);
    auto* measured = new SoText3;
    measured->string = text;
    measured->justification = SoText3::CENTER;
    scratch->addChild(measured);
    SoGetBoundingBoxAction box{SbViewportRegion()};
    box.apply(scratch);
    SbVec3f min, max;
    box.getBoundingBox().getBounds(min, max);
    size = box.getBoundingBox().isEmpty() ? SbVec3f(0, 0, 0) : max - min;
    scratch->unref();
    return shown;
}

bool VxIsolines::isPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b)
{
    return vxIsPointBetweenPoints(p, a, b);
}

bool VxIsolines::findInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                                    SbVec3f& out)
{
    return vxFindInBetweenPoint(centre, a, b, radius, out);
}

void VxIsolines::createTextSceneGraph()
{
    SoLineSet* lineSet = getLineSet();
    VxPlanarModBase* slice = getSlice();
    if (!lineSet || !slice) return;
    const bool tangential = portTextAlignment.getValue(0) == 0;
    const std::vector<Line> lines = getLines(lineSet, m_lineValues);

    // The values that get labels: every value, or every n-th of the sorted distinct values.
    std::vector<float> distinct;
    for (const Line& line : lines) distinct.push_back(line.value);
    std::sort(distinct.begin(), distinct.end());
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    const int every = portAnnotateEvery.getValue(0), start = portAnnotateEvery.getValue(1);
    std::vector<float> selected;
    for (int i = 0; i < int(distinct.size()); ++i)
        if ((every == 1 && start == 1) || (i >= start - 1 && (i - (start - 1)) % every == 0))
            selected.push_back(distinct[std::size_t(i)]);
    auto isSelected = [&](float v) {
        return std::find(selected.begin(), selected.end(), v) != selected.end();
    };

    auto* font = new SoFont;
    font->name = drawnFontName(portFont).toUtf8().constData();
    font->size = float(portFont.getFontSize());
    auto* material = new SoMaterial;
    const KxColor& color = portFont.getFontColor();
    material->diffuseColor.setValue(color.r, color.g, color.b);
    auto* lightModel = new SoLightModel;
    lightModel->model = SoLightModel::BASE_COLOR;
    m_textSeparator->addChild(font);
    m_textSeparator->addChild(material);
    m_textSeparator->addChild(lightModel);

    const SbVec3f n = slice->normal();
    auto* plane = new SoTransform;
    plane->rotation = SbRotation(SbVec3f(0, 0, -1), n);
    plane->ref();
    SbVec3f turned;
    plane->rotation.getValue().multVec(SbVec3f(0, 0, -1), turned);
    SbVec3f reference = SbVec3f(1, 0, 0).cross(turned);
    reference.normalize();
    auto* scale = new SoTransform;
    scale->ref();
    const float s = portTextScale.getValue();
    scale->scaleFactor.setValue(s, s, 1);
    const float spacing = portTextSpacing.getValue();

    std::vector<TextVertex> placed;
    for (const Line& line : lines) {
        if (line.count < 2 || !isSelected(line.value)) continue;
        SbVec3f size;
        SoText3* text = getSoText3(font, scale, line.value, size, tangential);
        text->ref();
        const float gap = std::sqrt(size[0] * size[0] + size[1] * size[1]) + spacing;
        const float radius = size[0] * 0.5f;
        vxWalkLabelAnchors(line.points, line.count, gap, [&](const SbVec3f& anchor, const SbVec3f& tangent) {
            const bool overlaps = std::any_of(placed.begin(), placed.end(), [&](const TextVertex& other) {
                return (other.position - anchor).length() < radius + other.radius;
            });
            if (overlaps) return;
            placed.push_back({anchor, radius, float(int(line.value))});
            auto* label = new SoSeparator;
            auto* at = new SoTranslation;
            at->translation = anchor;
            SbVec3f across = tangent.cross(n);
            across.normalize();
            auto* along = new SoRotation;
            along->rotation = SbRotation(reference, across);
            label->addChild(at);
            label->addChild(along);
            label->addChild(plane);
            label->addChild(scale);
            label->addChild(text);
            m_textSeparator->addChild(label);
        });
        text->unref();
    }
    plane->unref();
    scale->unref();
    if (isContourClip() && !placed.empty()) clipUnderLabels(placed);
}

void VxIsolines::clipUnderLabels(const std::vector<TextVertex>& labels)
{
    SoLineSet* lineSet = getLineSet();
    auto* property = static_cast<SoVertexProperty*>(lineSet->vertexProperty.getValue());
    VxIsolineLines lines;
    for (int i = 0; i < property->vertex.getNum(); ++i) lines.points.push_back(property->vertex[i]);
    for (int i = 0; i < lineSet->numVertices.getNum(); ++i)
        lines.numVertices.push_back(lineSet->numVertices[i]);
    for (int i = 0; i < property->orderedRGBA.getNum(); ++i)
        lines.lineColors.push_back(property->orderedRGBA[i]);
    lines.lineValues = m_lineValues;
    VxIsolineLines clipped = vxClipUnderLabels(lines, labels);
    m_lineValues = clipped.lineValues;
    property->orderedRGBA.setNum(0);
    if (!clipped.lineColors.empty())
        property->orderedRGBA.setValues(0, int(clipped.lineColors.size()), clipped.lineColors.data());
    property->vertex.setNum(0);
    lineSet->numVertices.setNum(0);
    clipped.handTo(property->vertex, lineSet->numVertices);
}
