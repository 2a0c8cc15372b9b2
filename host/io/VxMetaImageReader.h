#pragma once
#include <QString>

class VxUniformScalarField3;
struct VxVolumeLayout;

// Reads a MetaImage volume: one file (.mha) or a header (.mhd) naming its data file (ElementDataFile
// LOCAL or a file name); raw or zlib-compressed (CompressedData) binary or text values; either byte
// order (BinaryDataByteOrderMSB); the eight MET_ element types. Offset and ElementSpacing place the
// volume; a TransformMatrix other than the identity becomes the field's transform about the first
// node.
class VxMetaImageReader
{
public:
    // A new field (reference count 0), or null with a message naming the file and the problem.
    static VxUniformScalarField3* read(const QString& path, QString* error);
    // Where the values lie, from the header alone (the data file is opened, not read); false with a
    // message naming the file and the problem.
    static bool locate(const QString& path, VxVolumeLayout& layout, QString* error);
};
