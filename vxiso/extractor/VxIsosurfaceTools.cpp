#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <kx/KxException.h>

#include <QStringList>

#include <atomic>
#include <climits>

namespace vxiso::tools {

CurvField3Accessor::CurvField3Accessor(const VxRegScalarField3& field) : m_field(&field)
{
    const KxDim3l& d = field.getDims();
    m_dims = KxVec3i(int32_t(d.nx), int32_t(d.ny), int32_t(d.nz));
    const VxCoord3* coords = field.lattice().coords();
    if (coords->coordType() == VX_COORD_CURVILINEAR) {
        m_positions = static_cast<const VxCurvilinearCoord3*>(coords)->positions();
        return;
    }
    // Other coordinate kinds answer per node through a virtual call; ask once, up front.
    m_ownPositions.resize(std::size_t(3 * d.count()));
    float* out = m_ownPositions.data();
    for (int64_t k = 0; k < d.nz; ++k)
        for (int64_t j = 0; j < d.ny; ++j)
            for (int64_t i = 0; i < d.nx; ++i, out += 3) {
                const KxVec3f p = coords->pos(i, j, k);
                out[0] = p.x;
                out[1] = p.y;
                out[2] = p.z;
            }
    m_positions = m_ownPositions.data();
}

namespace {
std::atomic<uint64_t> g_maxSurfaceElements{0};
}

uint64_t maxSurfaceElements()
{
    const uint64_t lowered = g_maxSurfaceElements;
    return lowered ? lowered : uint64_t(INT_MAX);
}

void setMaxSurfaceElements(uint64_t limit)
{
    g_maxSurfaceElements = limit;
}

void checkSurfaceSize(uint64_t vertices, uint64_t triangles)
{
    const uint64_t limit = maxSurfaceElements();
    if (vertices <= limit && triangles <= limit) return;
    QStringList counts;
    if (vertices > limit) counts << QString("%1 vertices").arg(vertices);
    if (triangles > limit) counts << QString("%1 triangles").arg(triangles);
    throw KxException(QString("the surface would have %1; a surface holds at most %2 of each (choose another "
                              "threshold, down-sample or cut the volume)")
                          .arg(counts.join(" and "))
                          .arg(limit));
}

} // namespace vxiso::tools
