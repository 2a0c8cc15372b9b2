#include <vxiso/isolines/VxIsolineLabelGeometry.h>

#include <meshkit/PoLabelGeometry.h>

#include <algorithm>
#include <cmath>

bool vxIsPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b)
{
    return meshkit::isPointBetweenPoints(p, a, b);
}

bool vxFindInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                          SbVec3f& out)
{
    return meshkit::findInBetweenPoint(centre, a, b, radius, out);
}

void vxWalkLabelAnchors(const SbVec3f* points, int count, float gap,
                        const std::function<void(const SbVec3f& anchor, const SbVec3f& tangent)>& propose)
{
    if (count < 2) return;
    SbVec3f anchor = points[0];
    for (int i = 1; i < count; ++i) {
        if ((points[i] - anchor).length() < gap) continue;
        if (!vxFindInBetweenPoint(anchor, points[i - 1], points[i], gap, anchor)) continue;
        const SbVec3f& next = i + 1 < count ? points[i + 1] : points[0];
        SbVec3f tangent = (next - points[i - 1]) * 0.5f;
        tangent.normalize();
        propose(anchor, tangent);
    }
}

VxIsolineLines vxClipUnderLabels(const VxIsolineLines& lines, const std::vector<VxIsolineTextVertex>& labels)
{
    VxIsolineLines out;
    const SbVec3f* p = lines.points.data();
    for (int l = 0; l < lines.getNumLines(); ++l) {
        const int count = lines.numVertices[std::size_t(l)];
        const float value = l < int(lines.lineValues.size()) ? lines.lineValues[std::size_t(l)] : 0.f;
        std::vector<meshkit::LabelCircle> circles;
        for (const VxIsolineTextVertex& label : labels)
            if (label.value == float(int(value))) circles.push_back({label.position, label.radius});
        for (const std::vector<SbVec3f>& piece : meshkit::piecesOutside(p, count, circles)) {
            for (const SbVec3f& q : piece) out.points.push_back(q);
            out.numVertices.push_back(int32_t(piece.size()));
            out.lineValues.push_back(value);
            if (l < int(lines.lineColors.size())) out.lineColors.push_back(lines.lineColors[std::size_t(l)]);
        }
        p += count;
    }
    return out;
}
