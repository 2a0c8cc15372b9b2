"""Reads a PLY, STL, OBJ or VTK legacy mesh with VTK and prints it as plain text for the surface writer tests:
"points N" and N lines "x y z", "normals K" and K lines, "cells M" and M lines of point indices."""
import sys

import vtk


def main(path):
    readers = {"ply": vtk.vtkPLYReader, "stl": vtk.vtkSTLReader, "obj": vtk.vtkOBJReader, "vtk": vtk.vtkPolyDataReader}
    reader = readers[path.lower().rsplit(".", 1)[-1]]()
    reader.SetFileName(path)
    reader.Update()
    mesh = reader.GetOutput()
    out = []
    points = mesh.GetPoints()
    n = points.GetNumberOfPoints() if points else 0
    out.append("points %d" % n)
    out.extend("%.9g %.9g %.9g" % points.GetPoint(i) for i in range(n))
    normals = mesh.GetPointData().GetNormals()
    k = normals.GetNumberOfTuples() if normals else 0
    out.append("normals %d" % k)
    out.extend("%.9g %.9g %.9g" % normals.GetTuple3(i) for i in range(k))
    polys = mesh.GetLines() if len(sys.argv) > 2 and sys.argv[2] == "lines" else mesh.GetPolys()
    out.append("cells %d" % polys.GetNumberOfCells())
    ids = vtk.vtkIdList()
    polys.InitTraversal()
    while polys.GetNextCell(ids):
        out.append(" ".join(str(ids.GetId(j)) for j in range(ids.GetNumberOfIds())))
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main(sys.argv[1])  # a second argument "lines" lists the line cells instead of the polygons
