#include <vx/VxLineSet.h>

#include <algorithm>

KX_SOURCE(VxLineSet, VxSpatialData)

VxLineSet::VxLineSet(int numPoints, int numLines, int numDataValues)
    : m_numDataValues(std::max(0, numDataValues)), m_pointData(std::size_t(m_numDataValues)),
      m_lineData(std::size_t(m_numDataValues))
{
    setNumPoints(numPoints);
    setNumLines(numLines);
}

void VxLineSet::setNumPoints(int n)
{
    n = std::max(0, n);
    m_points.resize(3 * std::size_t(n), 0.f);
    for (KxDArray<float>& d : m_pointData) d.resize(std::size_t(n), 0.f);
}

void VxLineSet::setPoint(int i, float x, float y, float z)
{
    float* p = m_points.data() + 3 * std::size_t(i);
    p[0] = x;
    p[1] = y;
    p[2] = z;
}

void VxLineSet::setNumLines(int n)
{
    m_lines.resize(std::size_t(std::max(0, n)));
    for (KxDArray<float>& d : m_lineData) d.resize(m_lines.size(), 0.f);
}

int VxLineSet::addLine(const int* indices, int n)
{
    m_lines.emplace_back();
    KxDArray<int>& line = m_lines.back();
    for (int i = 0; i < n; ++i) line.push_back(indices[i]);
    for (KxDArray<float>& d : m_lineData) d.push_back(0.f);
    return int(m_lines.size()) - 1;
}

KxBox3f VxLineSet::getBoundingBox() const
{
    const int n = getNumPoints();
    if (n == 0) return KxBox3f();
    const float* p = m_points.data();
    KxBox3f b(p[0], p[0], p[1], p[1], p[2], p[2]);
    for (int i = 1; i < n; ++i) {
        const float* q = p + 3 * std::size_t(i);
        b.xmin = std::min(b.xmin, q[0]);
        b.xmax = std::max(b.xmax, q[0]);
        b.ymin = std::min(b.ymin, q[1]);
        b.ymax = std::max(b.ymax, q[1]);
        b.zmin = std::min(b.zmin, q[2]);
        b.zmax = std::max(b.zmax, q[2]);
    }
    return b;
}
