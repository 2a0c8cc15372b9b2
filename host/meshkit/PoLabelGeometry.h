#pragma once
#include <Inventor/SbVec3f.h>

#include <vector>

namespace meshkit {

// The geometry under labels on lines, shared by every labelling of contour lines.

// Whether p lies on the segment a-b: | |p - a| + |p - b| - |b - a| | < 1e-5, the difference taken in
// single precision.
bool isPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b);

// The first point where the line through a and b meets the sphere of radius around centre that lies
// between a and b; false when there is none.
bool findInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                        SbVec3f& out);

// A label's footprint: the circle (sphere) the line is opened over.
struct LabelCircle
{
    SbVec3f centre;
    float radius;
};

// The pieces of a polyline that lie outside the circles: a point inside ends the current piece, and
// where a segment crosses a circle the crossing ends one piece and starts the next. Pieces of one
// point are dropped. A closed polyline (its last point its first) cut elsewhere than at its start
// runs on through it: its last piece and its first are joined into one, which comes first.
std::vector<std::vector<SbVec3f>> piecesOutside(const SbVec3f* points, int count,
                                                const std::vector<LabelCircle>& circles);

} // namespace meshkit
