#include <vx/VxCoord3.h>

#include <algorithm>

KxVec3f VxUniformCoord3::pos(int64_t i, int64_t j, int64_t k) const
{
    const KxVec3f d = getVoxelSize();
    return {m_box.xmin + float(i) * d.x, m_box.ymin + float(j) * d.y, m_box.zmin + float(k) * d.z};
}

VxCurvilinearCoord3::VxCurvilinearCoord3(const KxDim3l& dims, KxDArray<float> xyz)
    : VxCoord3(dims), m_xyz(std::move(xyz))
{
    const std::size_t n = m_xyz.size() / 3;
    if (n == 0) return;
    m_box = KxBox3f(m_xyz[0], m_xyz[0], m_xyz[1], m_xyz[1], m_xyz[2], m_xyz[2]);
    for (std::size_t v = 1; v < n; ++v) {
        const float* p = m_xyz.data() + 3 * v;
        m_box.xmin = std::min(m_box.xmin, p[0]);
        m_box.xmax = std::max(m_box.xmax, p[0]);
        m_box.ymin = std::min(m_box.ymin, p[1]);
        m_box.ymax = std::max(m_box.ymax, p[1]);
        m_box.zmin = std::min(m_box.zmin, p[2]);
        m_box.zmax = std::max(m_box.zmax, p[2]);
    }
}
