#pragma once
#include <io/VxUnstructuredMesh.h>

#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class VxMeshAssembly;

// Reads a VTK legacy UNSTRUCTURED_GRID (.vtk, ASCII or big-endian BINARY; the CELLS list of
// versions up to 4.2 and the OFFSETS and CONNECTIVITY of 5.x) with its POINT_DATA and CELL_DATA:
// SCALARS and FIELD arrays of one component, of any numeric type.
class VxVtkGridReader
{
public:
    // Fails with a VxReadFailure naming the file.
    static std::unique_ptr<VxUnstructuredMesh> read(const QString& path, const QString& field);

    // Cells by VTK cell type, cell i over connectivity[ends[i-1], ends[i]) (from 0 for the
    // first). Tetrahedra (10), hexahedra (12) and voxels (11, turned into hexahedra) are kept, cells
    // of fewer dimensions skipped, other solids refused. Shared with the XML reader.
    static void addCells(VxMeshAssembly& mesh, const std::vector<int64_t>& ends,
                         const std::vector<int64_t>& connectivity, const std::vector<int64_t>& types);
};
