#pragma once
#include <Inventor/SbVec3f.h>

#include <QImage>
#include <QString>

#include <cstdint>
#include <vector>

class VxLineSet;

// Contour lines on a slice as an SVG drawing, for papers and slides: the slice's rectangle (with its
// picture, when there is one) seen face-on, u to the right and v up, the lines in their values'
// colours, and a legend of the values beside it. Each line is a polyline in a group per iso value;
// the group carries the value, so that the drawing can be edited value by value.
struct VxIsolineSvg
{
    // The slice's rectangle: a corner and its sides along u and v (orthogonal); a point p of the
    // plane is drawn at ((p - corner) . uSide / |uSide|, (p - corner) . vSide / |vSide|).
    SbVec3f corner, uSide, vSide;
    // The slice's picture, its texel centres on the samples spanning the rectangle (row 0 along
    // the corner's side); none when null.
    QImage picture;
    // The iso values and their colours (packed 0xRRGGBBAA), in the same order.
    std::vector<float> values;
    std::vector<uint32_t> colors;
    QString title;

    // Written under a temporary name and renamed when complete. The line set's first data value of
    // each line is its iso value. False, with one sentence in error, when the file cannot be written.
    bool write(const VxLineSet& lines, const QString& path, QString* error = nullptr) const;
};
