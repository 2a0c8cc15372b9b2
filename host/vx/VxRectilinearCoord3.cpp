#include <vx/VxRectilinearCoord3.h>

#include <kx/KxException.h>

#include <algorithm>
#include <cmath>

VxRectilinearCoord3::VxRectilinearCoord3(const KxDim3l& dims, KxDArray<float> x, KxDArray<float> y,
                                         KxDArray<float> z)
    : VxCoord3(dims), m_x(std::move(x)), m_y(std::move(y)), m_z(std::move(z))
{
    if (int64_t(m_x.size()) != dims.nx || int64_t(m_y.size()) != dims.ny || int64_t(m_z.size()) != dims.nz)
        throw KxException("rectilinear coordinates: one position per node along each axis is needed");
    const KxDArray<float>* axes[3] = {&m_x, &m_y, &m_z};
    for (int a = 0; a < 3; ++a)
        for (std::size_t i = 0; i < axes[a]->size(); ++i)
            if (!std::isfinite((*axes[a])[i]))
                throw KxException(QString("position %1 of the %2 coordinates is not a finite number")
                                      .arg(i)
                                      .arg(QChar('x' + a)));
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
    requireFiniteExtent(m_box, "the coordinates");
}
