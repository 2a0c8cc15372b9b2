#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/VxMaskedLabelIsosurface.h>

#include <vx/VxPortColormap.h>
#include <vx/VxUniformLabelField3.h>

#include <kx/KxBitfield.h>
#include <kx/KxMorphology.h>

KX_PACKAGE_SOURCE(VxMaskedLabelIsosurface, VxIsosurface)

namespace {
QString tr(const char* text)
{
    return VxModule::translate("VxMaskedLabelIsosurface", text);
}
} // namespace

VxMaskedLabelIsosurface::VxMaskedLabelIsosurface()
    : portMask(this, tr("Mask"), "mask"), portMaskRestrictionType(this, tr("Mask Restriction Type"), "maskRestrictionType", 2)
{
    portMask.addType(VxUniformLabelField3::getClassTypeId());
    portMask.setOptional(true);
    portMaskRestrictionType.setLabel(0, tr("strict"));
    portMaskRestrictionType.setLabel(1, tr("relaxed"));
    portMaskRestrictionType.setIndex(0);
    portMaskRestrictionType.setToolTip(tr(
        "<html>Isosurface computation is restricted inside selected input masks.This restriction can be of two "
        "types:<ul>  <li><b>strict</b> only triangles that completely fit inside the region are kept</li>  "
        "<li><b>relaxed</b> all triangles that partially fit inside the region are also kept</li></ul><b>warning: "
        "this setting applies to all the masked isosurfaces of Volume Rendering Settings module</b></html>"));
    portMaskRestrictionType.hide();
    portColormap().setSourceCheck(&VxMaskedLabelIsosurface::sourceCheckColorMap, this);
}

VxMaskedLabelIsosurface::~VxMaskedLabelIsosurface() = default;

void VxMaskedLabelIsosurface::update()
{
    VxIsosurface::update();
    portMaskRestrictionType.setVisible(portMask.getSource() != nullptr);
    if (portMaskRestrictionType.isNew()) computed = false;
}

int VxMaskedLabelIsosurface::sourceCheckColorMap(void* userData, VxObject* candidate)
{
    auto* self = static_cast<VxMaskedLabelIsosurface*>(userData);
    auto* labels = vxconnection_cast<VxUniformLabelField3>(self->portMask);
    if (!labels) return 1;
    // A label field is linked to the image it labels through its own main connection.
    VxObject* linked = nullptr;
    for (VxPort* p : labels->getAllPorts())
        if (auto* c = dynamic_cast<VxConnection*>(p)) {
            linked = c->getSource();
            break;
        }
    return candidate == linked ? 0 : 1;
}

void VxMaskedLabelIsosurface::extractIsoSurfaceFromRegField3(const VxRegScalarField3* field,
                                                              VxIsosurfaceExtractor& extractor)
{
    auto* maskField = vxconnection_cast<VxUniformLabelField3>(portMask);
    VxLabelLattice3* mask = maskField ? &maskField->lattice() : nullptr;
    if (portMaskRestrictionType.getValue() != 0 && mask && mask->primType() == KxPrimType::UINT8) {
        const KxDim3l& d = mask->getDims();
        const std::size_t n = std::size_t(d.nx) * std::size_t(d.ny) * std::size_t(d.nz);
        KxBitfield a(n, true);
        KxBitfield b(a);
        auto* labels = static_cast<unsigned char*>(mask->getLabels(0));
        a.fromLabels(n, labels, 1);
        KxMorphology::dilation3D(a, b, KxVec3i(int(d.nx), int(d.ny), int(d.nz)), 1);
        b.toLabels(n, labels, 1, KxBitfield::LabelPolicy(3));
        // The mask's readers see the grown region.
        maskField->touchDownstream();
    }
    extractor.compute(vxiso::filter::LabelIsoSurfaceFilter(*field, mask));
}
