#pragma once
#include <Inventor/SbVec3f.h>

// Where the sampling of a slice evaluates its field: set finds the point from scratch, move from
// where the location was last (cheaper, since the samples of a row are neighbours), evaluate gives
// the field's value there. Each answers false when the point is outside the field or the value
// cannot be had. The sampling takes any type with these three calls; this class lets a caller
// pick the field at run time instead.
class VxIsolineFieldLocation
{
public:
    virtual ~VxIsolineFieldLocation() = default;
    virtual bool set(const SbVec3f& point) = 0;
    virtual bool move(const SbVec3f& point) = 0;
    virtual bool evaluate(float& value) = 0;
};
