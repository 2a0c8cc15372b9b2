#include <vxiso/VxSlabExtraction.h>

#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/extractor/VxIsosurfaceAxis.h>
#include <vxiso/extractor/VxParallelIsosurfaceMarchingCubes.h>

#include <kx/KxException.h>

#include <QString>

#include <type_traits>

namespace vxiso {
template <class Tools, class Axis> class VxIsosurfaceParallelStandardCubes;
template <class Tools, class Axis> class VxIsosurfaceParallelCompactCubes;
} // namespace vxiso

// Defined in extractor/VxSlabExtractionImpl.h and instantiated with the threaded path's units, so
// that both run one copy of the engine.
namespace vxiso::detail {
template <class T, template <class, class> class Cubes, class Filter, class Axis>
std::unique_ptr<VxSlabExtraction> makeSlabExtraction(const VxVolumeWindow& window, float iso,
                                                     float snapFraction);
}

VxSlabExtraction::~VxSlabExtraction() = default;

std::vector<VxSlabExtraction::Slab> VxSlabExtraction::evenSlabs(uint64_t firstCell, uint64_t endCell,
                                                                uint64_t count, uint64_t n)
{
    std::vector<Slab> slabs;
    for (const vxiso::SlabLayers& s : vxiso::evenSlabs(firstCell, endCell, count, n))
        slabs.push_back({s.begin, s.end});
    return slabs;
}

void VxSlabExtraction::checkSlabCount(uint64_t nodes, uint64_t slabs, int axis)
{
    vxiso::tools::checkSlabCount(nodes, slabs, axis);
}

namespace {

template <class T, class Axis>
std::unique_ptr<VxSlabExtraction> make(const VxVolumeWindow& w, bool compact, float iso, float snap)
{
    using vxiso::filter::UndefinedValue;
    if (compact)
        return vxiso::detail::makeSlabExtraction<T, vxiso::VxIsosurfaceParallelCompactCubes, UndefinedValue,
                                                 Axis>(w, iso, snap);
    return vxiso::detail::makeSlabExtraction<T, vxiso::VxIsosurfaceParallelStandardCubes, UndefinedValue,
                                             Axis>(w, iso, snap);
}

} // namespace

std::unique_ptr<VxSlabExtraction> VxSlabExtraction::create(const VxVolumeWindow& window, int axis,
                                                           bool compact, float isoValue, float snapFraction)
{
    std::unique_ptr<VxSlabExtraction> made;
    const bool known = kxDispatchPrimType(window.type, nullptr, [&](auto* typed) {
        using T = std::remove_pointer_t<decltype(typed)>;
        if (axis == 0) made = make<T, vxiso::tools::Xaxis>(window, compact, isoValue, snapFraction);
        if (axis == 1) made = make<T, vxiso::tools::Yaxis>(window, compact, isoValue, snapFraction);
        if (axis == 2) made = make<T, vxiso::tools::Zaxis>(window, compact, isoValue, snapFraction);
    });
    if (!known) throw KxException("the slab engine takes no values of this type");
    if (!made) throw KxException(QString("no split axis %1: the axis is 0, 1 or 2").arg(axis));
    return made;
}
