#include <vx/VxBlockStructuredGrid.h>
#include <vx/VxRegScalarField3.h>

#include <algorithm>

KxDim3l VxBlockStructuredGrid::getZoneDims(int zone) const
{
    return zone >= 0 && zone < getNumZones() ? m_zones[std::size_t(zone)]->getDims() : KxDim3l();
}

const VxCoord3* VxBlockStructuredGrid::getZoneCoords(int zone) const
{
    return zone >= 0 && zone < getNumZones() ? m_zones[std::size_t(zone)]->lattice().coords() : nullptr;
}

KxBox3f VxBlockStructuredGrid::getBoundingBox() const
{
    if (m_zones.empty()) return KxBox3f();
    KxBox3f box = m_zones.front()->getBoundingBox();
    for (const VxRegScalarField3* z : m_zones) {
        const KxBox3f b = z->getBoundingBox();
        box = KxBox3f(std::min(box.xmin, b.xmin), std::max(box.xmax, b.xmax), std::min(box.ymin, b.ymin),
                      std::max(box.ymax, b.ymax), std::min(box.zmin, b.zmin), std::max(box.zmax, b.zmax));
    }
    return box;
}
