#pragma once
#include <vxiso/VxIsosurface.h>

#include <vx/VxLabelLattice3.h>
#include <vx/VxPortRadioBox.h>

#include <memory>

// The isosurface restricted to a label mask: only cubes whose nodes carry a positive label give
// triangles. "relaxed" first grows the mask's label 1 by one voxel (written back into the mask),
// so triangles of cubes on the region's border survive.
class VxMaskedLabelIsosurface : public VxIsosurface
{
    KX_PACKAGE_HEADER(VxMaskedLabelIsosurface)

public:
    VxMaskedLabelIsosurface();
    ~VxMaskedLabelIsosurface() override;

    VxConnection portMask;
    VxPortRadioBox portMaskRestrictionType;

    void update() override;
    // Refuses, in one line that names both, a mask whose nodes are not the volume's; else extracts
    // as the plain module does.
    void compute() override;
    // Accepts a colour map unless it is the object that the mask's label field is linked to.
    static int sourceCheckColorMap(void* userData, VxObject* candidate);

protected:
    void extractIsoSurfaceFromRegField3(const VxRegScalarField3* field,
                                        VxIsosurfaceExtractor& extractor) override;

private:
    // The mask on the nodes of the down-sampled copy that the module extracts from while the
    // threshold is dragged or "Down Sample" is on; throws when the mask does not fit the field.
    std::unique_ptr<VxLabelLattice3> maskOfResampledField(const VxLabelLattice3& mask,
                                                          const VxRegScalarField3& field) const;
};

void kxInitClass_VxMaskedLabelIsosurface();
void kxExitClass_VxMaskedLabelIsosurface();
