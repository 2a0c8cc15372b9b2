#pragma once
#include <kx/KxBox3.h>
#include <vx/VxLocation3.h>
#include <vx/VxObject.h>

#include <Inventor/SbMatrix.h>

#include <memory>

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

public:
    // A location for evaluating the field at points (see VxLocation3); null for a field that
    // cannot be evaluated between its nodes (hexahedral grids). The field must outlive it.
    virtual std::unique_ptr<VxLocation3> createLocation() const { return nullptr; }
};
