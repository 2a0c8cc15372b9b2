#pragma once
#include <kx/KxBox3.h>
#include <vx/VxObject.h>

#include <Inventor/SbMatrix.h>

// Data with a place in space: a bounding box and an optional transformation.
class VxSpatialData : public VxObject
{
    KX_HEADER(VxSpatialData)

public:
    virtual KxBox3f getBoundingBox() const = 0;

    // Fills the data's transformation; returns false (and the identity) when it has none.
    bool getTransform(SbMatrix& m) const;
    // True when the data carries a non-identity transformation.
    bool getTransform(bool) const { return m_hasTransform; }
    void setTransform(const SbMatrix& m);

    virtual bool hasUndefinedValue() const { return false; }

private:
    SbMatrix m_transform = SbMatrix::identity();
    bool m_hasTransform = false;
};

class VxScalarField3 : public VxSpatialData
{
    KX_HEADER(VxScalarField3)
};
