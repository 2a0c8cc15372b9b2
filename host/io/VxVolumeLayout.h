#pragma once
#include <io/VxValueReader.h>
#include <io/VxVolumePlacement.h>
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <QString>

#include <cstdint>

// Where a uniform volume's values lie in a file, as its header says: for programs that read only a
// part of them (each process of a parallel run its slab). The readers that can say it offer a
// locate() beside read(), built on the same header parsing.
struct VxVolumeLayout
{
    QString format;   // "raw", "NRRD", ...
    QString dataPath; // the file holding the values (the header's own file or the one it names)
    uint64_t offset = 0;
    KxDim3l dims;
    KxPrimType type;
    VxEncoding encoding = VxEncoding::Raw;
    bool bigEndian = false;
    VxVolumePlacement placement; // normalised for dims
    bool hasUndefined = false;
    double undefinedValue = 0;
};
