#pragma once
#include <QString>

class VxUniformScalarField3;
struct VxVolumeLayout;

// What a NIfTI header says beyond what the field itself carries.
struct VxNiftiInfo
{
    int version = 0;      // 1 or 2
    bool swapped = false; // stored in the other byte order
    int datatype = 0;     // the header's datatype code
    int qformCode = 0;
    int sformCode = 0;
    // The field keeps the stored values and their type: a uint8 scan stays one byte a voxel and a
    // threshold on it stays exact. When the header scales them (a nonzero slope other than 1, 0),
    // the physical value is stored * slope + inter; scaling() says so in a sentence.
    double slope = 1;
    double inter = 0;

    bool hasScaling() const;
    // Empty without scaling, else e.g. "values are stored unscaled: physical value = 2 * stored - 5".
    QString scaling() const;
    // The stored value that stands for a physical one (the value itself without scaling).
    double toStored(double physical) const;
};

// Reads a NIfTI-1 or NIfTI-2 volume: one file (.nii, .nii.gz) or a header and image pair (.hdr with
// .img or .img.gz, given by either name), either byte order, eight value types, 3-D only. The box
// runs from the world position of the first voxel to origin + (n - 1) * spacing. The sform places
// the voxels (its column lengths are the spacing), else the qform with pixdim's spacing, else
// pixdim alone; when they turn or mirror the axes, that becomes the field's transform, about the
// first voxel.
class VxNiftiReader
{
public:
    // A new field (reference count 0), or null with a message naming the file and the problem.
    // info, when given, receives the header's particulars (scaling above all).
    static VxUniformScalarField3* read(const QString& path, QString* error, VxNiftiInfo* info = nullptr);
    // Where the values lie, from the header alone; false with a message naming the file and the
    // problem.
    static bool locate(const QString& path, VxVolumeLayout& layout, QString* error);
    // True for the names this reader takes: .nii, .nii.gz, .hdr, .hdr.gz, .img, .img.gz (any case).
    static bool isNiftiPath(const QString& path);
};
