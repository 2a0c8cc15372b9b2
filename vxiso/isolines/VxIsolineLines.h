#pragma once
#include <kx/KxDArray.h>

#include <Inventor/SbVec3f.h>

#include <cstdint>

class SoMFInt32;
class SoMFVec3f;
class VxLineSet;

// Contour lines as a plain line set draws them: the points of one polyline after the other (a closed
// polyline repeats its first point at its end), the number of points of each polyline, and its iso
// value and, when colours were asked for, its packed colour.
struct VxIsolineLines
{
    KxDArray<SbVec3f> points;
    KxDArray<int32_t> numVertices;
    KxDArray<float> lineValues;
    KxDArray<uint32_t> lineColors;

    int getNumLines() const { return int(numVertices.size()); }
    int getNumPoints() const { return int(points.size()); }
    void clear();

    // Gives the points and counts to a line set's fields without copying (the fields free them); does
    // nothing unless there is at least one point and one line. Values and colours stay here.
    void handTo(SoMFVec3f& vertex, SoMFInt32& counts);
    // A new line set with the same points, one line per polyline, and the iso value as the one data
    // value of each point and each line.
    VxLineSet* makeLineSet() const;
};
