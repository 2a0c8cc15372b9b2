#pragma once
#include <kx/KxBox3.h>
#include <kx/KxDArray.h>

// Kind of a lattice's coordinates; the codes are the host's.
enum VxCoordType
{
    VX_COORD_UNIFORM = 1,
    VX_COORD_STACKED = 2,
    VX_COORD_RECTILINEAR = 3,
    VX_COORD_CURVILINEAR = 4
};

// Positions of a lattice's nodes.
class VxCoord3
{
public:
    explicit VxCoord3(const KxDim3l& dims) : m_dims(dims) {}
    virtual ~VxCoord3() = default;

    virtual VxCoordType coordType() const = 0;
    virtual KxBox3f getBoundingBox() const = 0;
    virtual KxVec3f pos(int64_t i, int64_t j, int64_t k) const = 0;
    virtual VxCoord3* clone() const = 0;
    const KxDim3l& dims() const { return m_dims; }

protected:
    // Throws KxException unless the box spans a finite length along every axis: positions so far
    // apart that their distance overflows single precision give infinite or undefined vertices.
    // what names the positions in the message ("the points").
    static void requireFiniteExtent(const KxBox3f& box, const char* what);

    KxDim3l m_dims;
};

// Nodes evenly spaced between the box's minimum and maximum. The box of an axis of one node has
// no length, yet that node still stands for a slice of some thickness (a single-slice scan): its
// spacing is kept beside the box, 1 unless set, for the voxel size, padding and reports.
class VxUniformCoord3 : public VxCoord3
{
public:
    VxUniformCoord3(const KxDim3l& dims, const KxBox3f& box) : VxCoord3(dims), m_box(box) {}

    VxCoordType coordType() const override { return VX_COORD_UNIFORM; }
    KxBox3f getBoundingBox() const override { return m_box; }
    // Keeps the spacing of axes of one node.
    void setBoundingBox(const KxBox3f& box) { m_box = box; }
    // The box, and the spacing that axes of one node keep (the box decides the others).
    void setBoundingBox(const KxBox3f& box, const KxVec3f& spacing);
    // Distance between neighbouring nodes; the kept spacing along an axis of one node.
    KxVec3f getVoxelSize() const;
    KxVec3f pos(int64_t i, int64_t j, int64_t k) const override;
    VxCoord3* clone() const override { return new VxUniformCoord3(*this); }

private:
    KxBox3f m_box;
    KxVec3f m_singleNodeSpacing{1, 1, 1};
};

// One position per node, x fastest.
class VxCurvilinearCoord3 : public VxCoord3
{
public:
    // xyz holds 3 floats per node, each finite; throws KxException when it does not.
    VxCurvilinearCoord3(const KxDim3l& dims, KxDArray<float> xyz);

    VxCoordType coordType() const override { return VX_COORD_CURVILINEAR; }
    KxBox3f getBoundingBox() const override { return m_box; }
    KxVec3f pos(int64_t i, int64_t j, int64_t k) const override
    {
        const float* p = m_xyz.data() + 3 * ((k * m_dims.ny + j) * m_dims.nx + i);
        return {p[0], p[1], p[2]};
    }
    const float* positions() const { return m_xyz.data(); }
    VxCoord3* clone() const override { return new VxCurvilinearCoord3(*this); }

private:
    KxDArray<float> m_xyz;
    KxBox3f m_box;
};
