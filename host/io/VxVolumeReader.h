#pragma once
#include <io/VxNiftiReader.h>
#include <io/VxRawReader.h>

#include <QString>
#include <QStringList>

#include <optional>

class VxSpatialData;
class VxRegScalarField3;
class VxUniformLabelField3;

// What to make of a volume file.
struct VxReadOptions
{
    // Load a label volume (integer values, 0 the background) as a VxUniformLabelField3.
    bool labels = false;
    // Read the file as headerless values so described, whatever its name.
    std::optional<VxRawDescription> raw;
};

// What a file said beyond the data object itself.
struct VxVolumeInfo
{
    QString format;    // "NIfTI-1", "NRRD", "MetaImage", "VTK structured points", ...
    QStringList notes; // what the file asks for that the data does not do, one sentence each
    VxNiftiInfo nifti; // particulars of a NIfTI header (scaling above all)
};

// The one entry point for volume files: picks the reader by the file name's extension.
class VxVolumeReader
{
public:
    enum Format
    {
        UNKNOWN = 0,
        NIFTI,     // .nii, .nii.gz, .hdr, .img (and .gz of the pair)
        NRRD,      // .nrrd, .nhdr
        METAIMAGE, // .mha, .mhd
        VTK        // .vtk
    };
    static Format formatForPath(const QString& path);
    // Extensions with their dot, lower case, in the order messages list them.
    static QStringList supportedExtensions();

    // A new data object (reference count 0): a VxRegScalarField3 (uniform, rectilinear or
    // curvilinear), or with options.labels a VxUniformLabelField3. Null, with one sentence naming
    // the file and the problem, when the file cannot be read.
    static VxSpatialData* read(const QString& path, const VxReadOptions& options, QString* error,
                               VxVolumeInfo* info = nullptr);

    // Labels from a field's values: uint8, uint16 and int32 values stay as they are, the other
    // integer types move to the smallest label type that holds their values; floating-point
    // values, or values beyond int32, are refused with a reason. Only uniform fields qualify.
    static VxUniformLabelField3* toLabels(const VxRegScalarField3& field, QString* why);
};
