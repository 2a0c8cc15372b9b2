#include <io/VxRawReader.h>

#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumeLayout.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxLatticeSize.h>
#include <vx/VxRegScalarField3.h>

namespace {

constexpr bool kHostBigEndian = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

VxVolumeLayout locateRaw(const QString& path, const VxRawDescription& d)
{
    const QString bad = VxRawReader::checkDescription(d);
    if (!bad.isEmpty()) throw VxReadFailure{path, bad};
    VxInputFile file(path, "a raw volume");
    KxLatticeSize size;
    KxLatticeSize::check(d.dims, d.type, d.offset, &size);
    const QString what = VxValueReader::describe(d.dims, d.type);
    // No header says where the values end: the description must account for every byte.
    const uint64_t end = d.offset + size.bytes, have = file.size();
    if (have < end)
        file.fail(QString("file holds %1 bytes, but %2 values after an offset of %3 need %4")
                      .arg(have)
                      .arg(what)
                      .arg(d.offset)
                      .arg(end));
    if (have > end)
        file.fail(QString("file holds %1 bytes, %2 more than %3 values need; give --offset to skip a header")
                      .arg(have)
                      .arg(have - end)
                      .arg(what));

    VxVolumeLayout l;
    l.format = "raw";
    l.dataPath = file.path();
    l.offset = d.offset;
    l.dims = d.dims;
    l.type = d.type;
    l.bigEndian = kHostBigEndian != d.swapBytes;
    l.hasUndefined = d.hasUndefined;
    l.undefinedValue = d.undefinedValue;
    for (int a = 0; a < 3; ++a) {
        l.placement.origin[a] = d.origin[a];
        l.placement.spacing[a] = d.spacing[a];
    }
    const QString badPlace = l.placement.normalise(d.dims);
    if (!badPlace.isEmpty()) file.fail(badPlace);
    return l;
}

VxUniformScalarField3* readRaw(const QString& path, const VxRawDescription& d)
{
    const VxVolumeLayout l = locateRaw(path, d);
    VxInputFile file(path, "a raw volume");
    file.seek(d.offset);
    void* values = VxValueReader::read(file, d.dims, d.type, VxEncoding::Raw, l.bigEndian);
    VxUniformScalarField3* field = VxReadSupport::uniformField(d.dims, d.type, values, l.placement, path);
    if (d.hasUndefined) field->setUndefinedValue(d.undefinedValue);
    return field;
}

} // namespace

QString VxRawReader::checkDescription(const VxRawDescription& d)
{
    if (!d.type.isValid()) return "unknown value type";
    for (int a = 0; a < 3; ++a)
        if (d.dims[a] <= 0)
            return QString("dimensions must be positive, not %1 %2 %3")
                .arg(d.dims.nx)
                .arg(d.dims.ny)
                .arg(d.dims.nz);
    // Mirrored axes come with a header that says so; here the spacing is a distance.
    for (int a = 0; a < 3; ++a)
        if (d.spacing[a] <= 0) return QString("spacing must be positive, not %1").arg(d.spacing[a]);
    // Finite numbers and what single precision holds are checked where the placement is built.
    return KxLatticeSize::check(d.dims, d.type, d.offset);
}

VxUniformScalarField3* VxRawReader::read(const QString& path, const VxRawDescription& d, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] { return readRaw(path, d); });
}

bool VxRawReader::locate(const QString& path, const VxRawDescription& d, VxVolumeLayout& layout,
                         QString* error)
{
    return VxReadSupport::reportFailure(error, [&] {
               layout = locateRaw(path, d);
               return &layout;
           }) != nullptr;
}
