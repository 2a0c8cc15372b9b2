#include <vx/VxCellBuckets.h>

#include <kx/KxException.h>

#include <QString>

#include <algorithm>
#include <cmath>

VxCellBuckets::VxCellBuckets(int64_t numCells, const std::function<KxBox3f(int64_t)>& cellBox)
{
    if (numCells <= 0) return;
    if (numCells > INT32_MAX)
        throw KxException(QString("%1 cells are more than a point index can hold").arg(qlonglong(numCells)));
    m_box = cellBox(0);
    for (int64_t c = 1; c < numCells; ++c) {
        const KxBox3f b = cellBox(c);
        for (int a = 0; a < 3; ++a) {
            (&m_box.xmin)[2 * a] = std::min(m_box.min(a), b.min(a));
            (&m_box.xmin)[2 * a + 1] = std::max(m_box.max(a), b.max(a));
        }
    }
    // Buckets as cubic as the box allows, about one for every four cells; a flat axis gets one.
    const KxVec3f size = m_box.getSize();
    const double largest = std::max({double(size.x), double(size.y), double(size.z), 1e-30});
    const double target = std::max(1.0, double(numCells) / 4.0);
    double volume = 1;
    int flat = 0;
    for (int a = 0; a < 3; ++a) {
        if (size[a] > largest * 1e-3)
            volume *= size[a] / largest;
        else
            ++flat;
    }
    const double edge = std::pow(target / volume, 1.0 / (3 - std::min(flat, 2)));
    for (int a = 0; a < 3; ++a) {
        m_n[a] = size[a] > largest * 1e-3
                     ? std::clamp<int64_t>(std::llround(edge * size[a] / largest), 1, 1024)
                     : 1;
        m_scale[a] = size[a] > 0 ? float(m_n[a]) / size[a] : 0.f;
    }
    // Count, prefix sum, fill.
    m_start.assign(std::size_t(m_n[0] * m_n[1] * m_n[2] + 1), 0);
    auto forEach = [&](const std::function<void(int64_t, int64_t)>& f) {
        for (int64_t c = 0; c < numCells; ++c) {
            const KxBox3f b = cellBox(c);
            int64_t lo[3], hi[3];
            for (int a = 0; a < 3; ++a) lo[a] = bucketOf(a, b.min(a)), hi[a] = bucketOf(a, b.max(a));
            for (int64_t k = lo[2]; k <= hi[2]; ++k)
                for (int64_t j = lo[1]; j <= hi[1]; ++j)
                    for (int64_t i = lo[0]; i <= hi[0]; ++i) f((k * m_n[1] + j) * m_n[0] + i, c);
        }
    };
    forEach([&](int64_t bucket, int64_t) { ++m_start[std::size_t(bucket + 1)]; });
    for (std::size_t i = 1; i < m_start.size(); ++i) m_start[i] += m_start[i - 1];
    m_cells.resize(std::size_t(m_start.back()));
    std::vector<int64_t> fill(m_start.begin(), m_start.end() - 1);
    forEach(
        [&](int64_t bucket, int64_t c) { m_cells[std::size_t(fill[std::size_t(bucket)]++)] = int32_t(c); });
}

int64_t VxCellBuckets::bucketOf(int axis, float v) const
{
    const double x = (double(v) - m_box.min(axis)) * m_scale[axis];
    return std::clamp<int64_t>(int64_t(std::floor(x)), 0, m_n[axis] - 1);
}

VxCellBuckets::Range VxCellBuckets::candidates(const KxVec3f& p) const
{
    if (m_cells.empty()) return {nullptr, nullptr};
    // Points a rounding error outside still look in the border buckets.
    const KxVec3f size = m_box.getSize();
    const float slack = 1e-5f * std::max({size.x, size.y, size.z});
    for (int a = 0; a < 3; ++a) {
        if (!(p[a] >= m_box.min(a) - slack && p[a] <= m_box.max(a) + slack)) return {nullptr, nullptr};
    }
    const int64_t b = (bucketOf(2, p.z) * m_n[1] + bucketOf(1, p.y)) * m_n[0] + bucketOf(0, p.x);
    return {m_cells.data() + m_start[std::size_t(b)], m_cells.data() + m_start[std::size_t(b + 1)]};
}
