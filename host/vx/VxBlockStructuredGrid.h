#pragma once
#include <kx/KxBox3.h>

#include <vector>

class VxCoord3;
class VxRegScalarField3;

// The zones of a multi-block structured grid: per zone its node counts and node positions. The
// zones are the blocks of a block-structured field, which owns them; the grid reads their lattices,
// so it always describes the blocks as they are.
class VxBlockStructuredGrid
{
public:
    int getNumZones() const { return int(m_zones.size()); }
    // Node counts of a zone; (0, 0, 0) for a zone that does not exist.
    KxDim3l getZoneDims(int zone) const;
    // Node positions of a zone; null for a zone that does not exist.
    const VxCoord3* getZoneCoords(int zone) const;
    // The box around all zones; all zeros without zones.
    KxBox3f getBoundingBox() const;

    void addZone(const VxRegScalarField3* block) { m_zones.push_back(block); }
    void clear() { m_zones.clear(); }

private:
    std::vector<const VxRegScalarField3*> m_zones;
};
