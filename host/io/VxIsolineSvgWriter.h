#pragma once
#include <Inventor/SbVec3f.h>

#include <QImage>
#include <QString>

#include <cstdint>
#include <vector>

class VxLineSet;

// Contour lines on a slice as an SVG drawing, for papers and slides: the slice's rectangle (with its
// picture, when there is one) seen face-on from the side its labels are written on, against its
// normal (u x v): v up and u to the left. The lines come in their values' colours, the labels as
// text, and a legend of the values beside it. Each line is a polyline in a group per iso value; the
// group carries the value, so that the drawing can be edited value by value.
struct VxIsolineSvg
{
    // The slice's rectangle: a corner and its sides along u and v (orthogonal); a point p of the
    // plane lies (p - corner) . uSide / |uSide| from the corner's side along u, and so on.
    SbVec3f corner, uSide, vSide;
    // The slice's picture, its texel centres on the samples spanning the rectangle (row 0 along
    // the corner's side); none when null.
    QImage picture;
    // The iso values and their lines' colours (packed 0xRRGGBBAA), in the same order; the legend
    // shows legendColors where given (the colours the values map to, say), else the lines' colours.
    std::vector<float> values;
    std::vector<uint32_t> colors, legendColors;
    // Seen from the side the normal points to (u to the right) instead of against it.
    bool front = false;
    QString title;
    // A label: its text's baseline centred on the anchor, along the baseline direction (in the
    // plane; zero for text turned to the viewer, drawn upright), in the height of its font.
    struct Label
    {
        SbVec3f anchor, baseline;
        QString text;
        float height;
        uint32_t color; // packed 0xRRGGBBAA
    };
    std::vector<Label> labels;

    // Written under a temporary name and renamed when complete. The line set's first data value of
    // each line is its iso value. False, with one sentence in error, when the file cannot be written.
    bool write(const VxLineSet& lines, const QString& path, QString* error = nullptr) const;
};
