#pragma once
#include <QString>

class VxUniformScalarField3;
struct VxVolumeLayout;

// Reads a NRRD volume: one file (.nrrd) or a detached header (.nhdr) naming its data file; raw,
// gzip or text encoding; either byte order; the eight value types; three axes (a leading axis of
// size one is dropped). Placement comes from "space directions" and "space origin", else from
// "spacings" and "axis mins"; directions other than the coordinate axes become the field's
// transform about the first node.
class VxNrrdReader
{
public:
    // A new field (reference count 0), or null with a message naming the file and the problem.
    static VxUniformScalarField3* read(const QString& path, QString* error);
    // Where the values lie, from the header alone (the data file is opened, not read); false with a
    // message naming the file and the problem.
    static bool locate(const QString& path, VxVolumeLayout& layout, QString* error);
};
