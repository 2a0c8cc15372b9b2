#include "BenchVolumes.h"

#include <io/VxBuiltinField.h>
#include <kx/KxHandle.h>
#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <cmath>
#include <map>

namespace vxbench {

VxUniformScalarField3* gyroid(int size, bool asUint8)
{
    static std::map<std::pair<int, bool>, KxHandle<VxUniformScalarField3>> cache;
    KxHandle<VxUniformScalarField3>& slot = cache[{size, asUint8}];
    if (slot) return slot;
    KxHandle<VxUniformScalarField3> f = VxBuiltinField::create("gyroid", size, nullptr);
    if (!asUint8) return slot = f;
    const std::size_t n = std::size_t(f->getDims().count());
    auto* bytes = static_cast<unsigned char*>(kxmalloc(n));
    const float* v = static_cast<const float*>(f->lattice().dataPtr());
    for (std::size_t i = 0; i < n; ++i) bytes[i] = (unsigned char)std::lround(127.5f + 80.f * v[i]);
    auto* u8 = new VxUniformScalarField3(f->getDims(), KxPrimType::UINT8, bytes);
    u8->setBoundingBox(f->getBoundingBox());
    return slot = u8;
}

float gyroidIso(bool asUint8)
{
    return asUint8 ? 127.5f : 0.f;
}

double cellCount(const VxUniformScalarField3& field)
{
    const KxDim3l& d = field.getDims();
    return double(d.nx - 1) * double(d.ny - 1) * double(d.nz - 1);
}

std::size_t countAbove(const VxUniformScalarField3& field, float iso)
{
    std::size_t above = 0;
    const std::size_t n = std::size_t(field.getDims().count());
    kxDispatchPrimType(field.primType(), const_cast<void*>(field.lattice().dataPtr()), [&](const auto* v) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < n; ++i) count += float(v[i]) > iso;
        above = count;
    });
    return above;
}

} // namespace vxbench
