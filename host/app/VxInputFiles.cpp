#include "VxInputFiles.h"

#include <io/VxBlockReader.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegExp>

#include <sys/stat.h>

namespace {

// A header's text up to its end (a blank line for NRRD); the names sit near the top.
QList<QByteArray> headerLines(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    QList<QByteArray> lines = file.read(1 << 16).split('\n');
    for (int i = 0; i < lines.size(); ++i)
        if (lines[i].trimmed().isEmpty()) return lines.mid(0, i);
    return lines;
}

QString besideHeader(const QString& header, const QString& name)
{
    return QDir::isAbsolutePath(name) ? name : QFileInfo(header).absoluteDir().filePath(name);
}

// The value after the separator of the first line whose key is one of keys (case-insensitive).
QString headerValue(const QString& path, const QStringList& keys, char separator)
{
    for (const QByteArray& line : headerLines(path)) {
        const int at = line.indexOf(separator);
        if (at > 0 && keys.contains(QString::fromUtf8(line.left(at).trimmed()), Qt::CaseInsensitive))
            return QString::fromUtf8(line.mid(at + 1).trimmed());
    }
    return QString();
}

// One data file only: lists and numbered patterns span several and are refused by the readers;
// LOCAL is MetaImage's word for values inside the header's own file.
void addDataFile(const QString& header, const QString& name, QStringList& files)
{
    if (name.isEmpty() || name == "LOCAL" || name.startsWith("LIST") || name.contains('%')) return;
    files << besideHeader(header, name);
}

void addNiftiPartners(const QString& path, QStringList& files)
{
    static const QRegExp pairName("^(.*)\\.(hdr|img)(\\.gz)?$", Qt::CaseInsensitive);
    if (!pairName.exactMatch(path)) return;
    const QString base = pairName.cap(1);
    for (const char* ext : {".hdr", ".hdr.gz", ".img", ".img.gz", ".HDR", ".HDR.GZ", ".IMG", ".IMG.GZ"})
        files << base + ext;
}

void addBlocks(const QString& path, QStringList& files)
{
    for (const QByteArray& raw : headerLines(path)) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (!line.startsWith("block") || line.size() < 6 || !line[5].isSpace()) continue;
        QString name = line.mid(5).trimmed();
        if (name.size() >= 2 && name.startsWith('"') && name.endsWith('"'))
            name = name.mid(1, name.size() - 2);
        // A description never lists another (the readers refuse it), and one that lists itself must
        // not send this round in circles.
        if (!name.isEmpty() && !VxBlockReader::isBlockPath(name))
            files << vxInputFiles(besideHeader(path, name));
    }
}

struct Identity
{
    bool exists = false, valid = false;
    dev_t dev = 0;
    ino_t ino = 0;
    QString name; // for a name that does not exist yet: the entry in the folder dev/ino
};

Identity identify(const QString& path)
{
    Identity id;
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) == 0) {
        id.exists = id.valid = true;
    } else {
        const QFileInfo info(path);
        if (::stat(QFile::encodeName(info.absolutePath()).constData(), &st) != 0) return id;
        id.valid = true;
        id.name = info.fileName();
    }
    id.dev = st.st_dev;
    id.ino = st.st_ino;
    return id;
}

} // namespace

QStringList vxInputFiles(const QString& path)
{
    QStringList files{path};
    const QString lower = path.toLower();
    if (VxBlockReader::isBlockPath(path))
        addBlocks(path, files);
    else if (lower.endsWith(".nhdr") || lower.endsWith(".nrrd"))
        addDataFile(path, headerValue(path, {"data file", "datafile"}, ':'), files);
    else if (lower.endsWith(".mhd") || lower.endsWith(".mha"))
        addDataFile(path, headerValue(path, {"ElementDataFile"}, '='), files);
    else
        addNiftiPartners(path, files);
    files.removeDuplicates();
    QStringList existing;
    for (const QString& f : files)
        if (QFileInfo::exists(f)) existing << f;
    return existing;
}

bool vxSameFile(const QString& a, const QString& b)
{
    const Identity x = identify(a), y = identify(b);
    return x.valid && y.valid && x.exists == y.exists && x.dev == y.dev && x.ino == y.ino && x.name == y.name;
}
