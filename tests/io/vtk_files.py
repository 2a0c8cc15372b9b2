"""VTK's own readers and writers for the io tests, so that our files meet an independent program.

  mesh PATH [lines]: a PLY, STL, OBJ or VTK mesh as "points N", "normals K" and "cells M" each followed by
      its lines (x y z, or a cell's point indices; the line cells with "lines")
  write KIND TYPE PATH ...: volumes by VTK's writers; KIND mhd, mha (compressed), sp, spb, rg, rgb, sg, sgb
      (structured points, rectilinear and structured grids; b: BINARY); TYPE a VTK scalar type
  read PATH ...: NRRD files by vtkNrrdReader
For each volume, what VTK reads in it: "dims", "points N" and N lines "x y z" (x fastest), "values N" and N lines.
"""
import itertools
import sys

# Only the modules needed: the whole of vtk would register an MPI variant of the NRRD reader that
# fails without a controller.
from vtkmodules import vtkCommonCore as core
from vtkmodules.vtkCommonDataModel import vtkImageData, vtkRectilinearGrid, vtkStructuredGrid
from vtkmodules.vtkIOGeometry import vtkOBJReader, vtkSTLReader
from vtkmodules.vtkIOImage import vtkMetaImageReader, vtkMetaImageWriter, vtkNrrdReader
from vtkmodules.vtkIOLegacy import (vtkPolyDataReader, vtkRectilinearGridReader, vtkRectilinearGridWriter,
                                    vtkStructuredGridReader, vtkStructuredGridWriter, vtkStructuredPointsReader,
                                    vtkStructuredPointsWriter)
from vtkmodules.vtkIOPLY import vtkPLYReader

TYPES = {  # array class and range of the integer types
    "unsigned_char": (core.vtkUnsignedCharArray, 0, 255),
    "char": (core.vtkSignedCharArray, -128, 127),
    "unsigned_short": (core.vtkUnsignedShortArray, 0, 65535),
    "short": (core.vtkShortArray, -32768, 32767),
    "unsigned_int": (core.vtkUnsignedIntArray, 0, 4294967295),
    "int": (core.vtkIntArray, -2147483648, 2147483647),
    "float": (core.vtkFloatArray, None, None),
    "double": (core.vtkDoubleArray, None, None),
}
DIMS = (5, 4, 3)
CLASSES = {  # writer and reader by the kind's first two letters
    "mh": (vtkMetaImageWriter, vtkMetaImageReader),
    "sp": (vtkStructuredPointsWriter, vtkStructuredPointsReader),
    "rg": (vtkRectilinearGridWriter, vtkRectilinearGridReader),
    "sg": (vtkStructuredGridWriter, vtkStructuredGridReader),
}


def rows(name, n, get):
    return ["%s %d" % (name, n)] + ["%.9g %.9g %.9g" % get(i) for i in range(n)]


def read(reader, path):
    reader.SetFileName(path)
    reader.Update()
    return reader.GetOutput()


def mesh(path, lines):
    readers = {"ply": vtkPLYReader, "stl": vtkSTLReader, "obj": vtkOBJReader, "vtk": vtkPolyDataReader}
    m = read(readers[path.lower().rsplit(".", 1)[-1]](), path)
    points, normals = m.GetPoints(), m.GetPointData().GetNormals()
    out = rows("points", points.GetNumberOfPoints() if points else 0, lambda i: points.GetPoint(i))
    out += rows("normals", normals.GetNumberOfTuples() if normals else 0, lambda i: normals.GetTuple3(i))
    cells, ids = m.GetLines() if lines else m.GetPolys(), core.vtkIdList()
    out.append("cells %d" % cells.GetNumberOfCells())
    cells.InitTraversal()
    while cells.GetNextCell(ids):
        out.append(" ".join(str(ids.GetId(j)) for j in range(ids.GetNumberOfIds())))
    return out


def floats(values):
    a = core.vtkFloatArray()
    for v in values:
        a.InsertNextValue(v)
    return a


def dataset(kind, type_name):
    if kind[:2] in ("mh", "sp"):
        d = vtkImageData()
        d.SetSpacing(0.5, 2, 1.25)
        d.SetOrigin(10, -4, 3)
    elif kind[:2] == "rg":
        d = vtkRectilinearGrid()
        d.SetXCoordinates(floats([10, 10.5, 11.25, 12.5, 14]))
        d.SetYCoordinates(floats([-4, -2, 1, 5]))
        d.SetZCoordinates(floats([3, 3.125, 4.5]))
    else:
        d, p = vtkStructuredGrid(), core.vtkPoints()
        for k, j, i in itertools.product(range(DIMS[2]), range(DIMS[1]), range(DIMS[0])):
            p.InsertNextPoint(10 + 0.5 * i + 0.1 * j, -4 + 2 * j + 0.01 * i * k, 3 + 1.25 * k)
        d.SetPoints(p)
    d.SetDimensions(*DIMS)
    make, lo, hi = TYPES[type_name]
    a = make()
    for i in range(DIMS[0] * DIMS[1] * DIMS[2]):  # the extremes first, then a spread over the range
        a.InsertNextValue((i * 37 % 23 - 11) * 1.25e3 ** ((i % 5) - 2) + 0.1 if lo is None else
                          lo if i == 0 else hi if i == 1 else lo + (i * 2654435761) % (hi - lo + 1))
    d.GetPointData().SetScalars(a)
    return d


def volume(d):
    # What is in the file, as VTK reads it back: text files hold fewer digits than memory.
    s = d.GetPointData().GetScalars()
    return (["dims %d %d %d" % d.GetDimensions()] + rows("points", d.GetNumberOfPoints(), d.GetPoint) +
            ["values %d" % s.GetNumberOfTuples()] + [repr(s.GetTuple1(i)) for i in range(s.GetNumberOfTuples())])


def main(command, args):
    if command == "mesh":
        return mesh(args[0], args[1:] == ["lines"])
    if command == "read":
        return [line for path in args for line in volume(read(vtkNrrdReader(), path))]
    out = []
    for kind, type_name, path in zip(args[0::3], args[1::3], args[2::3]):
        writer, reader = CLASSES[kind[:2]]
        w = writer()
        if kind[:2] == "mh":
            w.SetCompression(kind == "mha")
        elif kind.endswith("b"):
            w.SetFileTypeToBinary()
        w.SetInputData(dataset(kind, type_name))
        w.SetFileName(path)
        w.Write()
        out += volume(read(reader(), path))
    return out


if __name__ == "__main__":
    sys.stdout.write("\n".join(main(sys.argv[1], sys.argv[2:])) + "\n")
