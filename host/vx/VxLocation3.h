#pragma once
#include <Inventor/SbVec3f.h>

// A point located in a field, for evaluating the field there. set() finds the point from scratch;
// move() finds it starting from the cell of the last point found, which is much cheaper when the
// points come in a walk (the samples of a slice, row by row). After either succeeds, eval() gives
// the field's value at the point. A point outside the field is not found: set() and move() return
// false and eval() fails until a point is found again.
//
// Positions are in the field's own frame (its transformation, if any, not applied). A point that
// misses the field by a rounding error (a sample at the far border, computed in single precision)
// still counts as inside: the tolerance is 1e-5 of a cell.
//
// A location reads its field without holding it: the field must outlive it.
class VxLocation3
{
public:
    virtual ~VxLocation3() = default;
    virtual bool set(const SbVec3f& p) = 0;
    virtual bool move(const SbVec3f& p) = 0;
    // The value at the point found last; false when no point is found, or the value there is
    // undefined (an undefined or NaN value at a corner of the cell that contributes to it).
    virtual bool eval(float& value) const = 0;

protected:
    // Local coordinates within this much outside a cell count as inside it.
    static constexpr double TOLERANCE = 1e-5;
};
