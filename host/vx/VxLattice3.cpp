#include <vx/VxCellBuckets.h>
#include <vx/VxLattice3.h>

#include <kx/KxException.h>
#include <kx/KxLatticeSize.h>
#include <kx/KxMemory.h>

#include <algorithm>
#include <cfloat>
#include <cstring>

VxLattice3::VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data)
    : m_dims(dims), m_type(type), m_data(data, &kxfree), m_coords(coords)
{
    if (!type.isValid()) throw KxException("unknown primitive type of lattice values");
    const QString bad = KxLatticeSize::check(dims, type);
    if (!bad.isEmpty()) throw KxException("lattice " + bad);
    if (!m_data && byteSize()) {
        m_data.reset(kxmalloc(byteSize()));
        std::memset(m_data.get(), 0, byteSize());
    }
}

static void keepBorrowed(void*) {}

VxLattice3::VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data, VxBorrowedValues)
    : m_dims(dims), m_type(type), m_data(data, &keepBorrowed), m_coords(coords)
{
    if (!type.isValid()) throw KxException("unknown primitive type of lattice values");
    const QString bad = KxLatticeSize::check(dims, type);
    if (!bad.isEmpty()) throw KxException("lattice " + bad);
    if (!data && byteSize()) throw KxException("lattice of borrowed values without values");
}

double VxLattice3::valueAt(int64_t index) const
{
    double v = 0;
    kxDispatchPrimType(m_type, const_cast<void*>(m_data.get()), [&](auto* p) { v = double(p[index]); });
    return v;
}

VxLattice3::~VxLattice3() = default;

void VxLattice3::setCoords(VxCoord3* coords)
{
    std::lock_guard<std::mutex> lock(m_indexMutex);
    m_coords.reset(coords);
    m_cellIndex.reset();
}

KxBox3f VxLattice3::cellBox(int64_t i, int64_t j, int64_t k) const
{
    KxVec3f lo(FLT_MAX, FLT_MAX, FLT_MAX), hi(-FLT_MAX, -FLT_MAX, -FLT_MAX);
    for (int c = 0; c < 8; ++c) {
        const int64_t idx[3] = {i + ((c & 1) && m_dims.nx > 1), j + ((c & 2) && m_dims.ny > 1),
                                k + ((c & 4) && m_dims.nz > 1)};
        const KxVec3f q = m_coords->pos(idx[0], idx[1], idx[2]);
        for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], q[a]), hi[a] = std::max(hi[a], q[a]);
    }
    return KxBox3f(lo.x, hi.x, lo.y, hi.y, lo.z, hi.z);
}

const VxCellBuckets& VxLattice3::cellIndex() const
{
    std::lock_guard<std::mutex> lock(m_indexMutex);
    if (!m_cellIndex) {
        const int64_t nx = numCells(0), ny = numCells(1);
        m_cellIndex = std::make_unique<VxCellBuckets>(
            nx * ny * numCells(2), [&](int64_t c) { return cellBox(c % nx, c / nx % ny, c / (nx * ny)); });
    }
    return *m_cellIndex;
}
