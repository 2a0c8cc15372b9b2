#include <io/VxReadSupport.h>

#include <io/VxVolumePlacement.h>
#include <kx/KxException.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

namespace VxReadSupport {

std::unique_ptr<VxInputFile> openDataFile(const VxInputFile& header, const std::string& name)
{
    const QString n = QString::fromStdString(name);
    // Plain joining: QDir would take a name starting with ':' for a Qt resource.
    return std::make_unique<VxInputFile>(n.startsWith('/') ? n : QFileInfo(header.path()).path() + '/' + n,
                                         "a data file");
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
