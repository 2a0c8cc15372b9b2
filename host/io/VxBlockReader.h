#pragma once
#include <QString>

class VxBlockStructuredScalarField3;

// Reads a multi-block field from a block description file (.vxblocks): a short text that lists
// the files of the blocks, one block a line, in block order:
//
//     # vxblocks 1
//     # the blocks of the wing, lower half first
//     block lower.vtk
//     block upper/part 2.nii.gz
//
// The first line names the format and its version and must read "# vxblocks 1". After it, blank
// lines and lines starting with '#' are ignored; every other line is the word "block" followed by
// the block's file name: the rest of the line, trimmed, optionally in double quotes (to keep
// leading or trailing blanks). Relative names are relative to the folder of the description file.
// Each block file is any volume that VxVolumeReader reads as a scalar field on a regular lattice
// (uniform, rectilinear or curvilinear coordinates: NIfTI, NRRD, MetaImage, VTK legacy structured
// points or grids). Neighbouring blocks normally repeat the nodes of their common face, so that
// surfaces close across block boundaries.
class VxBlockReader
{
public:
    // True for names ending in ".vxblocks" (any case).
    static bool isBlockPath(const QString& path);

    // A new field (reference count 0) with one block per "block" line, or null with one sentence
    // naming the description file, the line and the problem.
    static VxBlockStructuredScalarField3* read(const QString& path, QString* error);
};
