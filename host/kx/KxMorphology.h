#pragma once
#include <kx/KxBitfield.h>
#include <kx/KxVec3.h>

// Morphological operations on 3-D bit masks stored x fastest (bit x + nx * (y + ny * z)).
class KxMorphology
{
public:
    // Dilates the mask iterations times by one voxel: a voxel is set in out when it or one of its
    // neighbours is set in in. neighborhood 6 takes the face neighbours, 18 faces and edges, 26 (the
    // default) the whole 3x3x3 cube, so that every cell touching a set voxel gets all eight corners set;
    // voxels outside the lattice count as unset. out may be in itself. Throws KxException for another
    // neighborhood, negative iterations or dimensions, or a mask whose size is not dims.x * dims.y * dims.z.
    static void dilation3D(const KxBitfield& in, KxBitfield& out, const KxVec3i& dims, int iterations,
                           int neighborhood = 26);

private:
    static void dilateOnce(const KxBitfield& in, KxBitfield& out, const KxVec3i& dims, int neighborhood);
};
