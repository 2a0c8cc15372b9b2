#include <io/VxLineSetWriter.h>

#include <io/VxChunkWriter.h>
#include <io/VxInventorWriter.h>
#include <kx/KxTempFile.h>
#include <oiv/OivInit.h>
#include <vx/VxLineSet.h>

#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoLineSet.h>
#include <Inventor/nodes/SoSeparator.h>

#include <QCoreApplication>
#include <QFileInfo>

#include <vector>

namespace {

using W = VxChunkWriter;

QString tr(const char* text)
{
    return QCoreApplication::translate("VxLineSetWriter", text);
}

// Readers trust the indices: a line that is empty or points past the points is refused.
QString checkLines(const VxLineSet& s, const QString& path)
{
    for (int l = 0; l < s.getNumLines(); ++l) {
        const KxDArray<int>& line = s.getLine(l);
        if (line.empty()) return tr("cannot write %1: line %2 has no points").arg(path).arg(l);
        for (int i : line)
            if (i < 0 || i >= s.getNumPoints())
                return tr("cannot write %1: line %2 refers to point %3, but the set has %4 points")
                    .arg(path)
                    .arg(l)
                    .arg(i)
                    .arg(s.getNumPoints());
    }
    return QString();
}

void putNumber(W& w, float v, char end)
{
    char* o = W::text(w.room(40), v);
    *o++ = end;
    w.advance(o);
}

void writeVtk(const VxLineSet& s, W& w)
{
    const int np = s.getNumPoints(), nl = s.getNumLines();
    qint64 size = 0;
    for (int l = 0; l < nl; ++l) size += 1 + qint64(s.getLine(l).size());
    w.put("# vtk DataFile Version 3.0\nvxiso lines\nASCII\nDATASET POLYDATA\nPOINTS " +
          QByteArray::number(np) + " float\n");
    const float* p = s.getPoints();
    for (int i = 0; i < np && w.ok(); ++i)
        for (int k = 0; k < 3; ++k) putNumber(w, p[3 * i + k], k == 2 ? '\n' : ' ');
    w.put("LINES " + QByteArray::number(nl) + ' ' + QByteArray::number(size) + '\n');
    for (int l = 0; l < nl && w.ok(); ++l) {
        const KxDArray<int>& line = s.getLine(l);
        w.put(QByteArray::number(qint64(line.size())));
        for (int i : line) {
            char* o = w.room(24);
            *o++ = ' ';
            w.advance(W::text(o, int64_t(i)));
        }
        w.put("\n", 1);
    }
    if (s.getNumDataValues() == 0) return;
    w.put("POINT_DATA " + QByteArray::number(np) + "\nSCALARS value float\nLOOKUP_TABLE default\n");
    for (int i = 0; i < np && w.ok(); ++i) putNumber(w, s.getPointData(0)[i], '\n');
    w.put("CELL_DATA " + QByteArray::number(nl) + "\nSCALARS value float\nLOOKUP_TABLE default\n");
    for (int l = 0; l < nl && w.ok(); ++l) putNumber(w, s.getLineData(0)[l], '\n');
}

void writeInventor(const VxLineSet& s, W& w)
{
    // A line set draws consecutive vertices: lay the points out line after line.
    std::vector<SbVec3f> vertices;
    std::vector<int32_t> counts;
    const float* p = s.getPoints();
    for (int l = 0; l < s.getNumLines(); ++l) {
        const KxDArray<int>& line = s.getLine(l);
        counts.push_back(int32_t(line.size()));
        for (int i : line) vertices.emplace_back(p[3 * i], p[3 * i + 1], p[3 * i + 2]);
    }
    SoSeparator* root = new SoSeparator;
    root->ref();
    SoCoordinate3* coords = new SoCoordinate3;
    coords->point.setNum(0);
    if (!vertices.empty()) coords->point.setValues(0, int(vertices.size()), vertices.data());
    coords->point.setDefault(FALSE);
    root->addChild(coords);
    SoLineSet* lines = new SoLineSet;
    lines->numVertices.setNum(0);
    if (!counts.empty()) lines->numVertices.setValues(0, int(counts.size()), counts.data());
    lines->numVertices.setDefault(FALSE);
    root->addChild(lines);
    VxInventorWriter::write(root, w);
    root->unref();
}

} // namespace

QStringList VxLineSetWriter::supportedExtensions()
{
    return {QStringLiteral(".vtk"), QStringLiteral(".iv")};
}

bool VxLineSetWriter::write(const VxLineSet& lines, const QString& path, QString* error)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext != "vtk" && ext != "iv") {
        if (error) *error = tr("unsupported line-set format for %1 (use .vtk or .iv)").arg(path);
        return false;
    }
    const QString bad = checkLines(lines, path);
    if (!bad.isEmpty()) {
        if (error) *error = bad;
        return false;
    }
    oivInit();
    KxTempFile file(path);
    if (!file.open(error)) return false;
    W w(file.fd());
    if (ext == "vtk")
        writeVtk(lines, w);
    else
        writeInventor(lines, w);
    if (!w.flush()) return file.fail(error, w.error());
    return file.commit(error);
}
