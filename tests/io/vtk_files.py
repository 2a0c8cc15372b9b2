"""VTK's own readers and writers for the io tests, so that our files meet an independent program.

  mesh PATH [lines]: a PLY, STL, OBJ or VTK mesh as "points N", "normals K" and "cells M" each followed by
      its lines (x y z, or a cell's point indices; the line cells with "lines")
  write KIND TYPE PATH ...: volumes by VTK's writers; KIND mhd, mha (compressed), sp, spb, rg, rgb, sg, sgb
      (structured points, rectilinear and structured grids; b: BINARY); TYPE a VTK scalar type
  read PATH ...: NRRD files by vtkNrrdReader
  grid SHAPE KIND PATH ...: unstructured grids of tetrahedra or hexahedra (SHAPE tet or hex, with a boundary
      triangle or quad and a vertex among them) with node and cell fields, by VTK's writers; KIND vtk or vtk42
      (legacy, newest and 4.2 layout) with -ascii or -binary, or vtu with -ascii, -binary, -appended, -base64
      (appended, encoded), each optionally -zlib (small blocks), -u64 (64-bit headers), -big (big-endian).
      Prints what VTK reads back: "points N" and N lines, "cells M" and M lines "type node...", then per
      one-component field "field NAME point|cell N" and N values.
  cut IN OUT ISO: the legacy file IN (as gmsh writes it) with the distance to (0.2, 0.1, 0) as float node field
      "d", written to the .vtu OUT; prints "cut N", the edges of its cells (vtkExtractEdges) with one end's value at
      or above ISO and the other's below.
For each volume, what VTK reads in it: "dims", "points N" and N lines "x y z" (x fastest), "values N" and N lines.
"""
import itertools
import sys

# Only the modules needed: the whole of vtk would register an MPI variant of the NRRD reader that
# fails without a controller.
from vtkmodules import vtkCommonCore as core
from vtkmodules.vtkCommonDataModel import vtkImageData, vtkRectilinearGrid, vtkStructuredGrid, vtkUnstructuredGrid
from vtkmodules.vtkIOGeometry import vtkOBJReader, vtkSTLReader
from vtkmodules.vtkIOImage import vtkMetaImageReader, vtkMetaImageWriter, vtkNrrdReader
from vtkmodules.vtkIOXML import vtkXMLUnstructuredGridReader, vtkXMLUnstructuredGridWriter
from vtkmodules.vtkIOLegacy import (vtkPolyDataReader, vtkUnstructuredGridReader, vtkUnstructuredGridWriter, vtkRectilinearGridReader, vtkRectilinearGridWriter,
                                    vtkStructuredGridReader, vtkStructuredGridWriter, vtkStructuredPointsReader,
                                    vtkStructuredPointsWriter)
from vtkmodules.vtkIOPLY import vtkPLYReader
from vtkmodules.vtkFiltersExtraction import vtkExtractEdges

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


def grid(shape):
    g, p = vtkUnstructuredGrid(), core.vtkPoints()
    n = 3 if shape == "hex" else 2  # nodes along each axis
    for k, j, i in itertools.product(range(n), range(n), range(n)):
        p.InsertNextPoint(i + 0.1 * j * k, 0.5 * j, 2.0 * k + 0.01 * i)
    g.SetPoints(p)
    node = lambda i, j, k: i + n * (j + n * k)
    g.InsertNextCell(1, 1, [node(0, 0, 0)])  # a vertex and a boundary face first: skipped, shifting cell data
    if shape == "hex":
        g.InsertNextCell(9, 4, [node(0, 0, 0), node(1, 0, 0), node(1, 1, 0), node(0, 1, 0)])
        for k, j, i in itertools.product(range(2), range(2), range(2)):
            c = [node(i, j, k), node(i + 1, j, k), node(i + 1, j + 1, k), node(i, j + 1, k)]
            g.InsertNextCell(12, 8, c + [x + n * n for x in c])
    else:
        g.InsertNextCell(5, 3, [node(0, 0, 0), node(1, 0, 0), node(1, 1, 0)])
        corners = [node(0, 0, 0), node(1, 0, 0), node(1, 1, 0), node(0, 1, 0), node(0, 0, 1), node(1, 0, 1),
                   node(1, 1, 1), node(0, 1, 1)]
        for a, b in ((1, 2), (2, 3), (3, 7), (7, 4), (4, 5), (5, 1)):  # the cube's six Kuhn tetrahedra
            g.InsertNextCell(10, 4, [corners[0], corners[a], corners[b], corners[6]])
    fields = (("temperature", core.vtkDoubleArray, g.GetPointData(), g.GetNumberOfPoints(), lambda i: 0.1 + i * i / 7),
              ("label", core.vtkIntArray, g.GetPointData(), g.GetNumberOfPoints(), lambda i: 1000 - 37 * i),
              ("pressure", core.vtkFloatArray, g.GetCellData(), g.GetNumberOfCells(), lambda i: 2.5 - i / 3),
              ("material", core.vtkUnsignedCharArray, g.GetCellData(), g.GetNumberOfCells(), lambda i: 200 + i))
    for name, make, data, count, value in fields:
        a = make()
        a.SetName(name)
        for i in range(count):
            a.InsertNextValue(value(i))
        data.AddArray(a)
    g.GetPointData().SetActiveScalars("temperature")  # legacy files: SCALARS, the rest FIELD arrays
    g.GetCellData().SetActiveScalars("material")
    flow = core.vtkFloatArray()  # three components: not a scalar field
    flow.SetName("flow")
    flow.SetNumberOfComponents(3)
    for i in range(g.GetNumberOfPoints()):
        flow.InsertNextTuple3(i, -i, 0.5)
    g.GetPointData().AddArray(flow)
    return g


def write_grid(shape, kind, path):
    options = kind.split("-")
    if options[0].startswith("vtk"):
        w = vtkUnstructuredGridWriter()
        if options[0] == "vtk42":
            w.SetFileVersion(42)
        w.SetFileTypeToBinary() if "binary" in options else w.SetFileTypeToASCII()
    else:
        w = vtkXMLUnstructuredGridWriter()
        modes = {"ascii": w.SetDataModeToAscii, "binary": w.SetDataModeToBinary,
                 "appended": w.SetDataModeToAppended, "base64": w.SetDataModeToAppended}
        modes[options[1]]()
        w.SetEncodeAppendedData(options[1] == "base64")
        if "zlib" in options:
            w.SetCompressorTypeToZLib()
            w.SetBlockSize(40)  # several blocks per array, a short last one
        else:
            w.SetCompressorTypeToNone()
        w.SetHeaderTypeToUInt64() if "u64" in options else w.SetHeaderTypeToUInt32()
        w.SetByteOrderToBigEndian() if "big" in options else w.SetByteOrderToLittleEndian()
    w.SetInputData(grid(shape))
    w.SetFileName(path)
    w.Write()
    g = read(vtkUnstructuredGridReader() if options[0].startswith("vtk") else vtkXMLUnstructuredGridReader(), path)
    out = rows("points", g.GetNumberOfPoints(), g.GetPoint) + ["cells %d" % g.GetNumberOfCells()]
    for c in range(g.GetNumberOfCells()):
        ids = g.GetCell(c).GetPointIds()
        out.append(" ".join(str(x) for x in [g.GetCellType(c)] + [ids.GetId(j) for j in range(ids.GetNumberOfIds())]))
    for where, data in (("point", g.GetPointData()), ("cell", g.GetCellData())):
        for a in (data.GetArray(i) for i in range(data.GetNumberOfArrays())):
            if a.GetNumberOfComponents() == 1:
                out.append("field %s %s %d" % (a.GetName(), where, a.GetNumberOfTuples()))
                out += [repr(a.GetTuple1(i)) for i in range(a.GetNumberOfTuples())]
    return out


def cut(source, target, iso):
    g = read(vtkUnstructuredGridReader(), source)
    d = floats(((x - 0.2) ** 2 + (y - 0.1) ** 2 + z ** 2) ** 0.5 for x, y, z in map(g.GetPoint, range(g.GetNumberOfPoints())))
    d.SetName("d")
    g.GetPointData().SetScalars(d)
    w = vtkXMLUnstructuredGridWriter()
    w.SetInputData(g)
    w.SetFileName(target)
    w.Write()
    edges = vtkExtractEdges()  # gmsh's boundary triangles and lines add no edge of their own
    edges.SetInputData(g)
    edges.Update()
    e, ids, n = edges.GetOutput(), core.vtkIdList(), 0  # its own points, with their values
    v, lines = e.GetPointData().GetScalars(), e.GetLines()
    lines.InitTraversal()
    while lines.GetNextCell(ids):
        n += (v.GetValue(ids.GetId(0)) >= iso) != (v.GetValue(ids.GetId(1)) >= iso)
    return ["cut %d" % n]


def main(command, args):
    if command == "cut":
        return cut(args[0], args[1], float(args[2]))
    if command == "mesh":
        return mesh(args[0], args[1:] == ["lines"])
    if command == "grid":
        return [line for kind, path in zip(args[1::2], args[2::2]) for line in write_grid(args[0], kind, path)]
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
