#pragma once
#include <QString>

class VxRegScalarField3;

// Reads a VTK legacy file (.vtk, ASCII or BINARY, whose binary values are big-endian) holding a
// STRUCTURED_POINTS, RECTILINEAR_GRID or STRUCTURED_GRID dataset with one-component point SCALARS of
// one of the eight value types. Structured points become a uniform field (ORIGIN and SPACING place
// it), a rectilinear grid a field on rectilinear coordinates, a structured grid one on curvilinear
// coordinates. Other attributes (vectors, normals, field data, cell data) are skipped.
class VxVtkReader
{
public:
    // A new field (reference count 0), or null with a message naming the file and the problem.
    static VxRegScalarField3* read(const QString& path, QString* error);
};
