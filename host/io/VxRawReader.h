#pragma once
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <QString>

class VxUniformScalarField3;
struct VxVolumeLayout;

// Reads a headerless volume: values of one primitive type, x fastest, native byte order. The
// description (dimensions, type, spacing, origin) comes from the caller.
struct VxRawDescription
{
    KxDim3l dims;
    KxPrimType type;
    KxVec3d spacing{1, 1, 1};
    KxVec3d origin{0, 0, 0};
    // Bytes to skip before the values (a header of another format).
    uint64_t offset = 0;
    bool swapBytes = false;
    bool hasUndefined = false;
    double undefinedValue = 0;
};

class VxRawReader
{
public:
    // A new field (reference count 0), or null with a message naming the file and the problem.
    static VxUniformScalarField3* read(const QString& path, const VxRawDescription& d, QString* error);
    // Where the described values lie, after the checks read() makes; false with a message naming
    // the file and the problem.
    static bool locate(const QString& path, const VxRawDescription& d, VxVolumeLayout& layout,
                       QString* error);
    // Checks the description alone; an empty string when it is usable.
    static QString checkDescription(const VxRawDescription& d);
};
