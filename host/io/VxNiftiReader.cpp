#include <io/VxNiftiReader.h>

#include <io/VxBinaryHeader.h>
#include <io/VxGzipInput.h>
#include <io/VxInputFile.h>
#include <io/VxReadSupport.h>
#include <io/VxValueReader.h>
#include <io/VxVolumeLayout.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxLatticeSize.h>
#include <kx/KxPrimType.h>
#include <vx/VxRegScalarField3.h>

#include <cmath>
#include <cstring>

namespace {

constexpr int kHeaderSize1 = 348;
constexpr int kHeaderSize2 = 540;

// The fields the reader uses, from either header version, in wide types.
struct Header
{
    int version = 1;
    bool swapped = false;
    bool singleFile = true;
    int64_t dim[8] = {};
    double pixdim[8] = {};
    int datatype = 0;
    int bitpix = 0;
    double voxOffset = 0;
    double slope = 0, inter = 0;
    int qformCode = 0, sformCode = 0;
    double quatern[3] = {}, qoffset[3] = {};
    double srow[3][4] = {};
};

// Datatype codes: the eight the reader takes, and the names of the others for messages.
const struct
{
    int code;
    const char* name;
    KxPrimType::Type type;
} kDatatypes[] = {
    {2, "uint8", KxPrimType::UINT8},           {4, "int16", KxPrimType::INT16},
    {8, "int32", KxPrimType::INT32},           {16, "float32", KxPrimType::FLOAT},
    {64, "float64", KxPrimType::DOUBLE},       {256, "int8", KxPrimType::INT8},
    {512, "uint16", KxPrimType::UINT16},       {768, "uint32", KxPrimType::UINT32},
    {0, "none", KxPrimType::UNKNOWN},          {1, "binary", KxPrimType::UNKNOWN},
    {32, "complex64", KxPrimType::UNKNOWN},    {128, "rgb24", KxPrimType::UNKNOWN},
    {1024, "int64", KxPrimType::UNKNOWN},      {1280, "uint64", KxPrimType::UNKNOWN},
    {1536, "float128", KxPrimType::UNKNOWN},   {1792, "complex128", KxPrimType::UNKNOWN},
    {2048, "complex256", KxPrimType::UNKNOWN}, {2304, "rgba32", KxPrimType::UNKNOWN},
};

[[noreturn]] void fail(const QString& path, const QString& why)
{
    throw VxReadFailure{path, why};
}

Header parse(const VxBinaryHeader& b, const QString& path)
{
    Header h;
    h.version = b.size() == kHeaderSize1 ? 1 : 2;
    h.swapped = b.swapped();
    // Each field at its offset in version 1 or in version 2, whose numbers are doubles, not floats.
    const bool one = h.version == 1;
    const int w = one ? 4 : 8;
    auto real = [&](std::size_t at1, std::size_t at2, int i) {
        return b.real((one ? at1 : at2) + std::size_t(w * i), w);
    };
    const std::size_t magic = one ? 344 : 4;
    const char *single = one ? "n+1" : "n+2", *pair = one ? "ni1" : "ni2";
    if (b.holds(magic, single, 4))
        h.singleFile = true;
    else if (b.holds(magic, pair, 4))
        h.singleFile = false;
    else
        fail(path, QString("not a NIfTI-%1 file: its %2-byte header lacks the '%3' or '%4' signature")
                       .arg(h.version)
                       .arg(b.size())
                       .arg(single, pair));
    // The signature's tail catches files damaged by a text-mode transfer.
    if (!one && !b.holds(magic + 4, "\r\n\032\n", 4))
        fail(path, "NIfTI-2 signature is damaged (was the file transferred as text?)");
    for (int i = 0; i < 8; ++i) {
        h.dim[i] = one ? b.integer(40 + 2 * i, 2) : b.integer(16 + 8 * i, 8);
        h.pixdim[i] = real(76, 104, i);
    }
    h.datatype = int(b.integer(one ? 70 : 12, 2));
    h.bitpix = int(b.integer(one ? 72 : 14, 2));
    h.voxOffset = one ? b.real(108, 4) : double(b.integer(168, 8));
    h.slope = real(112, 176, 0);
    h.inter = real(116, 184, 0);
    h.qformCode = int(one ? b.integer(252, 2) : b.integer(344, 4));
    h.sformCode = int(one ? b.integer(254, 2) : b.integer(348, 4));
    for (int i = 0; i < 3; ++i) {
        h.quatern[i] = real(256, 352, i);
        h.qoffset[i] = real(268, 376, i);
        for (int c = 0; c < 4; ++c) h.srow[i][c] = real(280, 400, 4 * i + c);
    }
    return h;
}

// The dimensions and type the header describes, or why they are unusable.
void checkHeader(const Header& h, const QString& path, KxDim3l& dims, KxPrimType& type)
{
    const int64_t rank = h.dim[0];
    if (rank < 1 || rank > 7)
        fail(path, QString("dim[0] is %1, not a number of dimensions from 1 to 7").arg(rank));
    if (rank < 3) fail(path, QString("holds a %1-D image; only 3-D volumes are supported").arg(rank));
    if (rank > 4 || (rank == 4 && h.dim[4] != 1)) {
        QString shape;
        for (int i = 1; i <= rank; ++i) shape += QString(i > 1 ? " %1" : "%1").arg(h.dim[i]);
        fail(path, QString("holds a %1-D dataset (dim %2); only single 3-D volumes are supported")
                       .arg(rank)
                       .arg(shape));
    }
    for (int a = 0; a < 3; ++a)
        if (h.dim[a + 1] <= 0)
            fail(path, QString("dimensions must be positive, not %1 %2 %3")
                           .arg(h.dim[1])
                           .arg(h.dim[2])
                           .arg(h.dim[3]));
    dims = KxDim3l(h.dim[1], h.dim[2], h.dim[3]);

    const char* name = "unknown";
    type = KxPrimType::UNKNOWN;
    for (const auto& d : kDatatypes)
        if (d.code == h.datatype) name = d.name, type = d.type;
    if (!type.isValid())
        fail(path, QString("unsupported NIfTI datatype %1 (%2); supported are uint8, int8, uint16, int16, "
                           "uint32, int32, float32 and float64")
                       .arg(h.datatype)
                       .arg(name));
    if (h.bitpix != int(8 * type.size()))
        fail(path, QString("bitpix %1 does not match datatype %2 (%3)")
                       .arg(h.bitpix)
                       .arg(h.datatype)
                       .arg(type.name()));

    const double minOffset = h.singleFile ? (h.version == 1 ? kHeaderSize1 : kHeaderSize2) : 0;
    if (!(h.voxOffset >= minOffset) || h.voxOffset > 9e15 || h.voxOffset != std::floor(h.voxOffset))
        fail(path, QString("vox_offset %1 is not a valid position for the values").arg(h.voxOffset));
    const QString tooLarge = KxLatticeSize::check(dims, type, uint64_t(h.voxOffset));
    if (!tooLarge.isEmpty()) fail(path, tooLarge);
}

// The values at offset of the data in, which stands behind whatever it has read.
void* readValues(VxGzipInput& in, uint64_t offset, const KxDim3l& dims, KxPrimType type)
{
    const uint64_t bytes = uint64_t(dims.count()) * type.size();
    const QString what = VxValueReader::describe(dims, type);
    in.checkRoom(offset, bytes, what);
    in.skipTo(offset, "header and extensions"); // extensions, or an image file's leading bytes
    VxReadSupport::Values data = VxReadSupport::allocateValues(in.file().path(), bytes, what);
    in.readExactly(data.get(), bytes, what + " values");
    in.finish();
    return data.release();
}

bool allZero(const double srow[3][4])
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (srow[r][c] != 0) return false;
    return true;
}

// Where the nodes go: from the sform, else the qform, else pixdim. The sform's columns are the
// index axes in world space, so their lengths are the spacing and pixdim does not count; an sform
// whose matrix is all zeros places nothing (writers leave it so) and counts as absent.
VxVolumePlacement placement(const Header& h, const KxDim3l& d, const QString& path)
{
    VxVolumePlacement p;
    const char* source = "sform";
    if (h.sformCode > 0 && !allZero(h.srow)) {
        for (int a = 0; a < 3; ++a) {
            for (int c = 0; c < 3; ++c) p.axis[a][c] = h.srow[c][a];
            p.origin[a] = h.srow[a][3];
        }
    } else {
        source = h.qformCode > 0 ? "qform" : "pixdim";
        for (int a = 0; a < 3; ++a) {
            const double s = std::fabs(h.pixdim[a + 1]);
            if (!std::isfinite(s)) fail(path, QString("pixdim[%1] is not a finite number").arg(a + 1));
            p.spacing[a] = s > 0 ? s : 1.0; // unset in some files: unit spacing then
        }
    }
    if (source[0] == 'q') {
        double b = h.quatern[0], c = h.quatern[1], d = h.quatern[2], a = 1.0 - (b * b + c * c + d * d);
        if (a < 1e-7) {
            // A half turn: the stored vector is the whole rotation; renormalise it.
            const double n = std::sqrt(b * b + c * c + d * d);
            b /= n, c /= n, d /= n, a = 0;
        } else {
            a = std::sqrt(a);
        }
        const double R[3][3] = {{a * a + b * b - c * c - d * d, 2 * (b * c - a * d), 2 * (b * d + a * c)},
                                {2 * (b * c + a * d), a * a + c * c - b * b - d * d, 2 * (c * d - a * b)},
                                {2 * (b * d - a * c), 2 * (c * d + a * b), a * a + d * d - c * c - b * b}};
        const double qfac = h.pixdim[0] < 0 ? -1.0 : 1.0;
        for (int k = 0; k < 3; ++k) {
            for (int r = 0; r < 3; ++r) p.axis[k][r] = R[r][k] * (k == 2 ? qfac : 1.0);
            p.origin[k] = h.qoffset[k];
        }
    }
    const QString bad = p.normalise(d);
    if (!bad.isEmpty()) fail(path, QString("%1 (placement from the %2)").arg(bad, source));
    return p;
}

// Names of a header and image pair: the header the path names or sits beside, and the image's
// candidates beside it.
struct PairNames
{
    QString header;
    QString image; // the path itself when it names the image
    QString base;  // the name without .nii/.hdr/.img and .gz
};

PairNames pairNames(const QString& path)
{
    PairNames n;
    QString core = path;
    if (core.endsWith(".gz", Qt::CaseInsensitive)) core.chop(3);
    n.base = core;
    const QString ext = core.right(4).toLower();
    if (ext == ".nii" || ext == ".hdr" || ext == ".img") n.base.chop(4);
    if (ext != ".img") {
        n.header = path;
        return n;
    }
    n.image = path;
    n.header = VxReadSupport::firstFile(n.base, {".hdr", ".hdr.gz", ".HDR", ".HDR.GZ"});
    if (n.header.isEmpty())
        fail(path, QString("no header beside the image (looked for %1.hdr and %1.hdr.gz)").arg(n.base));
    return n;
}

QString imageFor(const PairNames& n)
{
    if (!n.image.isEmpty()) return n.image;
    const QString image = VxReadSupport::firstFile(n.base, {".img", ".img.gz", ".IMG", ".IMG.GZ"});
    if (image.isEmpty())
        fail(n.header, QString("the header's values are in a separate image file, but neither %1.img nor "
                               "%1.img.gz exists")
                           .arg(n.base));
    return image;
}

VxUniformScalarField3* readNifti(const QString& path, VxNiftiInfo* info)
{
    const PairNames names = pairNames(path);
    VxInputFile headerFile(names.header, "a NIfTI file");
    VxGzipInput header(headerFile);
    const Header h = parse(VxBinaryHeader::read(header, {kHeaderSize1, kHeaderSize2}, "NIfTI"), names.header);
    KxDim3l dims;
    KxPrimType type;
    checkHeader(h, names.header, dims, type);
    const VxVolumePlacement where = placement(h, dims, names.header);

    void* values = nullptr;
    if (h.singleFile) {
        values = readValues(header, uint64_t(h.voxOffset), dims, type);
    } else {
        VxInputFile imageFile(imageFor(names), "a NIfTI file");
        VxGzipInput image(imageFile);
        values = readValues(image, uint64_t(h.voxOffset), dims, type);
    }
    if (h.swapped) VxValueReader::swapBytes(values, uint64_t(dims.count()), type.size());
    VxUniformScalarField3* field = VxReadSupport::uniformField(dims, type, values, where, path);

    if (info) {
        info->version = h.version;
        info->swapped = h.swapped;
        info->datatype = h.datatype;
        info->qformCode = h.qformCode;
        info->sformCode = h.sformCode;
        // A zero or non-finite slope means the values are not scaled.
        const bool scaled = h.slope != 0 && std::isfinite(h.slope);
        info->slope = scaled ? h.slope : 1.0;
        info->inter = scaled && std::isfinite(h.inter) ? h.inter : 0.0;
    }
    return field;
}

VxVolumeLayout locateNifti(const QString& path)
{
    const PairNames names = pairNames(path);
    VxInputFile headerFile(names.header, "a NIfTI file");
    VxGzipInput header(headerFile);
    const Header h = parse(VxBinaryHeader::read(header, {kHeaderSize1, kHeaderSize2}, "NIfTI"), names.header);
    VxVolumeLayout l;
    checkHeader(h, names.header, l.dims, l.type);
    l.placement = placement(h, l.dims, names.header);
    l.format = "NIfTI";
    l.dataPath = h.singleFile ? names.header : imageFor(names);
    l.offset = uint64_t(h.voxOffset);
    l.encoding = l.dataPath.endsWith(".gz", Qt::CaseInsensitive) ? VxEncoding::Gzip : VxEncoding::Raw;
    l.bigEndian = (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__) != h.swapped;
    return l;
}

} // namespace

bool VxNiftiReader::locate(const QString& path, VxVolumeLayout& layout, QString* error)
{
    return VxReadSupport::reportFailure(error, [&] {
               layout = locateNifti(path);
               return &layout;
           }) != nullptr;
}

bool VxNiftiInfo::hasScaling() const
{
    return slope != 1.0 || inter != 0.0;
}

QString VxNiftiInfo::scaling() const
{
    if (!hasScaling()) return QString();
    return QString("values are stored unscaled: physical value = %1 * stored %2 %3")
        .arg(slope)
        .arg(inter < 0 ? '-' : '+')
        .arg(std::fabs(inter));
}

double VxNiftiInfo::toStored(double physical) const
{
    return (physical - inter) / slope;
}

bool VxNiftiReader::isNiftiPath(const QString& path)
{
    const QString p = path.toLower();
    for (const char* e : {".nii", ".nii.gz", ".hdr", ".hdr.gz", ".img", ".img.gz"})
        if (p.endsWith(e) && p.size() > int(std::strlen(e))) return true;
    return false;
}

VxUniformScalarField3* VxNiftiReader::read(const QString& path, QString* error, VxNiftiInfo* info)
{
    return VxReadSupport::reportFailure(error, [&] { return readNifti(path, info); });
}
