#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxConnection.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>

VxConnection* VxRangeProviderSpatialData::getConnection() const
{
    if (!m_owner) return nullptr;
    VxConnection* first = nullptr;
    for (VxPort* p : m_owner->getAllPorts()) {
        auto* c = dynamic_cast<VxConnection*>(p);
        if (!c) continue;
        if (c->getName() == "data") return c;
        if (!first) first = c;
    }
    return first;
}

bool VxRangeProviderSpatialData::getRange(double& min, double& max) const
{
    VxConnection* c = getConnection();
    return rangeOf(c ? c->getSource() : nullptr, min, max);
}

bool VxRangeProviderSpatialData::rangeOf(const VxObject* data, double& min, double& max)
{
    min = max = 0;
    if (const auto* blocks = kx_type_cast<VxBlockStructuredScalarField3>(data))
        return blocks->getRange(min, max, VxRegScalarField3::RANGE_SKIP_UNDEFINED);
    if (const auto* tetra = kx_type_cast<VxTetraScalarField3>(data)) return tetra->getRange(min, max);
    if (const auto* hexa = kx_type_cast<VxHexaScalarField3>(data)) return hexa->getRange(min, max);
    const auto* field = kx_type_cast<VxRegScalarField3>(data);
    if (!field) return false;
    int mode =
        field->hasUndefinedValue() ? VxRegScalarField3::RANGE_SKIP_UNDEFINED : VxRegScalarField3::RANGE_ALL;
    return field->getRange(min, max, mode);
}

bool VxRangeProviderSpatialData::isDiscrete() const
{
    VxConnection* c = getConnection();
    const VxRegScalarField3* field = c ? vxconnection_cast<VxRegScalarField3>(*c) : nullptr;
    if (!field) return false;
    int t = field->primType();
    return t != KxPrimType::FLOAT && t != KxPrimType::DOUBLE && t != KxPrimType::UNKNOWN;
}
