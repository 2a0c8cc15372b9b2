#pragma once
#include <vx/VxLattice3.h>
#include <vx/VxSpatialData.h>

// Scalar field on a regular lattice (uniform, stacked, rectilinear or curvilinear coordinates).
class VxRegScalarField3 : public VxScalarField3
{
    KX_HEADER(VxRegScalarField3)

public:
    // Takes ownership of coords and of data (kxmalloc'd; null allocates zeroed values).
    VxRegScalarField3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data = nullptr);
    // Reads data in place; its owner keeps it alive while the field lives (see VxBorrowedValues).
    VxRegScalarField3(const KxDim3l& dims, KxPrimType type, VxCoord3* coords, void* data, VxBorrowedValues);

    VxLattice3& lattice() { return m_lattice; }
    const VxLattice3& lattice() const { return m_lattice; }
    const KxDim3l& getDims() const { return m_lattice.getDims(); }
    KxPrimType primType() const { return m_lattice.primType(); }
    VxCoordType coordType() const { return m_lattice.coords()->coordType(); }
    KxBox3f getBoundingBox() const override { return m_lattice.coords()->getBoundingBox(); }

    // Value of node (i, j, k) in single precision.
    float evalReg(int i, int j, int k) const { return float(evalRegDouble(i, j, k)); }
    // Value of node (i, j, k) converted exactly to double.
    double evalRegDouble(int i, int j, int k) const
    {
        const KxDim3l& d = getDims();
        return m_lattice.valueAt((int64_t(k) * d.ny + j) * d.nx + i);
    }

    enum RangeMode
    {
        RANGE_ALL = 0,           // every value (NaN is never a minimum or maximum)
        RANGE_SKIP_UNDEFINED = 2 // values equal to the undefined value are left out
    };
    // Smallest and largest value; false when no value qualifies (min and max are then 0).
    bool getRange(double& min, double& max, int mode = RANGE_ALL) const;
    // Trilinear interpolation in the lattice's cells (VxRegLocation3).
    std::unique_ptr<VxLocation3> createLocation() const override;

    bool hasUndefinedValue() const override { return m_hasUndefined; }
    double getUndefinedValue() const { return m_undefined; }
    void setUndefinedValue(double v)
    {
        m_undefined = v;
        m_hasUndefined = true;
    }
    void clearUndefinedValue() { m_hasUndefined = false; }
    // True when v counts as undefined: equal to the undefined value, or NaN when that is NaN.
    bool isUndefined(double v) const
    {
        return m_hasUndefined && (v == m_undefined || (v != v && m_undefined != m_undefined));
    }

    // Divisor of the central differences of the gradient at a node; the voxel size unless the
    // coordinates say otherwise.
    virtual KxVec3f getGradientSpacing(const KxVec3i& node, const KxVec3f& voxelSize) const
    {
        (void)node;
        return voxelSize;
    }

private:
    VxLattice3 m_lattice;
    double m_undefined = 0;
    bool m_hasUndefined = false;
};

// Field on uniform coordinates; the bounding box spans the nodes.
class VxUniformScalarField3 : public VxRegScalarField3
{
    KX_HEADER(VxUniformScalarField3)

public:
    // Adopts data (kxmalloc'd) when given, else allocates zeroed values. The box defaults to
    // [0, n-1] per axis.
    VxUniformScalarField3(const KxDim3l& dims, KxPrimType type, void* data = nullptr);
    // Reads data in place; its owner keeps it alive while the field lives (see VxBorrowedValues).
    VxUniformScalarField3(const KxDim3l& dims, KxPrimType type, void* data, VxBorrowedValues);
    // Keeps the spacing of axes of one node (see VxUniformCoord3).
    void setBoundingBox(const KxBox3f& box);
    // The box, and the spacing that axes of one node keep.
    void setBoundingBox(const KxBox3f& box, const KxVec3f& spacing);
    // Distance between neighbouring nodes; the kept spacing along an axis of one node.
    KxVec3f getVoxelSize() const;
};
