#include "VxHostFormats.h"

#include <io/VxBlockReader.h>
#include <io/VxInventorReader.h>
#include <io/VxLineSetWriter.h>
#include <io/VxMeshReader.h>
#include <io/VxSurfaceWriter.h>
#include <io/VxVolumeReader.h>
#include <vx/VxApplication.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxInventorScene.h>
#include <vx/VxLineSet.h>
#include <vx/VxSpatialData.h>

#include <QFileInfo>

namespace {

// FORMAT as "exportData" takes it: a file extension, optionally "-ascii" for the text variant
// (e.g. "ply-ascii"); empty takes the file's own extension.
bool checkFormat(const QString& format, const QString& path, bool* ascii, QString* error)
{
    QString name = format.toLower();
    *ascii = name.endsWith("-ascii");
    if (*ascii) name.chop(6);
    if (!name.isEmpty() && QFileInfo(path).suffix().compare(name, Qt::CaseInsensitive) != 0) {
        *error = QString("format \"%1\" does not match the extension of \"%2\"").arg(format, path);
        return false;
    }
    return true;
}

} // namespace

void vxhostInstallFormats(VxApplication* app)
{
    app->setLoader([](const QString& path, bool labels, QString* error) -> VxObject* {
        if (VxBlockReader::isBlockPath(path)) {
            if (labels) {
                *error = QString("\"%1\": a multi-block field cannot be read as labels").arg(path);
                return nullptr;
            }
            return VxBlockReader::read(path, error);
        }
        if (VxInventorReader::isScenePath(path)) {
            if (labels) {
                *error = QString("\"%1\": a scene cannot be read as labels").arg(path);
                return nullptr;
            }
            SoSeparator* scene = VxInventorReader::read(path, error);
            return scene ? new VxInventorScene(scene) : nullptr;
        }
        if (VxMeshReader::isMeshPath(path)) {
            if (labels) {
                *error = QString("\"%1\": a mesh cannot be read as labels").arg(path);
                return nullptr;
            }
            return VxMeshReader::read(path, QString(), error);
        }
        VxReadOptions options;
        options.labels = labels;
        return VxVolumeReader::read(path, options, error);
    });
    app->setSurfaceExporter(
        [](const SoTriSurface& surface, const QString& format, const QString& path, QString* error) {
            VxSurfaceWriteOptions options;
            if (!checkFormat(format, path, &options.ascii, error)) return false;
            return VxSurfaceWriter::write(surface, path, options, error);
        });
    app->setDataExporter(
        [](const VxObject& object, const QString& format, const QString& path, QString* error) {
            bool ascii;
            if (!checkFormat(format, path, &ascii, error)) return false;
            if (const auto* lines = kx_type_cast<VxLineSet>(&object))
                return VxLineSetWriter::write(*lines, path, error);
            *error = QString("\"%1\" (%2) cannot be written to a file")
                         .arg(object.getName(), QString::fromUtf8(object.getTypeId()->getName()));
            return false;
        });
}
