#pragma once
#include <io/VxUnstructuredMesh.h>

#include <QString>

#include <memory>

// Reads a Gmsh mesh (.msh) of format 2.2 or 4.1, ASCII or binary (either byte order), with its
// $NodeData and $ElementData fields. Nodes and elements are referred to by their tags, which need
// not be contiguous. Gmsh's tetrahedron and hexahedron number their nodes as VTK does.
class VxGmshReader
{
public:
    // Fails with a VxReadFailure naming the file.
    static std::unique_ptr<VxUnstructuredMesh> read(const QString& path, const QString& field);
};
