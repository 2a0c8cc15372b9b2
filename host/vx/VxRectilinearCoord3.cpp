#include <vx/VxRectilinearCoord3.h>

#include <kx/KxException.h>

#include <algorithm>

VxRectilinearCoord3::VxRectilinearCoord3(const KxDim3l& dims, KxDArray<float> x, KxDArray<float> y,
                                         KxDArray<float> z)
    : VxCoord3(dims), m_x(std::move(x)), m_y(std::move(y)), m_z(std::move(z))
{
    if (int64_t(m_x.size()) != dims.nx || int64_t(m_y.size()) != dims.ny || int64_t(m_z.size()) != dims.nz)
        throw KxException("rectilinear coordinates: one position per node along each axis is needed");
    // Positions need not increase; the box spans whatever they cover.
    auto span = [](const KxDArray<float>& v, float& lo, float& hi) {
        if (v.empty()) return;
        const auto mm = std::minmax_element(v.begin(), v.end());
        lo = *mm.first;
        hi = *mm.second;
    };
    span(m_x, m_box.xmin, m_box.xmax);
    span(m_y, m_box.ymin, m_box.ymax);
    span(m_z, m_box.zmin, m_box.zmax);
}
