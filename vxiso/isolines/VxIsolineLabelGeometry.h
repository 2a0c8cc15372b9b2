#pragma once
#include <vxiso/isolines/VxIsolineLines.h>

#include <Inventor/SbVec3f.h>

#include <functional>
#include <vector>

// The geometry of value labels on contour lines: where along a line labels go, and how the lines
// are opened under them ("contour clip").

// A placed label: its anchor on the line, half its text's width (the radius of the circle it
// covers), and its line's value truncated to an integer (what the clip compares).
struct VxIsolineTextVertex
{
    SbVec3f position;
    float radius;
    float value;
};

// Whether p lies on the segment a-b: | |p - a| + |p - b| - |b - a| | < 1e-5, the difference taken in
// single precision.
bool vxIsPointBetweenPoints(const SbVec3f& p, const SbVec3f& a, const SbVec3f& b);

// The first point where the line through a and b meets the sphere of radius around centre that lies
// between a and b; false when there is none.
bool vxFindInBetweenPoint(const SbVec3f& centre, const SbVec3f& a, const SbVec3f& b, float radius,
                          SbVec3f& out);

// The walk along a line that proposes label anchors gap apart: from the first point, each point of
// the line farther than gap from the current anchor moves the anchor to the point gap away from it on
// the segment that ends there, and proposes it with the line's direction there (the mean of its two
// neighbouring segments; past the last point the line goes on from its first, as a closed line
// does). Lines of fewer than two points propose nothing.
void vxWalkLabelAnchors(const SbVec3f* points, int count, float gap,
                        const std::function<void(const SbVec3f& anchor, const SbVec3f& tangent)>& propose);

// The lines opened under the labels: each line loses what lies inside the circles of the labels of
// its own value (compared as the label's value, the line's truncated to an integer); where a segment
// crosses a circle, the crossing ends one piece and starts the next. Every piece of two or more
// points is a line of its own with its line's value and colour, in the order of the lines. A closed
// line cut elsewhere than at its start runs on through it: its last piece and its first are joined
// into one, which comes first.
VxIsolineLines vxClipUnderLabels(const VxIsolineLines& lines, const std::vector<VxIsolineTextVertex>& labels);
