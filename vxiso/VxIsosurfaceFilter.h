#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>
#include <vx/VxLabelLattice3.h>
#include <vx/VxRegScalarField3.h>

// Node filters of the marching-cubes traversals: which nodes may carry surface. An edge gets a
// vertex only when both its nodes are accepted; triangles that use a rejected edge are dropped.

namespace vxiso::filter {

// Rejects nodes holding the field's undefined value (compared exactly, in double; a NaN undefined
// value matches NaN nodes).
class UndefinedValue
{
public:
    UndefinedValue(const VxRegScalarField3& field)
        : UndefinedValue(field.lattice().dataPtr(), field.primType(), KxVec3i(0, 0, 0), dimsOf(field),
                         field.hasUndefinedValue(),
                         field.hasUndefinedValue() ? field.getUndefinedValue() : 0.0)
    {
    }
    // The same for a volume of which only a box is in memory: values holds the stored.x * stored.y *
    // stored.z nodes from node first on, which are addressed by their indices in the whole volume.
    UndefinedValue(const void* values, KxPrimType type, const KxVec3i& first, const KxVec3i& stored,
                   bool hasUndefined, double undefined)
        : m_values(values), m_read(kxValueReader(type)), m_rowStride(stored.x),
          m_sliceStride(int64_t(stored.x) * stored.y),
          m_base((int64_t(first.z) * stored.y + first.y) * stored.x + first.x), m_hasUndefined(hasUndefined),
          m_undefined(hasUndefined ? undefined : 0.0)
    {
    }

    bool active() const { return m_hasUndefined; }
    bool acceptCell(const KxVec3i&) const { return true; }
    bool acceptNode(const KxVec3i& n) const
    {
        const double v = m_read(m_values, n.z * m_sliceStride + n.y * m_rowStride + n.x - m_base);
        return !(v == m_undefined || (v != v && m_undefined != m_undefined));
    }

private:
    static KxVec3i dimsOf(const VxRegScalarField3& field)
    {
        const KxDim3l& d = field.getDims();
        return KxVec3i(int32_t(d.nx), int32_t(d.ny), int32_t(d.nz));
    }

    const void* m_values;
    KxValueReader m_read;
    int64_t m_rowStride, m_sliceStride, m_base;
    bool m_hasUndefined;
    double m_undefined;
};

// Restricts the surface to nodes whose label is positive (and that are not undefined). Cells are
// all accepted on purpose: the restriction acts on edges only, so the surface ends cleanly on the
// mask's border.
class LabelIsoSurfaceFilter
{
public:
    LabelIsoSurfaceFilter(const VxRegScalarField3& field, const VxLabelLattice3* labels)
        : m_field(&field), m_hasUndefined(field.hasUndefinedValue()),
          m_undefined(field.hasUndefinedValue() ? field.getUndefinedValue() : 0.0), m_labels(labels)
    {
    }

    bool active() const { return m_hasUndefined || m_labels; }
    bool acceptCell(const KxVec3i&) const { return true; }
    bool acceptNode(const KxVec3i& n) const
    {
        if (m_hasUndefined) {
            const double v = m_field->evalRegDouble(n.x, n.y, n.z);
            const bool undefined = v == m_undefined || (v != v && m_undefined != m_undefined);
            if (m_labels) return !undefined && label(n) > 0.0f;
            return !undefined;
        }
        return m_labels ? label(n) > 0.0f : true;
    }

private:
    float label(const KxVec3i& n) const
    {
        const KxDim3l& d = m_labels->getDims();
        return m_labels->labelAt((int64_t(n.z) * d.ny + n.y) * d.nx + n.x);
    }

    const VxRegScalarField3* m_field;
    bool m_hasUndefined;
    double m_undefined;
    const VxLabelLattice3* m_labels;
};

} // namespace vxiso::filter
