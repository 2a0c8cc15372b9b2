// The value labels along the contour lines, and the contour clip that opens the lines under them.
#include <vxiso/SoText3FacingCamera.h>
#include <vxiso/VxIsolines.h>

#include <oiv/OivFonts.h>
#include <vx/VxApplication.h>
#include <vx/VxMessage.h>
#include <vx/VxPlanarModBase.h>

#include <Inventor/SbLine.h>
#include <Inventor/SbSphere.h>
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
    const float difference = std::fabs((p - a).length() + (p - b).length() - (b - a).length());
    return double(difference) < 1e-5;
}

bool VxIsolines::findInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                                    SbVec3f& out)
{
    if (a == b) return false;
    SbVec3f enter, exit;
    if (!SbSphere(centre, radius).intersect(SbLine(a, b), enter, exit)) return false;
    for (const SbVec3f& p : {enter, exit})
        if (isPointBetweenPoints(p, a, b)) {
            out = p;
            return true;
        }
    return false;
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
    auto isSelected = [&](float v) { return std::find(selected.begin(), selected.end(), v) != selected.end(); };

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
        SbVec3f anchor = line.points[0];
        for (int i = 1; i < line.count; ++i) {
            if ((line.points[i] - anchor).length() < gap) continue;
            if (!findInBetweenPoint(anchor, line.points[i - 1], line.points[i], gap, anchor)) continue;
            // Closed lines repeat their first point: past the end, the line goes on from its start.
            const SbVec3f& next = i + 1 < line.count ? line.points[i + 1] : line.points[0];
            SbVec3f tangent = (next - line.points[i - 1]) * 0.5f;
            tangent.normalize();
            const float radius = size[0] * 0.5f;
            const bool overlaps = std::any_of(placed.begin(), placed.end(), [&](const TextVertex& other) {
                return (other.position - anchor).length() < radius + other.radius;
            });
            if (overlaps) continue;
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
        }
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
    const std::vector<Line> lines = getLines(lineSet, m_lineValues);
    std::vector<uint32_t> colors(property->orderedRGBA.getValues(0),
                                 property->orderedRGBA.getValues(0) + property->orderedRGBA.getNum());

    std::vector<SbVec3f> points;
    std::vector<int32_t> counts;
    std::vector<uint32_t> pieceColors;
    KxDArray<float> pieceValues;
    for (std::size_t l = 0; l < lines.size(); ++l) {
        const Line& line = lines[l];
        std::vector<const TextVertex*> mine;
        for (const TextVertex& label : labels)
            if (label.value == float(int(line.value))) mine.push_back(&label);
        auto inside = [&](const SbVec3f& p) {
            return std::any_of(mine.begin(), mine.end(),
                               [&](const TextVertex* t) { return (p - t->position).length() < t->radius; });
        };

        // The pieces of this line, as point lists; a point inside a circle ends the current piece.
        std::vector<std::vector<SbVec3f>> pieces(1);
        auto add = [&](const SbVec3f& p) {
            if (pieces.back().empty() || !(pieces.back().back() == p)) pieces.back().push_back(p);
        };
        auto end = [&] {
            if (!pieces.back().empty()) pieces.emplace_back();
        };
        if (line.count > 0 && !inside(line.points[0])) add(line.points[0]);
        for (int i = 1; i < line.count; ++i) {
            const SbVec3f a = line.points[i - 1], b = line.points[i];
            // Where the segment crosses a circle, in order along it.
            std::vector<std::pair<float, SbVec3f>> crossings;
            if (!(a == b))
                for (const TextVertex* t : mine) {
                    SbVec3f enter, exit;
                    if (!SbSphere(t->position, t->radius).intersect(SbLine(a, b), enter, exit)) continue;
                    for (const SbVec3f& p : {enter, exit})
                        if (isPointBetweenPoints(p, a, b)) crossings.emplace_back((p - a).length(), p);
                }
            std::sort(crossings.begin(), crossings.end(),
                      [](const auto& x, const auto& y) { return x.first < y.first; });
            // Each stretch between crossings is kept or dropped as its middle lies outside or inside.
            SbVec3f from = a;
            crossings.emplace_back((b - a).length(), b);
            for (const auto& [distance, to] : crossings) {
                if (inside((from + to) * 0.5f)) {
                    end();
                } else {
                    add(from);
                    add(to);
                }
                from = to;
            }
            if (inside(b)) end();
        }
        if (pieces.back().empty()) pieces.pop_back();
        // A closed line cut somewhere else than at its start runs on through it: its last piece
        // and its first are one piece, and take the first's place.
        const bool closed = line.count > 2 && line.points[0] == line.points[line.count - 1];
        if (closed && pieces.size() > 1 && pieces.front().front() == line.points[0] &&
            pieces.back().back() == line.points[line.count - 1]) {
            pieces.back().insert(pieces.back().end(), pieces.front().begin() + 1, pieces.front().end());
            pieces.front() = std::move(pieces.back());
            pieces.pop_back();
        }
        for (const std::vector<SbVec3f>& piece : pieces) {
            if (piece.size() < 2) continue;
            points.insert(points.end(), piece.begin(), piece.end());
            counts.push_back(int32_t(piece.size()));
            if (l < colors.size()) pieceColors.push_back(colors[l]);
            pieceValues.push_back(line.value);
        }
    }
    property->vertex.setValues(0, int(points.size()), points.data());
    property->vertex.setNum(int(points.size()));
    lineSet->numVertices.setValues(0, int(counts.size()), counts.data());
    lineSet->numVertices.setNum(int(counts.size()));
    property->orderedRGBA.setValues(0, int(pieceColors.size()), pieceColors.data());
    property->orderedRGBA.setNum(int(pieceColors.size()));
    m_lineValues = pieceValues;
}
