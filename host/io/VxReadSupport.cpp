#include <io/VxReadSupport.h>

#include <io/VxVolumePlacement.h>
#include <kx/KxException.h>
#include <kx/KxMemory.h>
#include <vx/VxRegScalarField3.h>

#include <QFile>
#include <QFileInfo>

#include <new>

#include <sys/stat.h>

namespace VxReadSupport {

std::unique_ptr<VxInputFile> openDataFile(const VxInputFile& header, const std::string& name)
{
    const QString n = QString::fromStdString(name);
    // Plain joining: QDir would take a name starting with ':' for a Qt resource.
    return std::make_unique<VxInputFile>(n.startsWith('/') ? n : QFileInfo(header.path()).path() + '/' + n,
                                         "a data file");
}

QString firstFile(const QString& base, std::initializer_list<const char*> suffixes)
{
    for (const char* suffix : suffixes) {
        const QString name = base + suffix;
        struct stat st;
        if (::stat(QFile::encodeName(name).constData(), &st) == 0 && !S_ISDIR(st.st_mode)) return name;
    }
    return QString();
}

Values allocateValues(const QString& path, uint64_t bytes, const QString& what)
{
    try {
        return Values(kxmalloc(std::size_t(bytes)), &kxfree);
    } catch (const std::bad_alloc&) {
        throw VxReadFailure{path, QString("not enough memory for %1 values (%2 bytes)").arg(what).arg(bytes)};
    }
}

VxUniformScalarField3* uniformField(const KxDim3l& dims, KxPrimType type, void* values,
                                    const VxVolumePlacement& where, const QString& path)
{
    VxUniformScalarField3* field = nullptr;
    try {
        field = new VxUniformScalarField3(dims, type, values);
    } catch (const KxException& e) {
        throw VxReadFailure{path, e.text()};
    }
    field->setBoundingBox(where.box(dims), where.voxelSize());
    SbMatrix m;
    if (where.transform(m)) field->setTransform(m);
    field->setLabel(QFileInfo(path).fileName());
    return field;
}

} // namespace VxReadSupport
