#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/VxMaskedLabelIsosurface.h>

#include <vx/VxApplication.h>
#include <vx/VxMessage.h>
#include <vx/VxPortColormap.h>
#include <vx/VxUniformLabelField3.h>

#include <kx/KxBitfield.h>
#include <kx/KxException.h>
#include <kx/KxMorphology.h>

KX_PACKAGE_SOURCE(VxMaskedLabelIsosurface, VxIsosurface)

namespace {
QString tr(const char* text)
{
    return VxModule::translate("VxMaskedLabelIsosurface", text);
}
} // namespace

VxMaskedLabelIsosurface::VxMaskedLabelIsosurface()
    : portMask(this, tr("Mask"), "mask"),
      portMaskRestrictionType(this, tr("Mask Restriction Type"), "maskRestrictionType", 2)
{
    portMask.addType(VxUniformLabelField3::getClassTypeId());
    portMask.setOptional(true);
    portMaskRestrictionType.setLabel(0, tr("strict"));
    portMaskRestrictionType.setLabel(1, tr("relaxed"));
    portMaskRestrictionType.setIndex(0);
    portMaskRestrictionType.setToolTip(tr(
        "<html>Isosurface computation is restricted inside selected input masks.This restriction can be of "
        "two "
        "types:<ul>  <li><b>strict</b> only triangles that completely fit inside the region are kept</li>  "
        "<li><b>relaxed</b> all triangles that partially fit inside the region are also "
        "kept</li></ul><b>warning: "
        "this setting applies to all the masked isosurfaces of Volume Rendering Settings module</b></html>"));
    portMaskRestrictionType.hide();
    portColormap().setSourceCheck(&VxMaskedLabelIsosurface::sourceCheckColorMap, this);
}

VxMaskedLabelIsosurface::~VxMaskedLabelIsosurface() = default;

void VxMaskedLabelIsosurface::update()
{
    VxIsosurface::update();
    portMaskRestrictionType.setVisible(portMask.getSource() != nullptr);
    // Another mask, or other labels in it, make the surface out of date as much as another mode.
    if (portMaskRestrictionType.isNew() || portMask.isNew()) computed = false;
}

void VxMaskedLabelIsosurface::compute()
{
    const auto* field = vxconnection_cast<VxRegScalarField3>(portData);
    const auto* mask = vxconnection_cast<VxUniformLabelField3>(portMask);
    // A wrong input, not a failed extraction: it is named as such, and nothing is extracted.
    if (field && mask && portDoIt.wasHit(0) && !(mask->getDims() == field->getDims())) {
        auto size = [](const KxDim3l& d) { return QString("%1 x %2 x %3").arg(d.nx).arg(d.ny).arg(d.nz); };
        VxApplication::instance()->message()->error(
            QString("%1: the mask \"%2\" has %3 nodes but the volume \"%4\" has %5; they must match")
                .arg(getName(), mask->getName(), size(mask->getDims()), field->getName(),
                     size(field->getDims())));
        computed = false;
        // The rest of what the module does on a run without extraction.
        VxTriBase::compute();
        return;
    }
    VxIsosurface::compute();
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
    std::unique_ptr<VxLabelLattice3> reduced;
    if (mask && !(mask->getDims() == field->getDims())) {
        reduced = maskOfResampledField(*mask, *field);
        mask = reduced.get();
    }
    extractor.compute(vxiso::filter::LabelIsoSurfaceFilter(*field, mask));
}

std::unique_ptr<VxLabelLattice3>
VxMaskedLabelIsosurface::maskOfResampledField(const VxLabelLattice3& mask,
                                              const VxRegScalarField3& field) const
{
    const KxDim3l& m = mask.getDims();
    const KxDim3l& d = field.getDims();
    const int f[3] = {getResampleFactor(0), getResampleFactor(1), getResampleFactor(2)};
    // compute() refuses a mask of other dimensions than the full field's; this guards the reads.
    if (&field != getResampledField() || d.nx * f[0] > m.nx || d.ny * f[1] > m.ny || d.nz * f[2] > m.nz)
        throw KxException(
            QString("the mask has %1 x %2 x %3 nodes but the field has %4 x %5 x %6; they must match")
                .arg(m.nx)
                .arg(m.ny)
                .arg(m.nz)
                .arg(d.nx)
                .arg(d.ny)
                .arg(d.nz));
    // A node of the averaged copy lies inside when any node it averages does.
    auto low = std::make_unique<VxLabelLattice3>(d, KxPrimType::UINT8);
    auto* out = static_cast<unsigned char*>(low->getLabels(0));
    for (int64_t k = 0; k < d.nz; ++k)
        for (int64_t j = 0; j < d.ny; ++j)
            for (int64_t i = 0; i < d.nx; ++i) {
                bool inside = false;
                for (int64_t c = k * f[2]; c < (k + 1) * f[2] && !inside; ++c)
                    for (int64_t b = j * f[1]; b < (j + 1) * f[1] && !inside; ++b)
                        for (int64_t a = i * f[0]; a < (i + 1) * f[0] && !inside; ++a)
                            inside = mask.labelAt((c * m.ny + b) * m.nx + a) > 0.f;
                out[(k * d.ny + j) * d.nx + i] = inside;
            }
    return low;
}
