#include "VxHostFormats.h"

#include <io/VxNiftiReader.h>
#include <io/VxSurfaceWriter.h>
#include <vx/VxApplication.h>
#include <vx/VxRegScalarField3.h>

#include <QFileInfo>

void vxhostInstallFormats(VxApplication* app)
{
    app->setLoader([](const QString& path, bool labels, QString* error) -> VxObject* {
        if (labels) {
            *error = QString("load: \"%1\": label volumes cannot be read yet").arg(path);
            return nullptr;
        }
        if (!VxNiftiReader::isNiftiPath(path)) {
            *error = QString("load: \"%1\": unknown file format (known: .nii, .nii.gz, .hdr, .img)").arg(path);
            return nullptr;
        }
        return VxNiftiReader::read(path, error);
    });
    app->setSurfaceExporter([](const SoTriSurface& surface, const QString& format, const QString& path,
                               QString* error) {
        if (!format.isEmpty() && QFileInfo(path).suffix().compare(format, Qt::CaseInsensitive) != 0) {
            *error = QString("format \"%1\" does not match the extension of \"%2\"").arg(format, path);
            return false;
        }
        return VxSurfaceWriter::write(surface, path, error);
    });
}
