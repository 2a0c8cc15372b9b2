#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>
#include <vx/VxCoord3.h>

#include <memory>
#include <mutex>

class VxCellBuckets;

// Tag of the constructors that read values kept by someone else (an array of another language, a
// mapped file): the lattice never frees them, and their owner keeps them alive while it lives.
struct VxBorrowedValues
{
};

// Values of one primitive type on a 3-D lattice of nodes (x fastest, then y, then z), with the
// coordinates of the nodes. Owns both, unless the values are borrowed.
class VxLattice3
{
public:
    // Adopts data (allocated with kxmalloc) and coords when given, even when it throws; otherwise
    // allocates zeroed values. Throws KxException for dimensions too large to index.
    VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data = nullptr);
    // Reads data in place without owning it; adopts coords. data must hold the dims' values.
    VxLattice3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data, VxBorrowedValues);
    VxLattice3(const VxLattice3&) = delete;
    VxLattice3& operator=(const VxLattice3&) = delete;
    ~VxLattice3();

    const KxDim3l& getDims() const { return m_dims; }
    KxPrimType primType() const { return m_type; }
    void* dataPtr() { return m_data.get(); }
    const void* dataPtr() const { return m_data.get(); }
    KxTypedPointer typedPointer() { return {m_data.get(), m_type}; }
    std::size_t byteSize() const { return std::size_t(m_dims.count()) * m_type.size(); }

    VxCoord3* coords() { return m_coords.get(); }
    const VxCoord3* coords() const { return m_coords.get(); }
    // Replaces the coordinates (and drops the cell index made of the old ones).
    void setCoords(VxCoord3* coords);

    // Cells along an axis: one less than the nodes, one for an axis of one node (a layer). Cells are
    // numbered x fastest and named by their lowest node.
    int64_t numCells(int axis) const { return m_dims[axis] > 1 ? m_dims[axis] - 1 : 1; }
    // The box of a cell's nodes.
    KxBox3f cellBox(int64_t i, int64_t j, int64_t k) const;
    // The spatial index of the cells, for point location off uniform axes: built on the first call
    // (safely against concurrent first calls) and kept until the coordinates change.
    const VxCellBuckets& cellIndex() const;

    // The node's value converted exactly to double.
    double valueAt(int64_t index) const;

private:
    KxDim3l m_dims;
    KxPrimType m_type;
    // Members own what they adopt from the start, so that a throwing constructor frees it too.
    std::unique_ptr<void, void (*)(void*)> m_data;
    std::unique_ptr<VxCoord3> m_coords;
    mutable std::mutex m_indexMutex;
    mutable std::unique_ptr<VxCellBuckets> m_cellIndex;
};
