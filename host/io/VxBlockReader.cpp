#include <io/VxBlockReader.h>
#include <io/VxVolumeReader.h>

#include <kx/KxHandle.h>
#include <vx/VxBlockStructuredScalarField3.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegExp>

#include <vector>

namespace {

// A description lists file names; anything much larger is not one.
constexpr qint64 maxDescriptionBytes = 1 << 20;

} // namespace

bool VxBlockReader::isBlockPath(const QString& path)
{
    return path.endsWith(".vxblocks", Qt::CaseInsensitive);
}

VxBlockStructuredScalarField3* VxBlockReader::read(const QString& path, QString* error)
{
    auto fail = [&](const QString& why) -> VxBlockStructuredScalarField3* {
        if (error) *error = why;
        return nullptr;
    };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QString("%1: cannot be opened (%2)").arg(path, file.errorString()));
    if (file.size() > maxDescriptionBytes)
        return fail(QString("%1: %2 bytes is too large for a block description").arg(path).arg(file.size()));
    const QByteArray text = file.readAll();
    if (text.contains('\0')) return fail(QString("%1: is a binary file, not a block description").arg(path));

    const QStringList lines = QString::fromUtf8(text).split('\n');
    const QStringList header = lines.value(0).simplified().split(' ');
    if (header.size() != 3 || header[0] != "#" || header[1] != "vxblocks")
        return fail(QString("%1, line 1: not a block description (the first line must be \"# vxblocks 1\")")
                        .arg(path));
    if (header[2] != "1")
        return fail(QString("%1, line 1: version %2 of the block description is not supported (only 1)")
                        .arg(path, header[2]));

    const QDir folder = QFileInfo(path).absoluteDir();
    std::vector<KxHandle<VxRegScalarField3>> blocks;
    for (int i = 1; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (line.isEmpty() || line.startsWith('#')) continue;
        const QString where = QString("%1, line %2").arg(path).arg(i + 1);
        const QString keyword = line.section(QRegExp("\\s"), 0, 0);
        if (keyword != "block")
            return fail(QString("%1: \"%2\" is not a keyword of block descriptions (expected \"block FILE\")")
                            .arg(where, keyword));
        QString name = line.mid(keyword.size()).trimmed();
        if (name.size() >= 2 && name.startsWith('"') && name.endsWith('"'))
            name = name.mid(1, name.size() - 2);
        if (name.isEmpty()) return fail(QString("%1: the block has no file name").arg(where));
        const QString blockPath = QDir::isAbsolutePath(name) ? name : folder.filePath(name);
        QString why;
        VxSpatialData* data = VxVolumeReader::read(blockPath, VxReadOptions(), &why);
        KxHandle<VxSpatialData> hold(data);
        auto* field = kx_type_cast<VxRegScalarField3>(data);
        if (!field)
            return fail(QString("%1: block %2 cannot be loaded: %3")
                            .arg(where)
                            .arg(blocks.size())
                            .arg(data
                                     ? QString("%1 is not a scalar field on a regular lattice").arg(blockPath)
                                     : why));
        blocks.emplace_back(field);
    }
    if (blocks.empty()) return fail(QString("%1: lists no blocks").arg(path));
    auto* out = new VxBlockStructuredScalarField3;
    for (const auto& b : blocks) out->addBlock(b.get());
    out->setLabel(QFileInfo(path).fileName());
    return out;
}
