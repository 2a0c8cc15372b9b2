#pragma once
#include <vx/VxCoord3.h>
#include <vx/VxLabelLattice3.h>
#include <vx/VxSpatialData.h>

// Label field on uniform coordinates, used as a mask.
class VxUniformLabelField3 : public VxSpatialData
{
    KX_HEADER(VxUniformLabelField3)

public:
    VxUniformLabelField3(const KxDim3l& dims, KxPrimType type = KxPrimType::UINT8, void* labels = nullptr);

    VxLabelLattice3& lattice() { return m_lattice; }
    const VxLabelLattice3& lattice() const { return m_lattice; }
    const KxDim3l& getDims() const { return m_lattice.getDims(); }
    KxBox3f getBoundingBox() const override { return m_coords.getBoundingBox(); }
    // Distance between neighbouring nodes; the kept spacing along an axis of one node.
    KxVec3f getVoxelSize() const { return m_coords.getVoxelSize(); }

    // Keeps one region: voxels labelled `label` become 1, all others 0 (an atlas turned into the
    // mask of one of its regions). Returns the number of voxels kept.
    int64_t keepLabel(double label);
    // Voxels holding the label.
    int64_t countLabel(double label) const;
    // Script words: "keepLabel L", "countLabel L".
    int parse(Tcl_Interp* interp, int argc, char** argv) override;
    QStringList commands() const override;
    void setBoundingBox(const KxBox3f& box) { m_coords.setBoundingBox(box); }
    // The box, and the spacing that axes of one node keep.
    void setBoundingBox(const KxBox3f& box, const KxVec3f& spacing) { m_coords.setBoundingBox(box, spacing); }

private:
    VxLabelLattice3 m_lattice;
    VxUniformCoord3 m_coords;
};
