#include <vx/VxCoord3.h>

#include <kx/KxException.h>
#include <kx/KxLatticeSize.h>

#include <algorithm>
#include <cmath>

void VxCoord3::requireFiniteExtent(const KxBox3f& box, const char* what)
{
    for (int a = 0; a < 3; ++a)
        if (!std::isfinite(box.max(a) - box.min(a)))
            throw KxException(QString("%1 span more than single-precision numbers can hold along %2")
                                  .arg(what)
                                  .arg(QChar('x' + a)));
}

void VxUniformCoord3::setBoundingBox(const KxBox3f& box, const KxVec3f& spacing)
{
    m_box = box;
    m_singleNodeSpacing = spacing;
}

KxVec3f VxUniformCoord3::getVoxelSize() const
{
    KxVec3f v = m_box.getVoxelSize(m_dims);
    for (int a = 0; a < 3; ++a)
        if (m_dims[a] == 1) v[a] = m_singleNodeSpacing[a];
    return v;
}

KxVec3f VxUniformCoord3::pos(int64_t i, int64_t j, int64_t k) const
{
    const KxVec3f d = getVoxelSize();
    return {m_box.xmin + float(i) * d.x, m_box.ymin + float(j) * d.y, m_box.zmin + float(k) * d.z};
}

VxCurvilinearCoord3::VxCurvilinearCoord3(const KxDim3l& dims, KxDArray<float> xyz)
    : VxCoord3(dims), m_xyz(std::move(xyz))
{
    // pos() reads three floats a node without bounds: the array must hold exactly that.
    KxLatticeSize size;
    const QString bad = KxLatticeSize::check(dims, KxPrimType::FLOAT, 0, &size);
    if (!bad.isEmpty()) throw KxException("curvilinear coordinates: " + bad);
    const uint64_t n = size.nodes;
    if (uint64_t(m_xyz.size()) != 3 * n)
        throw KxException(QString("curvilinear coordinates of %1 x %2 x %3 nodes need %4 floats, not %5")
                              .arg(dims.nx)
                              .arg(dims.ny)
                              .arg(dims.nz)
                              .arg(3 * n)
                              .arg(m_xyz.size()));
    for (uint64_t v = 0; v < n; ++v) {
        const float* p = m_xyz.data() + 3 * v;
        if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2]))
            throw KxException(QString("point %1 has a coordinate that is not a finite number").arg(v));
    }
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
    requireFiniteExtent(m_box, "the points");
}
