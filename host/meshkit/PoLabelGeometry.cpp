#include <meshkit/PoLabelGeometry.h>

#include <Inventor/SbLine.h>
#include <Inventor/SbSphere.h>

#include <algorithm>
#include <cmath>

namespace meshkit {

bool isPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b)
{
    const float difference = std::fabs((p - a).length() + (p - b).length() - (b - a).length());
    return double(difference) < 1e-5;
}

bool findInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius, SbVec3f& out)
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

std::vector<std::vector<SbVec3f>> piecesOutside(const SbVec3f* points, int count,
                                                const std::vector<LabelCircle>& circles)
{
    auto inside = [&](const SbVec3f& p) {
        return std::any_of(circles.begin(), circles.end(),
                           [&](const LabelCircle& c) { return (p - c.centre).length() < c.radius; });
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
            for (const LabelCircle& c : circles) {
                SbVec3f enter, exit;
                if (!SbSphere(c.centre, c.radius).intersect(SbLine(a, b), enter, exit)) continue;
                for (const SbVec3f& p : {enter, exit})
                    if (isPointBetweenPoints(p, a, b)) stops.emplace_back((p - a).length(), p);
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
    pieces.erase(std::remove_if(pieces.begin(), pieces.end(), [](const auto& p) { return p.size() < 2; }),
                 pieces.end());
    const bool closed = count > 2 && points[0] == points[count - 1];
    if (closed && pieces.size() > 1 && pieces.front().front() == points[0] &&
        pieces.back().back() == points[count - 1]) {
        pieces.back().insert(pieces.back().end(), pieces.front().begin() + 1, pieces.front().end());
        pieces.front() = std::move(pieces.back());
        pieces.pop_back();
    }
    return pieces;
}

} // namespace meshkit
