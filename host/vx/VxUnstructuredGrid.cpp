#include <vx/VxUnstructuredGrid.h>

#include <kx/KxException.h>

#include <algorithm>
#include <cmath>
#include <limits>

KX_ABSTRACT_SOURCE(VxUnstructuredGrid, VxSpatialData)

VxUnstructuredGrid::VxUnstructuredGrid(const char* kind, std::vector<float> xyz)
    : m_kind(kind), m_xyz(std::move(xyz))
{
    if (m_xyz.size() % 3)
        throw KxException(QString("%1: %2 coordinates do not make whole nodes (3 a node)")
                              .arg(kind)
                              .arg(qulonglong(m_xyz.size())));
    const std::size_t n = m_xyz.size() / 3;
    if (n > std::size_t(std::numeric_limits<int32_t>::max()))
        throw KxException(
            QString("%1: %2 nodes are more than 32-bit indices reach").arg(kind).arg(qulonglong(n)));
    m_numNodes = int32_t(n);
    for (std::size_t i = 0; i < m_xyz.size(); ++i)
        if (!std::isfinite(m_xyz[i]))
            throw KxException(QString("%1: node %2 has a coordinate that is not a finite number")
                                  .arg(kind)
                                  .arg(qulonglong(i / 3)));
    if (n == 0) return;
    float lo[3], hi[3];
    for (int a = 0; a < 3; ++a) lo[a] = hi[a] = m_xyz[a];
    for (std::size_t i = 0; i < n; ++i)
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], m_xyz[3 * i + a]);
            hi[a] = std::max(hi[a], m_xyz[3 * i + a]);
        }
    m_box = KxBox3f(lo[0], hi[0], lo[1], hi[1], lo[2], hi[2]);
}

int32_t VxUnstructuredGrid::checkCells(const std::vector<int32_t>& cells, int n, const char* cellName,
                                       const char* cellsName) const
{
    if (cells.size() % std::size_t(n))
        throw KxException(QString("%1: %2 node indices do not make whole %3 (%4 a %5)")
                              .arg(m_kind)
                              .arg(qulonglong(cells.size()))
                              .arg(cellsName)
                              .arg(n)
                              .arg(cellName));
    const std::size_t count = cells.size() / std::size_t(n);
    if (count > std::size_t(std::numeric_limits<int32_t>::max()))
        throw KxException(QString("%1: %2 %3 are more than 32-bit indices reach")
                              .arg(m_kind)
                              .arg(qulonglong(count))
                              .arg(cellsName));
    for (std::size_t i = 0; i < cells.size(); ++i)
        if (cells[i] < 0 || cells[i] >= m_numNodes)
            throw KxException(QString("%1: %2 %3 uses node %4, but %5")
                                  .arg(m_kind)
                                  .arg(cellName)
                                  .arg(qulonglong(i / std::size_t(n)))
                                  .arg(cells[i])
                                  .arg(m_numNodes ? QString("the nodes are 0 to %1").arg(m_numNodes - 1)
                                                  : QString("the grid has no nodes")));
    return int32_t(count);
}

const VxCellBuckets& VxUnstructuredGrid::cellBuckets() const
{
    std::call_once(m_bucketsOnce, [this] {
        const int corners = cellSize();
        m_buckets = std::make_unique<VxCellBuckets>(numCells(), [this, corners](int64_t c) {
            const int32_t* n = cellNodes(c);
            KxVec3f lo = getNode(n[0]), hi = lo;
            for (int i = 1; i < corners; ++i) {
                const KxVec3f q = getNode(n[i]);
                for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], q[a]), hi[a] = std::max(hi[a], q[a]);
            }
            return KxBox3f(lo.x, hi.x, lo.y, hi.y, lo.z, hi.z);
        });
    });
    return *m_buckets;
}
