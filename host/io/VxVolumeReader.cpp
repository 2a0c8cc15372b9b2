#include <io/VxVolumeReader.h>

#include <io/VxMetaImageReader.h>
#include <io/VxNrrdReader.h>
#include <io/VxVtkReader.h>
#include <kx/KxHandle.h>
#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxUniformLabelField3.h>

#include <QFileInfo>

#include <cstdint>

namespace {

QString vtkKind(const VxRegScalarField3& field)
{
    switch (field.coordType()) {
    case VX_COORD_UNIFORM:
        return "VTK structured points";
    case VX_COORD_RECTILINEAR:
        return "VTK rectilinear grid";
    default:
        return "VTK structured grid";
    }
}

template <class From, class To> void* convert(const void* data, int64_t n)
{
    auto* out = static_cast<To*>(kxmalloc(std::size_t(n) * sizeof(To)));
    const From* in = static_cast<const From*>(data);
    for (int64_t i = 0; i < n; ++i) out[i] = To(in[i]);
    return out;
}

} // namespace

VxVolumeReader::Format VxVolumeReader::formatForPath(const QString& path)
{
    if (VxNiftiReader::isNiftiPath(path)) return NIFTI;
    const QString name = QFileInfo(path).fileName().toLower();
    const QString ext = QFileInfo(path).suffix().toLower();
    if (name.size() <= ext.size() + 1) return UNKNOWN; // ".nrrd" alone is a hidden file, not a volume
    if (ext == "nrrd" || ext == "nhdr") return NRRD;
    if (ext == "mha" || ext == "mhd") return METAIMAGE;
    if (ext == "vtk") return VTK;
    return UNKNOWN;
}

QStringList VxVolumeReader::supportedExtensions()
{
    return {".nii", ".nii.gz", ".hdr", ".img", ".nrrd", ".nhdr", ".mha", ".mhd", ".vtk"};
}

VxUniformLabelField3* VxVolumeReader::toLabels(const VxRegScalarField3& field, QString* why)
{
    auto refuse = [&](const QString& text) -> VxUniformLabelField3* {
        if (why) *why = text;
        return nullptr;
    };
    if (field.coordType() != VX_COORD_UNIFORM)
        return refuse(
            "labels need uniform coordinates, but these nodes lie on a rectilinear or curvilinear grid");
    const KxPrimType type = field.primType();
    if (type == KxPrimType::FLOAT || type == KxPrimType::DOUBLE)
        return refuse(
            QString("holds %1 values; a label volume needs integer values (uint8, int8, uint16, int16, "
                    "uint32 or int32)")
                .arg(type.name()));
    double lo = 0, hi = 0;
    field.getRange(lo, hi);
    const int64_t n = field.getDims().count();
    const void* data = field.lattice().dataPtr();
    KxPrimType labelType;
    void* labels = nullptr;
    switch (type.type()) {
    case KxPrimType::UINT8:
        labelType = KxPrimType::UINT8;
        labels = convert<unsigned char, unsigned char>(data, n);
        break;
    case KxPrimType::UINT16:
        labelType = KxPrimType::UINT16;
        labels = convert<unsigned short, unsigned short>(data, n);
        break;
    case KxPrimType::INT32:
        labelType = KxPrimType::INT32;
        labels = convert<int, int>(data, n);
        break;
    case KxPrimType::INT8:
        labelType = lo >= 0 ? KxPrimType::UINT8 : KxPrimType::INT32;
        labels = lo >= 0 ? convert<signed char, unsigned char>(data, n) : convert<signed char, int>(data, n);
        break;
    case KxPrimType::INT16:
        labelType = lo >= 0 ? KxPrimType::UINT16 : KxPrimType::INT32;
        labels = lo >= 0 ? convert<short, unsigned short>(data, n) : convert<short, int>(data, n);
        break;
    case KxPrimType::UINT32:
        if (hi > double(INT32_MAX))
            return refuse(
                QString("holds the label %1, beyond the largest label %2").arg(hi, 0, 'f', 0).arg(INT32_MAX));
        labelType = KxPrimType::INT32;
        labels = convert<unsigned int, int>(data, n);
        break;
    default:
        return refuse("holds values of an unknown type");
    }
    auto* out = new VxUniformLabelField3(field.getDims(), labelType, labels);
    out->setBoundingBox(field.getBoundingBox(),
                        static_cast<const VxUniformCoord3*>(field.lattice().coords())->getVoxelSize());
    SbMatrix m;
    if (field.getTransform(m)) out->setTransform(m);
    out->setLabel(field.getLabel());
    return out;
}

VxSpatialData* VxVolumeReader::read(const QString& path, const VxReadOptions& options, QString* error,
                                    VxVolumeInfo* info)
{
    QString message;
    VxVolumeInfo facts;
    VxRegScalarField3* field = nullptr;
    if (options.raw) {
        field = VxRawReader::read(path, *options.raw, &message);
        facts.format = "raw";
    } else {
        switch (formatForPath(path)) {
        case NIFTI:
            field = VxNiftiReader::read(path, &message, &facts.nifti);
            facts.format = QString("NIfTI-%1").arg(facts.nifti.version);
            if (field && facts.nifti.hasScaling()) facts.notes << facts.nifti.scaling();
            break;
        case NRRD:
            field = VxNrrdReader::read(path, &message);
            facts.format = "NRRD";
            break;
        case METAIMAGE:
            field = VxMetaImageReader::read(path, &message);
            facts.format = "MetaImage";
            break;
        case VTK:
            field = VxVtkReader::read(path, &message);
            if (field) facts.format = vtkKind(*field);
            break;
        default:
            message = QString("%1: unknown volume format; supported are %2")
                          .arg(path, supportedExtensions().join(", "));
            break;
        }
    }
    if (!field) {
        if (error) *error = message;
        return nullptr;
    }
    if (info) *info = facts;
    if (!options.labels) return field;
    QString why;
    KxHandle<VxRegScalarField3> values(field); // released once the labels are made
    VxUniformLabelField3* labels = toLabels(*field, &why);
    if (!labels && error) *error = QString("%1: %2").arg(path, why);
    return labels;
}
