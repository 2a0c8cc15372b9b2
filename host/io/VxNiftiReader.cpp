#include <io/VxNiftiReader.h>

#include <io/VxReadSupport.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxLatticeSize.h>
#include <kx/KxMemory.h>
#include <kx/KxPrimType.h>
#include <vx/VxRegScalarField3.h>

#include <Inventor/SbMatrix.h>

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <zlib.h>

namespace {

constexpr int kHeaderSize1 = 348;
constexpr int kHeaderSize2 = 540;

// Raised inside the reader and turned into "<file>: <why>" at its surface.
using Failure = VxReadFailure;

// The fields the reader uses, from either header version, in native byte order and wide types.
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

// Fields of a header buffer in the file's byte order.
class Fields
{
public:
    Fields(const unsigned char* p, bool swap) : m_p(p), m_swap(swap) {}
    template <class T> T at(std::size_t offset) const
    {
        unsigned char b[sizeof(T)];
        std::memcpy(b, m_p + offset, sizeof(T));
        if (m_swap) std::reverse(b, b + sizeof(T));
        T v;
        std::memcpy(&v, b, sizeof(T));
        return v;
    }

private:
    const unsigned char* m_p;
    bool m_swap;
};

int32_t byteSwapped(int32_t v)
{
    uint32_t u = uint32_t(v);
    u = (u >> 24) | ((u >> 8) & 0xff00u) | ((u << 8) & 0xff0000u) | (u << 24);
    return int32_t(u);
}

KxPrimType primTypeOf(int datatype)
{
    switch (datatype) {
    case 2:
        return KxPrimType::UINT8;
    case 4:
        return KxPrimType::INT16;
    case 8:
        return KxPrimType::INT32;
    case 16:
        return KxPrimType::FLOAT;
    case 64:
        return KxPrimType::DOUBLE;
    case 256:
        return KxPrimType::INT8;
    case 512:
        return KxPrimType::UINT16;
    case 768:
        return KxPrimType::UINT32;
    default:
        return KxPrimType::UNKNOWN;
    }
}

const char* unsupportedName(int datatype)
{
    switch (datatype) {
    case 0:
        return "none";
    case 1:
        return "binary";
    case 32:
        return "complex64";
    case 128:
        return "rgb24";
    case 1024:
        return "int64";
    case 1280:
        return "uint64";
    case 1536:
        return "float128";
    case 1792:
        return "complex128";
    case 2048:
        return "complex256";
    case 2304:
        return "rgba32";
    default:
        return "unknown";
    }
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

bool isFile(const QString& path)
{
    struct stat st;
    return ::stat(path.toLocal8Bit().constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// A file read through zlib, which passes plain files through unchanged.
class Stream
{
public:
    explicit Stream(const QString& path) : m_path(path)
    {
        const QByteArray name = path.toLocal8Bit();
        struct stat st;
        if (::stat(name.constData(), &st) != 0) throw Failure{path, systemError()};
        if (S_ISDIR(st.st_mode)) throw Failure{path, "is a directory, not a NIfTI file"};
        m_fileSize = uint64_t(st.st_size);
        errno = 0;
        m_file = gzopen(name.constData(), "rb");
        if (!m_file) throw Failure{path, errno ? systemError() : QString("cannot open")};
        // Larger than zlib's default: the volume is read in one sweep.
        gzbuffer(m_file, 1 << 18);
    }
    ~Stream() { gzclose(m_file); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    const QString& path() const { return m_path; }
    uint64_t fileSize() const { return m_fileSize; }
    bool compressed() const { return !gzdirect(m_file); }

    // Reads up to bytes; returns how many arrived (fewer only at the end or on an error).
    uint64_t read(void* to, uint64_t bytes)
    {
        auto* p = static_cast<unsigned char*>(to);
        uint64_t done = 0;
        while (done < bytes) {
            const unsigned chunk = unsigned(std::min<uint64_t>(bytes - done, 1u << 30));
            const int got = gzread(m_file, p + done, chunk);
            if (got <= 0) break;
            done += uint64_t(got);
        }
        return done;
    }

    // What went wrong underneath a read, if anything did: an I/O error or damaged gzip data.
    QString failure() const
    {
        int code = Z_OK;
        const char* message = gzerror(m_file, &code);
        if (code == Z_ERRNO) return systemError();
        if (code == Z_MEM_ERROR) return "out of memory while decompressing";
        if (code == Z_DATA_ERROR) return QString("gzip data is corrupt (%1)").arg(detail(message));
        return QString();
    }

    // Why a read stopped short of what the header promised.
    QString shortReadReason(uint64_t got, uint64_t wanted, const QString& what) const
    {
        const QString broken = failure();
        if (!broken.isEmpty()) return broken;
        return QString("%1 ends after %2 of the %3 bytes of %4; the file is truncated")
            .arg(compressed() ? "gzip stream" : "file")
            .arg(got)
            .arg(wanted)
            .arg(what);
    }

    // After the values: a compressed stream must still end with an intact checksum.
    QString checkTrailer()
    {
        if (!compressed()) return QString();
        unsigned char extra;
        gzread(m_file, &extra, 1);
        int code = Z_OK;
        const char* message = gzerror(m_file, &code);
        if (code == Z_DATA_ERROR) return QString("gzip data is corrupt (%1)").arg(detail(message));
        if (code == Z_BUF_ERROR) return "gzip stream ends before its checksum; the file is truncated";
        return QString();
    }

private:
    // zlib's message without the file name it puts in front; ours names the file already.
    static QString detail(const char* message)
    {
        const QString m = QString::fromLocal8Bit(message);
        const int colon = m.lastIndexOf(": ");
        return colon < 0 ? m : m.mid(colon + 2);
    }

    QString m_path;
    gzFile m_file = nullptr;
    uint64_t m_fileSize = 0;
};

Header parseVersion1(const unsigned char* b, bool swap, const QString& path)
{
    const Fields f(b, swap);
    Header h;
    h.version = 1;
    h.swapped = swap;
    const char* magic = reinterpret_cast<const char*>(b + 344);
    if (!std::memcmp(magic, "n+1\0", 4))
        h.singleFile = true;
    else if (!std::memcmp(magic, "ni1\0", 4))
        h.singleFile = false;
    else
        throw Failure{path, "not a NIfTI-1 file: its 348-byte header lacks the 'n+1' or 'ni1' signature"};
    for (int i = 0; i < 8; ++i) h.dim[i] = f.at<int16_t>(40 + 2 * i);
    h.datatype = f.at<int16_t>(70);
    h.bitpix = f.at<int16_t>(72);
    for (int i = 0; i < 8; ++i) h.pixdim[i] = f.at<float>(76 + 4 * i);
    h.voxOffset = f.at<float>(108);
    h.slope = f.at<float>(112);
    h.inter = f.at<float>(116);
    h.qformCode = f.at<int16_t>(252);
    h.sformCode = f.at<int16_t>(254);
    for (int i = 0; i < 3; ++i) {
        h.quatern[i] = f.at<float>(256 + 4 * i);
        h.qoffset[i] = f.at<float>(268 + 4 * i);
        for (int c = 0; c < 4; ++c) h.srow[i][c] = f.at<float>(280 + 16 * i + 4 * c);
    }
    return h;
}

Header parseVersion2(const unsigned char* b, bool swap, const QString& path)
{
    const Fields f(b, swap);
    Header h;
    h.version = 2;
    h.swapped = swap;
    const char* magic = reinterpret_cast<const char*>(b + 4);
    if (!std::memcmp(magic, "n+2\0", 4))
        h.singleFile = true;
    else if (!std::memcmp(magic, "ni2\0", 4))
        h.singleFile = false;
    else
        throw Failure{path, "not a NIfTI-2 file: its 540-byte header lacks the 'n+2' or 'ni2' signature"};
    // The signature's tail catches files damaged by a text-mode transfer.
    if (std::memcmp(magic + 4, "\r\n\032\n", 4))
        throw Failure{path, "NIfTI-2 signature is damaged (was the file transferred as text?)"};
    h.datatype = f.at<int16_t>(12);
    h.bitpix = f.at<int16_t>(14);
    for (int i = 0; i < 8; ++i) h.dim[i] = f.at<int64_t>(16 + 8 * i);
    for (int i = 0; i < 8; ++i) h.pixdim[i] = f.at<double>(104 + 8 * i);
    h.voxOffset = double(f.at<int64_t>(168));
    h.slope = f.at<double>(176);
    h.inter = f.at<double>(184);
    h.qformCode = f.at<int32_t>(344);
    h.sformCode = f.at<int32_t>(348);
    for (int i = 0; i < 3; ++i) {
        h.quatern[i] = f.at<double>(352 + 8 * i);
        h.qoffset[i] = f.at<double>(376 + 8 * i);
        for (int c = 0; c < 4; ++c) h.srow[i][c] = f.at<double>(400 + 32 * i + 8 * c);
    }
    return h;
}

// Reads the header at the start of the stream; the stream is left right behind it.
Header readHeader(Stream& s)
{
    unsigned char b[kHeaderSize2] = {};
    const uint64_t first = s.read(b, 4);
    if (first < 4) {
        const QString broken = s.failure();
        throw Failure{s.path(), broken.isEmpty()
                                    ? QString("holds %1 bytes, too few for a NIfTI header").arg(first)
                                    : broken};
    }
    int32_t size;
    std::memcpy(&size, b, 4);
    bool swap = false;
    if (size != kHeaderSize1 && size != kHeaderSize2) {
        swap = true;
        size = byteSwapped(size);
    }
    if (size != kHeaderSize1 && size != kHeaderSize2)
        throw Failure{s.path(), "not a NIfTI file: its header does not start with the size 348 or 540"};
    const uint64_t rest = s.read(b + 4, uint64_t(size - 4));
    if (rest < uint64_t(size - 4)) {
        const QString broken = s.failure();
        throw Failure{
            s.path(),
            broken.isEmpty()
                ? QString("header is truncated: %1 of its %2 bytes are present").arg(rest + 4).arg(size)
                : broken};
    }
    return size == kHeaderSize1 ? parseVersion1(b, swap, s.path()) : parseVersion2(b, swap, s.path());
}

QString dimsText(const KxDim3l& d, KxPrimType type)
{
    return QString("%1x%2x%3 %4").arg(d.nx).arg(d.ny).arg(d.nz).arg(type.name());
}

// The dimensions, type and offset the header describes, or why they are unusable.
void checkHeader(const Header& h, const QString& path, KxDim3l& dims, KxPrimType& type)
{
    const int64_t rank = h.dim[0];
    if (rank < 1 || rank > 7)
        throw Failure{path, QString("dim[0] is %1, not a number of dimensions from 1 to 7").arg(rank)};
    if (rank < 3)
        throw Failure{path, QString("holds a %1-D image; only 3-D volumes are supported").arg(rank)};
    if (rank > 4 || (rank == 4 && h.dim[4] != 1)) {
        QString shape;
        for (int i = 1; i <= rank; ++i) shape += QString(i > 1 ? " %1" : "%1").arg(h.dim[i]);
        throw Failure{path, QString("holds a %1-D dataset (dim %2); only single 3-D volumes are supported")
                                .arg(rank)
                                .arg(shape)};
    }
    for (int a = 0; a < 3; ++a)
        if (h.dim[a + 1] <= 0)
            throw Failure{path, QString("dimensions must be positive, not %1 %2 %3")
                                    .arg(h.dim[1])
                                    .arg(h.dim[2])
                                    .arg(h.dim[3])};
    dims = KxDim3l(h.dim[1], h.dim[2], h.dim[3]);

    type = primTypeOf(h.datatype);
    if (!type.isValid())
        throw Failure{path,
                      QString("unsupported NIfTI datatype %1 (%2); supported are uint8, int8, uint16, int16, "
                              "uint32, int32, float32 and float64")
                          .arg(h.datatype)
                          .arg(unsupportedName(h.datatype))};
    if (h.bitpix != int(8 * type.size()))
        throw Failure{path, QString("bitpix %1 does not match datatype %2 (%3)")
                                .arg(h.bitpix)
                                .arg(h.datatype)
                                .arg(type.name())};

    const double minOffset = h.singleFile ? (h.version == 1 ? kHeaderSize1 : kHeaderSize2) : 0;
    if (!(h.voxOffset >= minOffset) || h.voxOffset > 9e15 || h.voxOffset != std::floor(h.voxOffset))
        throw Failure{path, QString("vox_offset %1 is not a valid position for the values").arg(h.voxOffset)};
    const QString tooLarge = KxLatticeSize::check(dims, type, uint64_t(h.voxOffset));
    if (!tooLarge.isEmpty()) throw Failure{path, tooLarge};
}

// Reads the values from s, which stands at the end of what it has consumed (consumed bytes).
void* readValues(Stream& s, uint64_t consumed, uint64_t offset, const KxDim3l& dims, KxPrimType type)
{
    const uint64_t bytes = uint64_t(dims.count()) * type.size();
    const QString what = dimsText(dims, type);
    if (!s.compressed() && s.fileSize() < offset + bytes)
        throw Failure{s.path(), QString("file holds %1 bytes, but %2 values at offset %3 need %4")
                                    .arg(s.fileSize())
                                    .arg(what)
                                    .arg(offset)
                                    .arg(offset + bytes)};
    // No deflate stream expands more than about 1032 times: reject a lying header before allocating.
    if (s.compressed() && double(s.fileSize()) * 1032.0 + 4096.0 < double(offset + bytes))
        throw Failure{s.path(),
                      QString("a gzip file of %1 bytes cannot hold the %2 values (%3 bytes) its header "
                              "describes; the file is truncated or the header is wrong")
                          .arg(s.fileSize())
                          .arg(what)
                          .arg(bytes)};

    // Skip extensions (or an image file's leading bytes) up to the values.
    std::unique_ptr<unsigned char[]> scratch(new unsigned char[1 << 16]);
    for (uint64_t left = offset - consumed; left > 0;) {
        const uint64_t step = std::min<uint64_t>(left, 1 << 16);
        const uint64_t got = s.read(scratch.get(), step);
        if (got < step)
            throw Failure{s.path(), s.shortReadReason(offset - left + got, offset, "header and extensions")};
        left -= got;
    }

    std::unique_ptr<void, void (*)(void*)> data(nullptr, &kxfree);
    try {
        data.reset(kxmalloc(bytes));
    } catch (const std::bad_alloc&) {
        throw Failure{s.path(), QString("not enough memory for %1 values (%2 bytes)").arg(what).arg(bytes)};
    }
    const uint64_t got = s.read(data.get(), bytes);
    if (got < bytes) throw Failure{s.path(), s.shortReadReason(got, bytes, what + " values")};
    const QString trailer = s.checkTrailer();
    if (!trailer.isEmpty()) throw Failure{s.path(), trailer};
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
            if (!std::isfinite(s))
                throw Failure{path, QString("pixdim[%1] is not a finite number").arg(a + 1)};
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
    if (!bad.isEmpty()) throw Failure{path, QString("%1 (placement from the %2)").arg(bad, source)};
    return p;
}

void swapEach(unsigned char* p, uint64_t count, std::size_t width)
{
    if (width < 2) return;
    for (uint64_t v = 0; v < count; ++v, p += width) std::reverse(p, p + width);
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
    for (const char* e : {".hdr", ".hdr.gz", ".HDR", ".HDR.GZ"})
        if (isFile(n.base + e)) {
            n.header = n.base + e;
            return n;
        }
    throw Failure{path, QString("no header beside the image (looked for %1.hdr and %1.hdr.gz)").arg(n.base)};
}

QString imageFor(const PairNames& n)
{
    if (!n.image.isEmpty()) return n.image;
    for (const char* e : {".img", ".img.gz", ".IMG", ".IMG.GZ"})
        if (isFile(n.base + e)) return n.base + e;
    throw Failure{n.header,
                  QString("the header's values are in a separate image file, but neither %1.img nor "
                          "%1.img.gz exists")
                      .arg(n.base)};
}

} // namespace

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
    try {
        const PairNames names = pairNames(path);
        Stream headerStream(names.header);
        const Header h = readHeader(headerStream);
        KxDim3l dims;
        KxPrimType type;
        checkHeader(h, names.header, dims, type);

        const VxVolumePlacement where = placement(h, dims, names.header);

        const uint64_t offset = uint64_t(h.voxOffset);
        void* values = nullptr;
        if (h.singleFile) {
            values =
                readValues(headerStream, h.version == 1 ? kHeaderSize1 : kHeaderSize2, offset, dims, type);
        } else {
            Stream imageStream(imageFor(names));
            values = readValues(imageStream, 0, offset, dims, type);
        }
        if (h.swapped) swapEach(static_cast<unsigned char*>(values), uint64_t(dims.count()), type.size());

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
    } catch (const Failure& f) {
        if (error) *error = QString("%1: %2").arg(f.file, f.why);
        return nullptr;
    }
}
