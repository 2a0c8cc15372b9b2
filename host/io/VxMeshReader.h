#pragma once
#include <QString>

class VxSpatialData;
struct VxVolumeInfo;

// Mesh files as the framework's data: a scalar field on a tetrahedral grid (VxTetraScalarField3) or
// on a hexahedral grid (VxHexaScalarField3), its values per node or per cell as the file gives them.
class VxMeshReader
{
public:
    // Whether path names a mesh file: .vtu and .msh, and .vtk files whose dataset is an
    // unstructured grid (the other .vtk datasets are volumes).
    static bool isMeshPath(const QString& path);

    // A new data object (reference count 0) holding the one-component field named scalars (the
    // first node field, else the first cell field, when it is empty). Null, with one line naming the
    // file and the problem in *error, when the file cannot be read. info, when given, receives the
    // format and notes on the field and on the cells left out.
    static VxSpatialData* read(const QString& path, const QString& scalars, QString* error,
                               VxVolumeInfo* info = nullptr);
};
