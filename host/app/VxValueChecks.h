#pragma once
#include <QString>

class VxRegScalarField3;

// What a field's values do to a surface that the user may not expect, found in one pass over the
// values and only for the types where it can happen: infinities (float32, float64), whose nodes
// carry a surface unless they are marked undefined, and values that the engine's single-precision
// comparison cannot tell apart from the threshold (int32, uint32, float64). Undefined values are
// left out. Each text is a warning without its prefix, empty when there is nothing to say. lo and hi
// are the range of the defined values: where they rule both out, the values are not read again.
struct VxValueChecks
{
    QString infinities;
    QString precision;

    static VxValueChecks of(const VxRegScalarField3& field, double threshold, double lo, double hi);
};
