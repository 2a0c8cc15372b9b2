#include <io/VxSurfaceWriter.h>

#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/SoOutput.h>
#include <Inventor/actions/SoWriteAction.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoNormal.h>
#include <Inventor/nodes/SoNormalBinding.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio> // fopencookie
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("VxSurfaceWriter", text);
}

QString osError(const QString& path, int err)
{
    return tr("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(err)));
}

void setError(QString* error, const QString& text)
{
    if (error) *error = text;
}

// Little-endian stores into a byte buffer; the file formats fix the byte order, the host does not.
inline char* putU32(char* p, uint32_t v)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    std::memcpy(p, &v, 4);
    return p + 4;
}

inline char* putF32(char* p, float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return putU32(p, u);
}

inline char* putU16(char* p, uint16_t v)
{
    p[0] = char(v & 0xff);
    p[1] = char(v >> 8);
    return p + 2;
}

// Collects output in large blocks so that a mesh of millions of triangles costs a few hundred
// system calls; the first failure is kept and later output is dropped.
class ChunkWriter
{
public:
    static constexpr size_t CHUNK = size_t(1) << 20;

    explicit ChunkWriter(int fd) : m_fd(fd), m_buf(CHUNK) {}

    bool ok() const { return m_errno == 0; }
    int error() const { return m_errno; }
    void fail(int err)
    {
        if (!m_errno) m_errno = err ? err : EIO;
    }

    // At least n (at most a few hundred) writable bytes; advance() then says how many were used.
    char* room(size_t n)
    {
        if (m_used + n > m_buf.size()) flush();
        return m_buf.data() + m_used;
    }
    void advance(char* end) { m_used = size_t(end - m_buf.data()); }

    void put(const char* text, size_t n)
    {
        while (n > 0) {
            if (m_used == m_buf.size()) flush();
            const size_t k = std::min(n, m_buf.size() - m_used);
            std::memcpy(m_buf.data() + m_used, text, k);
            m_used += k;
            text += k;
            n -= k;
        }
    }
    void put(const QByteArray& text) { put(text.constData(), size_t(text.size())); }

    bool flush()
    {
        const char* p = m_buf.data();
        size_t left = m_errno ? 0 : m_used;
        while (left > 0) {
            const ssize_t w = ::write(m_fd, p, left);
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) {
                m_errno = w < 0 ? errno : ENOSPC;
                break;
            }
            p += w;
            left -= size_t(w);
        }
        m_used = 0;
        return ok();
    }

private:
    int m_fd;
    std::vector<char> m_buf;
    size_t m_used = 0;
    int m_errno = 0;
};

// A temporary sibling of the target that takes the target's place only when complete; anything
// short of commit() removes it again and leaves the target as it was.
class TempFile
{
public:
    explicit TempFile(const QString& target) : m_target(target), m_targetName(QFile::encodeName(target)) {}
    ~TempFile() { discard(); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    int fd() const { return m_fd; }

    bool open(QString* error)
    {
        struct stat st;
        mode_t keepMode = 0;
        bool haveMode = false;
        if (::stat(m_targetName.constData(), &st) == 0) {
            if (S_ISDIR(st.st_mode)) return fail(error, EISDIR);
            // Replacing a file keeps its permissions; a new file gets the usual ones (umask).
            if (S_ISREG(st.st_mode)) {
                keepMode = st.st_mode & 07777;
                haveMode = true;
            }
        }
        const int slash = m_targetName.lastIndexOf('/');
        const QByteArray dir = m_targetName.left(slash + 1);
        // Keep room for the suffix within the usual 255-byte name limit.
        const QByteArray base = m_targetName.mid(slash + 1).left(200);
        static std::atomic<unsigned> serial{0};
        for (int attempt = 0; attempt < 100; ++attempt) {
            m_tempName = dir + '.' + base + '.' + QByteArray::number(qint64(::getpid())) + '-' +
                         QByteArray::number(serial++) + ".tmp";
            m_fd = ::open(m_tempName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (m_fd >= 0) break;
            if (errno != EEXIST) return fail(error, errno);
        }
        if (m_fd < 0) return fail(error, EEXIST);
        if (haveMode) ::fchmod(m_fd, keepMode);
        return true;
    }

    // Makes the data durable before the rename, so that a crash cannot leave an empty file under
    // the target's name in place of the old one.
    bool commit(QString* error)
    {
        if (::fsync(m_fd) != 0) return fail(error, errno);
        const int fd = m_fd;
        m_fd = -1;
        if (::close(fd) != 0) return fail(error, errno);
        if (::rename(m_tempName.constData(), m_targetName.constData()) != 0) return fail(error, errno);
        m_tempName.clear();
        return true;
    }

    bool fail(QString* error, int err)
    {
        setError(error, osError(m_target, err));
        discard();
        return false;
    }

private:
    void discard()
    {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
        if (!m_tempName.isEmpty()) ::unlink(m_tempName.constData());
        m_tempName.clear();
    }

    QString m_target;
    QByteArray m_targetName;
    QByteArray m_tempName;
    int m_fd = -1;
};

struct SurfaceView
{
    int numVertices;
    int numTriangles;
    const SbVec3f* coords;
    const SbVec3f* normals; // null when the surface has none
    const SbVec3i32* triangles;
};

// Every format stores indices that readers trust, so a surface that points outside its vertex
// list or carries a stray number of normals is refused rather than written.
bool viewSurface(const SoTriSurface& s, const QString& path, SurfaceView& v, QString* error)
{
    v.numVertices = s.coords.getNum();
    v.numTriangles = s.triangles.getNum();
    const int numNormals = s.normals.getNum();
    if (numNormals != 0 && numNormals != v.numVertices) {
        setError(error, tr("cannot write %1: the surface has %2 normals for %3 vertices")
                            .arg(path, QString::number(numNormals), QString::number(v.numVertices)));
        return false;
    }
    v.coords = v.numVertices ? s.coords.getValues(0) : nullptr;
    v.normals = numNormals ? s.normals.getValues(0) : nullptr;
    v.triangles = v.numTriangles ? s.triangles.getValues(0) : nullptr;
    for (int t = 0; t < v.numTriangles; ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        for (int c = 0; c < 3; ++c) {
            if (idx[c] < 0 || idx[c] >= v.numVertices) {
                setError(error, tr("cannot write %1: triangle %2 refers to vertex %3, but the surface has "
                                   "%4 vertices")
                                    .arg(path, QString::number(t), QString::number(idx[c]),
                                         QString::number(v.numVertices)));
                return false;
            }
        }
    }
    return true;
}

void writePly(const SurfaceView& v, ChunkWriter& w)
{
    w.put("ply\nformat binary_little_endian 1.0\ncomment written by vxiso\nelement vertex " +
          QByteArray::number(v.numVertices) +
          "\nproperty float x\nproperty float y\nproperty float z\n"
          "property float nx\nproperty float ny\nproperty float nz\nelement face " +
          QByteArray::number(v.numTriangles) + "\nproperty list uchar int vertex_indices\nend_header\n");
    // Normals stay in the layout even when missing, so that readers see one vertex type.
    static const SbVec3f zero(0.f, 0.f, 0.f);
    for (int i = 0; i < v.numVertices && w.ok(); ++i) {
        const float* p = v.coords[i].getValue();
        const float* n = (v.normals ? v.normals[i] : zero).getValue();
        char* o = w.room(24);
        for (int k = 0; k < 3; ++k) o = putF32(o, p[k]);
        for (int k = 0; k < 3; ++k) o = putF32(o, n[k]);
        w.advance(o);
    }
    for (int t = 0; t < v.numTriangles && w.ok(); ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        char* o = w.room(13);
        *o++ = 3;
        for (int k = 0; k < 3; ++k) o = putU32(o, uint32_t(idx[k]));
        w.advance(o);
    }
}

SbVec3f faceNormal(const SbVec3f& a, const SbVec3f& b, const SbVec3f& c)
{
    // Double precision keeps thin triangles from losing their normal to cancellation.
    const double u[3] = {double(b[0]) - a[0], double(b[1]) - a[1], double(b[2]) - a[2]};
    const double v[3] = {double(c[0]) - a[0], double(c[1]) - a[1], double(c[2]) - a[2]};
    const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (!(len > 0.0) || !std::isfinite(len)) return SbVec3f(0.f, 0.f, 0.f);
    return SbVec3f(float(n[0] / len), float(n[1] / len), float(n[2] / len));
}

void writeStl(const SurfaceView& v, ChunkWriter& w)
{
    // A binary header must not begin with "solid", or readers take the file for ASCII.
    char header[80] = {};
    const char text[] = "binary STL written by vxiso";
    std::memcpy(header, text, sizeof text - 1);
    w.put(header, sizeof header);
    char count[4];
    putU32(count, uint32_t(v.numTriangles));
    w.put(count, sizeof count);
    for (int t = 0; t < v.numTriangles && w.ok(); ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        const SbVec3f& a = v.coords[idx[0]];
        const SbVec3f& b = v.coords[idx[1]];
        const SbVec3f& c = v.coords[idx[2]];
        const SbVec3f n = faceNormal(a, b, c);
        char* o = w.room(50);
        for (const SbVec3f* p : {&n, &a, &b, &c})
            for (int k = 0; k < 3; ++k) o = putF32(o, (*p)[k]);
        o = putU16(o, 0);
        w.advance(o);
    }
}

void writeOff(const SurfaceView& v, ChunkWriter& w)
{
    w.put("OFF\n" + QByteArray::number(v.numVertices) + ' ' + QByteArray::number(v.numTriangles) + " 0\n");
    // Shortest text that reads back as the same float: exact, and smaller than a fixed %.9g.
    for (int i = 0; i < v.numVertices && w.ok(); ++i) {
        const float* p = v.coords[i].getValue();
        char* o = w.room(64);
        char* end = o + 64;
        for (int k = 0; k < 3; ++k) {
            if (k) *o++ = ' ';
            o = std::to_chars(o, end, p[k]).ptr;
        }
        *o++ = '\n';
        w.advance(o);
    }
    for (int t = 0; t < v.numTriangles && w.ok(); ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        char* o = w.room(48);
        char* end = o + 48;
        *o++ = '3';
        for (int k = 0; k < 3; ++k) {
            *o++ = ' ';
            o = std::to_chars(o, end, idx[k]).ptr;
        }
        *o++ = '\n';
        w.advance(o);
    }
}

// Coin prints floats with at most eight significant digits, which moves a few percent of them by
// one unit in the last place; the shortest round-trip text keeps every coordinate exact.
class ExactOutput : public SoOutput
{
public:
    using SoOutput::write;
    void write(const float f) override
    {
        if (isBinary()) return SoOutput::write(f);
        char text[32];
        *std::to_chars(text, text + sizeof text - 1, f).ptr = '\0';
        SoOutput::write(static_cast<const char*>(text));
    }
};

ssize_t writeToChunks(void* cookie, const char* data, size_t n)
{
    static_cast<ChunkWriter*>(cookie)->put(data, n);
    return ssize_t(n);
}

// Coin writes through a FILE*; routing it into the chunk writer keeps the real error code of a
// failed write instead of whatever errno holds after Coin's own work.
void writeInventor(const SurfaceView& v, ChunkWriter& w)
{
    cookie_io_functions_t io = {nullptr, writeToChunks, nullptr, nullptr};
    FILE* fp = ::fopencookie(&w, "w", io);
    if (!fp) {
        w.fail(errno);
        return;
    }
    std::setvbuf(fp, nullptr, _IOFBF, size_t(1) << 16);
    // Index list in face-set form: a, b, c, -1 per triangle.
    std::vector<int32_t> coordIndex(size_t(v.numTriangles) * 4);
    for (int t = 0; t < v.numTriangles; ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        int32_t* o = &coordIndex[size_t(t) * 4];
        o[0] = idx[0];
        o[1] = idx[1];
        o[2] = idx[2];
        o[3] = -1;
    }

    SoSeparator* root = new SoSeparator;
    root->ref();
    // The nodes borrow the surface's arrays instead of copying millions of vertices.
    SoCoordinate3* coords = new SoCoordinate3;
    coords->point.setNum(0);
    if (v.numVertices) coords->point.setValuesPointer(v.numVertices, v.coords);
    coords->point.setDefault(FALSE);
    root->addChild(coords);
    if (v.normals) {
        SoNormal* normals = new SoNormal;
        normals->vector.setValuesPointer(v.numVertices, v.normals);
        root->addChild(normals);
        SoNormalBinding* binding = new SoNormalBinding;
        binding->value = SoNormalBinding::PER_VERTEX_INDEXED;
        root->addChild(binding);
    }
    SoIndexedFaceSet* faces = new SoIndexedFaceSet;
    faces->coordIndex.setNum(0);
    if (!coordIndex.empty()) faces->coordIndex.setValuesPointer(int(coordIndex.size()), coordIndex.data());
    faces->coordIndex.setDefault(FALSE);
    root->addChild(faces);

    {
        ExactOutput out;
        out.setFilePointer(fp);
        SoWriteAction action(&out);
        action.apply(root);
    }
    root->unref();
    std::fclose(fp);
}

} // namespace

VxSurfaceWriter::Format VxSurfaceWriter::formatForPath(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == QLatin1String("ply")) return PLY;
    if (ext == QLatin1String("stl")) return STL;
    if (ext == QLatin1String("off")) return OFF;
    if (ext == QLatin1String("iv")) return IV;
    return UNKNOWN;
}

QStringList VxSurfaceWriter::supportedExtensions()
{
    return {QStringLiteral(".ply"), QStringLiteral(".stl"), QStringLiteral(".off"), QStringLiteral(".iv")};
}

bool VxSurfaceWriter::write(const SoTriSurface& surface, const QString& path, QString* error)
{
    const Format format = formatForPath(path);
    if (format == UNKNOWN) {
        const QString ext = QFileInfo(path).suffix();
        setError(error, ext.isEmpty() ? tr("no output format for %1: the name has no extension "
                                           "(use .ply, .stl, .off or .iv)")
                                            .arg(path)
                                      : tr("unsupported output format '.%1' for %2 (use .ply, .stl, .off "
                                           "or .iv)")
                                            .arg(ext, path));
        return false;
    }
    oivInit();
    SurfaceView view;
    if (!viewSurface(surface, path, view, error)) return false;

    TempFile file(path);
    if (!file.open(error)) return false;
    ChunkWriter w(file.fd());
    switch (format) {
    case PLY:
        writePly(view, w);
        break;
    case STL:
        writeStl(view, w);
        break;
    case OFF:
        writeOff(view, w);
        break;
    default:
        writeInventor(view, w);
        break;
    }
    if (!w.flush()) return file.fail(error, w.error());
    return file.commit(error);
}
