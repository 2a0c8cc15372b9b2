#pragma once
#include <QString>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A tetrahedral or hexahedral mesh with one scalar field, as a mesh file holds it: plain arrays,
// free of the framework's data classes, so that each reader stays a parser and the grids are made
// from it in one place.
//
// Hexahedron nodes: 0..3 one face in cyclic order, 4..7 the opposite face with node 4 over node 0
// (VTK's and Gmsh's order alike). Tetrahedra keep the orientation the file gives them.
struct VxUnstructuredMesh
{
    enum class CellType
    {
        Tetrahedron,
        Hexahedron
    };
    enum class Association
    {
        Node, // one value per node
        Cell  // one value per cell
    };

    CellType cellType = CellType::Tetrahedron;
    std::vector<float> points;  // x y z of each node
    std::vector<int32_t> cells; // 4 or 8 node indices per cell, each below nodeCount()
    std::vector<float> values;  // nodeCount() or cellCount() of them
    std::string valueType;      // the stored type as the file names it ("Float64", "double")
    Association association = Association::Node;
    std::string fieldName;                // the field the values come from
    std::vector<std::string> otherFields; // the other one-component fields, in file order
    int64_t skippedCells = 0;             // triangles, lines, vertices and the like, left out
    std::string format;                   // "VTK legacy", "VTK XML", "Gmsh 2.2", "Gmsh 4.1"

    int nodesPerCell() const { return cellType == CellType::Tetrahedron ? 4 : 8; }
    int64_t nodeCount() const { return int64_t(points.size() / 3); }
    int64_t cellCount() const { return int64_t(cells.size()) / nodesPerCell(); }
};

// Reads a VTK legacy UNSTRUCTURED_GRID (.vtk), a VTK XML unstructured grid (.vtu) or a Gmsh mesh
// (.msh), told apart by their first bytes (the extension decides when those say nothing). The field
// is the one-component array named scalarsName; with an empty name the first node field, else the
// first cell field. Null, with one line "<file>: <problem>" in *error, when the file cannot be read.
std::unique_ptr<VxUnstructuredMesh> readUnstructuredMesh(const QString& path, const QString& scalarsName,
                                                         QString* error);
