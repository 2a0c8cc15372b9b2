#include <vxiso/isolines/VxIsolineLabelGeometry.h>

#include <Inventor/SbLine.h>
#include <Inventor/SbSphere.h>

#include <algorithm>
#include <cmath>

bool vxIsPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b)
{
    const float difference = std::fabs((p - a).length() + (p - b).length() - (b - a).length());
    return double(difference) < 1e-5;
}

bool vxFindInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                          SbVec3f& out)
{
    if (a == b) return false;
    SbVec3f enter, exit;
    if (!SbSphere(centre, radius).intersect(SbLine(a, b), enter, exit)) return false;
    for (const SbVec3f& p : {enter, exit})
        if (vxIsPointBetweenPoints(p, a, b)) {
            out = p;
            return true;
        }
    return false;
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

namespace {

// The pieces of one line that lie outside the circles.
std::vector<std::vector<SbVec3f>> piecesOutside(const SbVec3f* points, int count,
                                                const std::vector<const VxIsolineTextVertex*>& circles)
{
    auto inside = [&](const SbVec3f& p) {
        return std::any_of(circles.begin(), circles.end(), [&](const VxIsolineTextVertex* t) {
            return (p - t->position).length() < t->radius;
        });
    };
    std::vector<std::vector<SbVec3f>> pieces(1);
    auto add = [&](const SbVec3f& p) {
        if (pieces.back().empty() || !(pieces.back().back() == p)) pieces.back().push_back(p);
    };
    auto end = [&] {
        if (!pieces.back().empty()) pieces.emplace_back();
    };
    if (count > 0 && !inside(points[0])) add(points[0]);
    for (int i = 1; i < count; ++i) {
        const SbVec3f a = points[i - 1], b = points[i];
        // Where the segment crosses a circle, in order along it, then its end.
        std::vector<std::pair<float, SbVec3f>> stops;
        if (!(a == b))
            for (const VxIsolineTextVertex* t : circles) {
                SbVec3f enter, exit;
                if (!SbSphere(t->position, t->radius).intersect(SbLine(a, b), enter, exit)) continue;
                for (const SbVec3f& p : {enter, exit})
                    if (vxIsPointBetweenPoints(p, a, b)) stops.emplace_back((p - a).length(), p);
            }
        std::sort(stops.begin(), stops.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
        stops.emplace_back((b - a).length(), b);
        // Each stretch between stops is kept or dropped as its middle lies outside or inside.
        SbVec3f from = a;
        for (const auto& stop : stops) {
            if (inside((from + stop.second) * 0.5f)) {
                end();
            } else {
                add(from);
                add(stop.second);
            }
            from = stop.second;
        }
        if (inside(b)) end();
    }
    if (pieces.back().empty()) pieces.pop_back();
    const bool closed = count > 2 && points[0] == points[count - 1];
    if (closed && pieces.size() > 1 && pieces.front().front() == points[0] &&
        pieces.back().back() == points[count - 1]) {
        pieces.back().insert(pieces.back().end(), pieces.front().begin() + 1, pieces.front().end());
        pieces.front() = std::move(pieces.back());
        pieces.pop_back();
    }
    return pieces;
}

} // namespace

VxIsolineLines vxClipUnderLabels(const VxIsolineLines& lines, const std::vector<VxIsolineTextVertex>& labels)
{
    VxIsolineLines out;
    const SbVec3f* p = lines.points.data();
    for (int l = 0; l < lines.getNumLines(); ++l) {
        const int count = lines.numVertices[std::size_t(l)];
        const float value = l < int(lines.lineValues.size()) ? lines.lineValues[std::size_t(l)] : 0.f;
        std::vector<const VxIsolineTextVertex*> circles;
        for (const VxIsolineTextVertex& label : labels)
            if (label.value == float(int(value))) circles.push_back(&label);
        for (const std::vector<SbVec3f>& piece : piecesOutside(p, count, circles)) {
            if (piece.size() < 2) continue;
            for (const SbVec3f& q : piece) out.points.push_back(q);
            out.numVertices.push_back(int32_t(piece.size()));
            out.lineValues.push_back(value);
            if (l < int(lines.lineColors.size())) out.lineColors.push_back(lines.lineColors[std::size_t(l)]);
        }
        p += count;
    }
    return out;
}
