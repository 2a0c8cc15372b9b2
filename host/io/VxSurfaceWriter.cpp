#include <io/VxSurfaceWriter.h>

#include <io/VxChunkWriter.h>
#include <io/VxInventorWriter.h>
#include <kx/KxTempFile.h>
#include <oiv/OivInit.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoNormal.h>
#include <Inventor/nodes/SoNormalBinding.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QCoreApplication>
#include <QFileInfo>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using W = VxChunkWriter;

QString tr(const char* text)
{
    return QCoreApplication::translate("VxSurfaceWriter", text);
}

void setError(QString* error, const QString& text)
{
    if (error) *error = text;
}

inline char* putF32(char* p, float f)
{
    return W::little32(p, W::bits(f));
}

inline char* putU16(char* p, uint16_t v)
{
    p[0] = char(v & 0xff);
    p[1] = char(v >> 8);
    return p + 2;
}

struct SurfaceView
{
    int numVertices;
    int numTriangles;
    const SbVec3f* coords;
    const SbVec3f* normals; // null when the surface has none
    const SbVec3i32* triangles;
};

QString tripleText(const SbVec3f& v)
{
    return QString("%1 %2 %3").arg(double(v[0])).arg(double(v[1])).arg(double(v[2]));
}

// No format has a NaN or an infinity that every reader takes, and a mesh holding one draws as
// garbage: such a surface is refused, naming the first bad vertex.
bool allFinite(const SurfaceView& v, const QString& path, QString* error)
{
    auto finite = [](const SbVec3f& p) {
        return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    };
    // One branch-free pass over the floats as one array (as they are handed to GL), which the
    // compiler vectorizes: all exponent bits set is a NaN or an infinity. The vertex is looked for
    // only when there is one.
    auto anyInfinite = [](const SbVec3f* vectors, int n) {
        const float* f = n ? vectors[0].getValue() : nullptr;
        uint32_t bad = 0;
        for (int64_t i = 0; i < 3 * int64_t(n); ++i) {
            uint32_t u;
            std::memcpy(&u, f + i, 4);
            bad |= uint32_t((u & 0x7f800000u) == 0x7f800000u);
        }
        return bad != 0;
    };
    if (!anyInfinite(v.coords, v.numVertices) && !(v.normals && anyInfinite(v.normals, v.numVertices)))
        return true;
    for (int i = 0; i < v.numVertices; ++i) {
        const bool coordOk = finite(v.coords[i]);
        if (coordOk && (!v.normals || finite(v.normals[i]))) continue;
        setError(error, (coordOk ? tr("cannot write %1: the normal of vertex %2 is not finite (%3)")
                                 : tr("cannot write %1: vertex %2 has a coordinate that is not finite (%3)"))
                            .arg(path, QString::number(i), tripleText(coordOk ? v.normals[i] : v.coords[i])));
        return false;
    }
    return true;
}

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
    if (!allFinite(v, path, error)) return false;
    // Any index outside [0, n) is at least n as unsigned, a negative one too: one vectorized pass,
    // and the triangle is looked for only when there is one.
    const int32_t* indices = v.numTriangles ? v.triangles[0].getValue() : nullptr;
    const uint32_t limit = uint32_t(v.numVertices);
    uint32_t outside = 0;
    for (int64_t i = 0; i < 3 * int64_t(v.numTriangles); ++i)
        outside |= uint32_t(uint32_t(indices[i]) >= limit);
    if (!outside) return true;
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

// Writes "a b c" (floats, shortest exact text) with a separator in front of each but the first.
char* putTriple(char* o, const float* p, const char* lead = "")
{
    for (int k = 0; k < 3; ++k) {
        if (k)
            *o++ = ' ';
        else
            for (const char* l = lead; *l; ++l) *o++ = *l;
        o = W::text(o, p[k]);
    }
    return o;
}

// The triangles, one record each, as put writes them (at most maxBytes long).
template <class Put> void putFaces(const SurfaceView& v, W& w, size_t maxBytes, Put put)
{
    w.putRecords(v.numTriangles, maxBytes,
                 [&](char* o, int64_t t) { return put(o, v.triangles[t].getValue()); });
}

// "3 a b c" lines.
void putFaces(const SurfaceView& v, W& w)
{
    putFaces(v, w, 48, [](char* o, const int32_t* idx) {
        *o++ = '3';
        for (int k = 0; k < 3; ++k) {
            *o++ = ' ';
            o = W::text(o, int64_t(idx[k]));
        }
        *o++ = '\n';
        return o;
    });
}

char* plyBinaryFace(char* o, const int32_t* idx)
{
    *o++ = 3;
    for (int k = 0; k < 3; ++k) o = W::little32(o, uint32_t(idx[k]));
    return o;
}

char* vtkBinaryFace(char* o, const int32_t* idx)
{
    o = W::big32(o, 3);
    for (int k = 0; k < 3; ++k) o = W::big32(o, uint32_t(idx[k]));
    return o;
}

// One vector a line, "lead x y z".
void putTripleLines(W& w, int n, const SbVec3f* vectors, const char* lead = "")
{
    w.putRecords(n, 80, [&](char* o, int64_t i) {
        o = putTriple(o, vectors[i].getValue(), lead);
        *o++ = '\n';
        return o;
    });
}

void writePly(const SurfaceView& v, W& w, bool ascii)
{
    // A surface without normals (the cell-grid modules make none) is written without them: zero
    // vectors would read as normals to a viewer, and it would light the surface black.
    w.put(QByteArray("ply\nformat ") + (ascii ? "ascii" : "binary_little_endian") +
          " 1.0\ncomment written by vxiso\nelement vertex " + QByteArray::number(v.numVertices) +
          "\nproperty float x\nproperty float y\nproperty float z\n" +
          (v.normals ? "property float nx\nproperty float ny\nproperty float nz\n" : "") + "element face " +
          QByteArray::number(v.numTriangles) + "\nproperty list uchar int vertex_indices\nend_header\n");
    if (ascii) {
        w.putRecords(v.numVertices, 160, [&](char* o, int64_t i) {
            o = putTriple(o, v.coords[i].getValue());
            if (v.normals) o = putTriple(o, v.normals[i].getValue(), " ");
            *o++ = '\n';
            return o;
        });
        return putFaces(v, w);
    }
    auto putVector = [](char* o, const SbVec3f& p) {
        for (int k = 0; k < 3; ++k) o = putF32(o, p[k]);
        return o;
    };
    const SbVec3f* coords = v.coords;
    const SbVec3f* normals = v.normals;
    if (normals)
        w.putRecords(v.numVertices, 24,
                     [&](char* o, int64_t i) { return putVector(putVector(o, coords[i]), normals[i]); });
    else
        w.putRecords(v.numVertices, 12, [&](char* o, int64_t i) { return putVector(o, coords[i]); });
    putFaces(v, w, 13, [](char* o, const int32_t* idx) { return plyBinaryFace(o, idx); });
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

void writeStl(const SurfaceView& v, W& w, bool ascii)
{
    if (ascii) {
        w.put("solid vxiso\n", 12);
        for (int t = 0; t < v.numTriangles && w.ok(); ++t) {
            const int32_t* idx = v.triangles[t].getValue();
            const SbVec3f n = faceNormal(v.coords[idx[0]], v.coords[idx[1]], v.coords[idx[2]]);
            char* o = w.room(400);
            o = putTriple(o, n.getValue(), "facet normal ");
            const char loop[] = "\n outer loop\n";
            std::memcpy(o, loop, sizeof loop - 1);
            o += sizeof loop - 1;
            for (int k = 0; k < 3; ++k) {
                o = putTriple(o, v.coords[idx[k]].getValue(), "  vertex ");
                *o++ = '\n';
            }
            const char end[] = " endloop\nendfacet\n";
            std::memcpy(o, end, sizeof end - 1);
            w.advance(o + sizeof end - 1);
        }
        w.put("endsolid vxiso\n", 15);
        return;
    }
    // A binary header must not begin with "solid", or readers take the file for ASCII.
    char header[80] = {};
    const char text[] = "binary STL written by vxiso";
    std::memcpy(header, text, sizeof text - 1);
    w.put(header, sizeof header);
    char count[4];
    W::little32(count, uint32_t(v.numTriangles));
    w.put(count, sizeof count);
    putFaces(v, w, 50, [&](char* o, const int32_t* idx) {
        const SbVec3f& a = v.coords[idx[0]];
        const SbVec3f& b = v.coords[idx[1]];
        const SbVec3f& c = v.coords[idx[2]];
        const SbVec3f n = faceNormal(a, b, c);
        for (const SbVec3f* p : {&n, &a, &b, &c})
            for (int k = 0; k < 3; ++k) o = putF32(o, (*p)[k]);
        return putU16(o, 0);
    });
}

void writeOff(const SurfaceView& v, W& w)
{
    w.put("OFF\n" + QByteArray::number(v.numVertices) + ' ' + QByteArray::number(v.numTriangles) + " 0\n");
    putTripleLines(w, v.numVertices, v.coords);
    putFaces(v, w);
}

// Indices count from 1; with normals each corner names its vertex and its normal, "a//a".
void writeObj(const SurfaceView& v, W& w)
{
    w.put("# written by vxiso\n", 19);
    putTripleLines(w, v.numVertices, v.coords, "v ");
    if (v.normals) putTripleLines(w, v.numVertices, v.normals, "vn ");
    for (int t = 0; t < v.numTriangles && w.ok(); ++t) {
        const int32_t* idx = v.triangles[t].getValue();
        char* o = w.room(96);
        *o++ = 'f';
        for (int k = 0; k < 3; ++k) {
            *o++ = ' ';
            o = W::text(o, int64_t(idx[k]) + 1);
            if (v.normals) {
                *o++ = '/';
                *o++ = '/';
                o = W::text(o, int64_t(idx[k]) + 1);
            }
        }
        *o++ = '\n';
        w.advance(o);
    }
}

// Legacy VTK: binary values are big-endian; every binary block ends with a newline.
void writeVtk(const SurfaceView& v, W& w, bool ascii)
{
    w.put(QByteArray("# vtk DataFile Version 3.0\nvxiso surface\n") + (ascii ? "ASCII" : "BINARY") +
          "\nDATASET POLYDATA\nPOINTS " + QByteArray::number(v.numVertices) + " float\n");
    auto putVectors = [&](const SbVec3f* vectors) {
        if (ascii) return putTripleLines(w, v.numVertices, vectors);
        w.putRecords(v.numVertices, 12, [&](char* o, int64_t i) {
            for (int k = 0; k < 3; ++k) o = W::big32(o, W::bits(vectors[i][k]));
            return o;
        });
        w.put("\n", 1);
    };
    putVectors(v.coords);
    w.put("POLYGONS " + QByteArray::number(v.numTriangles) + ' ' +
          QByteArray::number(4 * qint64(v.numTriangles)) + '\n');
    if (ascii)
        putFaces(v, w);
    else
        putFaces(v, w, 16, [](char* o, const int32_t* idx) { return vtkBinaryFace(o, idx); });
    if (!ascii) w.put("\n", 1);
    if (v.normals && v.numVertices) {
        w.put("POINT_DATA " + QByteArray::number(v.numVertices) + "\nNORMALS Normals float\n");
        putVectors(v.normals);
    }
}

void writeInventor(const SurfaceView& v, W& w)
{
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
    VxInventorWriter::write(root, w);
    root->unref();
}

} // namespace

VxSurfaceWriter::Format VxSurfaceWriter::formatForPath(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == QLatin1String("ply")) return PLY;
    if (ext == QLatin1String("stl")) return STL;
    if (ext == QLatin1String("off")) return OFF;
    if (ext == QLatin1String("iv")) return IV;
    if (ext == QLatin1String("obj")) return OBJ;
    if (ext == QLatin1String("vtk")) return VTK;
    return UNKNOWN;
}

QStringList VxSurfaceWriter::supportedExtensions()
{
    return {QStringLiteral(".ply"), QStringLiteral(".stl"), QStringLiteral(".off"),
            QStringLiteral(".iv"),  QStringLiteral(".obj"), QStringLiteral(".vtk")};
}

QString VxSurfaceWriter::extensionHint()
{
    QStringList e = supportedExtensions();
    const QString last = e.takeLast();
    return tr("(use %1 or %2)").arg(e.join(", "), last);
}

bool VxSurfaceWriter::write(const SoTriSurface& surface, const QString& path,
                            const VxSurfaceWriteOptions& options, QString* error)
{
    const Format format = formatForPath(path);
    if (format == UNKNOWN) {
        const QString ext = QFileInfo(path).suffix();
        setError(error,
                 ext.isEmpty()
                     ? tr("no output format for %1: the name has no extension %2").arg(path, extensionHint())
                     : tr("unsupported output format '.%1' for %2 %3").arg(ext, path, extensionHint()));
        return false;
    }
    oivInit();
    SurfaceView view;
    if (!viewSurface(surface, path, view, error)) return false;

    KxTempFile file(path);
    if (!file.open(error)) return false;
    W w(file.fd());
    switch (format) {
    case PLY:
        writePly(view, w, options.ascii);
        break;
    case STL:
        writeStl(view, w, options.ascii);
        break;
    case OFF:
        writeOff(view, w);
        break;
    case OBJ:
        writeObj(view, w);
        break;
    case VTK:
        writeVtk(view, w, options.ascii);
        break;
    default:
        writeInventor(view, w);
        break;
    }
    if (!w.flush()) return file.fail(error, w.error());
    return file.commit(error);
}
