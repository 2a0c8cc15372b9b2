#include "VxisoInputs.h"

#include <io/VxBlockReader.h>
#include <io/VxBuiltinField.h>
#include <io/VxMeshReader.h>
#include <io/VxVolumeReader.h>
#include <kx/KxException.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxUniformLabelField3.h>

#include <QString>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

// The word without an option is a volume file (or multi-block description) by its extension, else
// a raw file.
void classify(VxisoOptions& o)
{
    if (o.inputs.size() > 1) throw VxisoUsageError{"more than one input: '" + o.inputs[1] + "'"};
    if (o.inputs.empty()) return;
    const std::string& input = o.inputs[0];
    if (!o.rawFile.empty()) throw VxisoUsageError{"give the input either as INPUT or with --raw, not both"};
    o.blocks = VxBlockReader::isBlockPath(QString::fromStdString(input));
    o.mesh = !o.blocks && VxMeshReader::isMeshPath(QString::fromStdString(input));
    if (o.blocks || o.mesh ||
        VxVolumeReader::formatForPath(QString::fromStdString(input)) != VxVolumeReader::UNKNOWN)
        o.volumeFile = input;
    else
        o.rawFile = input;
}

// Exactly one input, with what it needs and nothing that describes another kind.
void checkOneInput(VxisoOptions& o)
{
    o.describesRaw = o.describesRaw || o.haveDims || o.haveType;
    if (!o.volumeFile.empty()) {
        if (!o.fieldName.empty()) throw VxisoUsageError{"give either a volume file or --field, not both"};
        if (o.describesRaw)
            throw VxisoUsageError{
                "--dims, --type, --spacing, --origin, --offset and --swap-bytes describe raw "
                "files; the file '" +
                o.volumeFile + "' carries its own description"};
    } else if (o.rawFile.empty() == o.fieldName.empty()) {
        throw VxisoUsageError{o.rawFile.empty()
                                  ? "no input: give a volume file, --raw FILE ... or --field NAME --size N"
                                  : "give either a raw file or --field, not both"};
    }
    if (!o.rawFile.empty() && (!o.haveDims || !o.haveType))
        throw VxisoUsageError{"a raw file needs --dims NX NY NZ and --type TYPE"};
    if (!o.fieldName.empty() && o.size == 0) throw VxisoUsageError{"--field needs --size N"};
}

void checkLabels(const VxisoOptions& o)
{
    if (o.labels && !o.fieldName.empty())
        throw VxisoUsageError{"built-in fields hold no labels; --labels needs a file"};
    if (o.haveLabel && !o.labels)
        throw VxisoUsageError{"--label N chooses a label of a label volume; add --labels"};
}

// The blocks go to the module as they are: nothing that remakes a field applies to them.
void checkBlocks(const VxisoOptions& o)
{
    const char* option = o.labels              ? "--labels"
                         : !o.maskFile.empty() ? "--mask"
                         : o.pad               ? "--pad"
                         : o.downsample[0]     ? "--downsample"
                         : o.raw.hasUndefined  ? "--undefined"
                                               : nullptr;
    if (option) throw VxisoUsageError{std::string(option) + " does not apply to a multi-block field"};
}

// A mesh goes to its module as it is; --blocky and --scalars belong to meshes only.
void checkMesh(const VxisoOptions& o)
{
    if (!o.mesh) {
        if (!o.scalars.empty())
            throw VxisoUsageError{"--scalars chooses the field of a mesh file (.vtu, .msh, .vtk)"};
        if (o.blocky) throw VxisoUsageError{"--blocky applies to hexahedral meshes with values per cell"};
        return;
    }
    const char* option = o.labels              ? "--labels"
                         : !o.maskFile.empty() ? "--mask"
                         : o.pad               ? "--pad"
                         : o.downsample[0]     ? "--downsample"
                         : o.raw.hasUndefined  ? "--undefined"
                         : o.compactify        ? "--compactify"
                                               : nullptr;
    if (option)
        throw VxisoUsageError{std::string(option) + " does not apply to a tetrahedral or hexahedral mesh"};
}

} // namespace

void vxisoChooseInput(VxisoOptions& o)
{
    classify(o);
    checkOneInput(o);
    checkLabels(o);
    if (o.blocks) checkBlocks(o);
    checkMesh(o);
}

KxHandle<VxSpatialData> vxisoReadInput(const VxisoOptions& o, VxVolumeInfo& info)
{
    QString error;
    KxHandle<VxSpatialData> data;
    if (!o.fieldName.empty()) {
        data = VxBuiltinField::create(QString::fromStdString(o.fieldName), o.size, &error);
        info.format = "built-in field";
    } else if (o.mesh) {
        data = VxMeshReader::read(QString::fromStdString(o.volumeFile), QString::fromStdString(o.scalars),
                                  &error, &info);
    } else if (o.blocks) {
        data = VxBlockReader::read(QString::fromStdString(o.volumeFile), &error);
        info.format = "multi-block description";
    } else {
        VxReadOptions options;
        options.labels = o.labels;
        if (!o.rawFile.empty()) options.raw = o.raw;
        data = VxVolumeReader::read(QString::fromStdString(o.volumeFile.empty() ? o.rawFile : o.volumeFile),
                                    options, &error, &info);
    }
    if (!data) throw KxException(error);
    if (auto* field = kx_type_cast<VxRegScalarField3>(data.get()))
        if (o.raw.hasUndefined) field->setUndefinedValue(o.raw.undefinedValue);
    return data;
}

namespace {

// Writes 1 where the label volume holds the chosen label (any non-zero label when none is chosen)
// and 0 elsewhere, into a lattice with `pad` layers of 0 around. Returns the voxels chosen.
int64_t chooseLabels(const VxLabelLattice3& labels, const long long* chosen, int64_t pad, unsigned char* out)
{
    const KxDim3l& d = labels.getDims();
    const int64_t nx = d.nx + 2 * pad, ny = d.ny + 2 * pad;
    int64_t inside = 0;
    for (int64_t k = 0; k < d.nz; ++k)
        for (int64_t j = 0; j < d.ny; ++j)
            for (int64_t i = 0; i < d.nx; ++i) {
                const float label = labels.labelAt((k * d.ny + j) * d.nx + i);
                const bool in = chosen ? label == float(*chosen) : label != 0.f;
                out[((k + pad) * ny + j + pad) * nx + i + pad] = in;
                inside += in;
            }
    return inside;
}

KxBox3f grownBox(const KxBox3f& b, const KxVec3f& voxel, int64_t layers)
{
    const KxVec3f v = voxel * float(layers);
    return KxBox3f(b.xmin - v.x, b.xmax + v.x, b.ymin - v.y, b.ymax + v.y, b.zmin - v.z, b.zmax + v.z);
}

QString noVoxelChosen(const std::string& file, const long long* chosen)
{
    return chosen ? QString("%1: no voxel has the label %2").arg(QString::fromStdString(file)).arg(*chosen)
                  : QString("%1: every voxel has the label 0 (background)").arg(QString::fromStdString(file));
}

// With --labels: the chosen voxels as 0 and 1 on the label volume's nodes; the surface at 0.5 wraps
// exactly those voxels.
KxHandle<VxRegScalarField3> labelVolume(const VxisoOptions& o, const VxUniformLabelField3& labels)
{
    auto* field = new VxUniformScalarField3(labels.getDims(), KxPrimType::UINT8);
    KxHandle<VxRegScalarField3> keep(field);
    auto* out = static_cast<unsigned char*>(field->lattice().dataPtr());
    if (chooseLabels(labels.lattice(), o.haveLabel ? &o.label : nullptr, 0, out) == 0)
        throw KxException(noVoxelChosen(o.volumeFile, o.haveLabel ? &o.label : nullptr));
    field->setBoundingBox(labels.getBoundingBox(), labels.getVoxelSize());
    return keep;
}

// The label volume of --mask, which must have the volume's dimensions.
KxHandle<VxSpatialData> readMaskLabels(const VxisoOptions& o, const KxDim3l& v)
{
    QString error;
    VxReadOptions options;
    options.labels = true;
    KxHandle<VxSpatialData> data = VxVolumeReader::read(QString::fromStdString(o.maskFile), options, &error);
    if (!data) throw KxException(error);
    const KxDim3l& d = static_cast<const VxUniformLabelField3&>(*data).getDims();
    if (!(d == v))
        throw KxException(
            QString("%1: the mask has %2 x %3 x %4 voxels but the volume has %5 x %6 x %7; they must match")
                .arg(QString::fromStdString(o.maskFile))
                .arg(d.nx)
                .arg(d.ny)
                .arg(d.nz)
                .arg(v.nx)
                .arg(v.ny)
                .arg(v.nz));
    return data;
}

// With --mask: the chosen regions of LABELS as a mask of 0 and 1 for the masked module, on the
// nodes of the volume it restricts (padded like it).
KxHandle<VxUniformLabelField3> regionMask(const VxisoOptions& o, const VxRegScalarField3& volume)
{
    const KxDim3l& d = volume.getDims();
    const KxHandle<VxSpatialData> data = readMaskLabels(o, d);
    const auto& labels = static_cast<const VxUniformLabelField3&>(*data);
    const int64_t pad = o.pad ? 1 : 0;
    auto* mask = new VxUniformLabelField3(KxDim3l(d.nx + 2 * pad, d.ny + 2 * pad, d.nz + 2 * pad));
    KxHandle<VxUniformLabelField3> keep(mask);
    const long long* chosen = o.haveMaskLabel ? &o.maskLabel : nullptr;
    if (chooseLabels(labels.lattice(), chosen, pad,
                     static_cast<unsigned char*>(mask->lattice().getLabels(0))) == 0)
        throw KxException(noVoxelChosen(o.maskFile, chosen));
    const KxVec3f voxel = vxisoVoxelSize(volume, d);
    mask->setBoundingBox(grownBox(volume.getBoundingBox(), voxel, pad), voxel);
    return keep;
}

// The field inside one more layer of nodes on every side, each below the iso value: the lowest
// value of an integer type, else one less than the smaller of the field's minimum and the iso
// value. The box grows by one voxel each way; the transform stays.
KxHandle<VxRegScalarField3> padded(const VxRegScalarField3& field, double iso)
{
    if (field.coordType() != VX_COORD_UNIFORM)
        throw VxisoUsageError{
            "--pad needs a volume on uniform coordinates, not a rectilinear or curvilinear grid"};
    const KxDim3l d = field.getDims();
    const KxDim3l p(d.nx + 2, d.ny + 2, d.nz + 2);
    auto* out = new VxUniformScalarField3(p, field.primType());
    KxHandle<VxRegScalarField3> keep(out);
    double lo = 0, hi = 0;
    field.getRange(lo, hi);
    kxDispatchPrimType(field.primType(), out->lattice().dataPtr(), [&](auto* o) {
        using T = std::remove_pointer_t<decltype(o)>;
        const T border =
            std::is_floating_point<T>::value ? T(std::min(lo, iso) - 1) : std::numeric_limits<T>::lowest();
        std::fill(o, o + p.count(), border);
        const T* in = static_cast<const T*>(field.lattice().dataPtr());
        for (int64_t k = 0; k < d.nz; ++k)
            for (int64_t j = 0; j < d.ny; ++j)
                std::copy(in + (k * d.ny + j) * d.nx, in + (k * d.ny + j + 1) * d.nx,
                          o + ((k + 1) * p.ny + j + 1) * p.nx + 1);
    });
    out->setBoundingBox(grownBox(field.getBoundingBox(), vxisoVoxelSize(field, d), 1));
    SbMatrix m;
    if (field.getTransform(m)) out->setTransform(m);
    if (field.hasUndefinedValue()) out->setUndefinedValue(field.getUndefinedValue());
    return keep;
}

} // namespace

KxVec3f vxisoVoxelSize(const VxSpatialData& data, const KxDim3l& d)
{
    if (const auto* u = kx_type_cast<VxUniformScalarField3>(&data)) return u->getVoxelSize();
    if (const auto* labels = kx_type_cast<VxUniformLabelField3>(&data)) return labels->getVoxelSize();
    return data.getBoundingBox().getVoxelSize(d);
}

VxisoModuleInputs vxisoModuleInputs(VxisoOptions& o, const KxHandle<VxSpatialData>& data)
{
    if (o.blocks) return {data, nullptr};
    if (o.mesh) {
        const auto* hexa = kx_type_cast<VxHexaScalarField3>(data.get());
        if (o.blocky && (!hexa || hexa->getEncoding() != VxHexaScalarField3::PER_HEXA))
            throw VxisoUsageError{"--blocky applies to hexahedral meshes with values per cell; " +
                                  o.volumeFile + (hexa ? " has values per node" : " holds tetrahedra")};
        return {data, nullptr};
    }
    VxisoModuleInputs in;
    KxHandle<VxRegScalarField3> field;
    if (o.labels) {
        field = labelVolume(o, *static_cast<VxUniformLabelField3*>(data.get()));
        o.threshold = 0.5;
    } else {
        field = static_cast<VxRegScalarField3*>(data.get());
    }
    if (!o.maskFile.empty()) in.mask = regionMask(o, *field);
    if (o.pad) field = padded(*field, o.threshold);
    if (o.downsample[0] && field->coordType() != VX_COORD_UNIFORM)
        throw VxisoUsageError{
            "--downsample needs a volume on uniform coordinates, not a rectilinear or curvilinear grid"};
    in.data = field.get();
    return in;
}
