#pragma once
#include <vx/VxRangeProvider.h>

class VxConnection;
class VxObject;

// The value range of the data connected to an object's main input: the connection named "data",
// else its first connection. For a regular scalar field this is its range, leaving out undefined
// values when the field has them; fields on tetrahedral and hexahedral grids leave out NaN.
class VxRangeProviderSpatialData : public VxRangeProvider
{
public:
    explicit VxRangeProviderSpatialData(VxObject* owner) : m_owner(owner) {}

    bool getRange(double& min, double& max) const override;
    // The same range of any data object: false (and 0, 0) for data without values.
    static bool rangeOf(const VxObject* data, double& min, double& max);
    bool isDiscrete() const override;
    VxConnection* getConnection() const;

private:
    VxObject* m_owner;
};
