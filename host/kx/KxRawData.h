#pragma once
#include <kx/KxPrimType.h>

class KxProgressInterface;

// Operations on raw arrays of one of the eight primitive types, stored x fastest.
class KxRawData
{
public:
    // Averages blocks of fx * fy * fz samples of src (nx * ny * nz samples) into dst, which receives
    // (nx / fx) * (ny / fy) * (nz / fz) samples of the same type; samples at the far ends that do not
    // fill a whole block are dropped. Integer types round the mean to nearest, halves away from zero.
    // Reports the fraction of output slices done to progress (the caller owns the phase and its text)
    // and returns false, leaving the remaining slices unwritten, when progress reports an interruption.
    // Throws KxException for a factor below 1, negative dimensions, an unknown type or a missing array.
    static bool downSample3D(void* dst, KxTypedPointer src, long nx, long ny, long nz, int fx, int fy, int fz,
                             KxProgressInterface* progress = nullptr);
};
