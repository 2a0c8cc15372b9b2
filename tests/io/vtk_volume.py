"""Writes volumes with VTK's own writers, or reads volumes with VTK's readers, for the reader tests.

  vtk_volume.py write KIND TYPE PATH [KIND TYPE PATH ...]
      KIND: mhd, mha (compressed), sp, spb, rg, rgb, sg, sgb (structured points, rectilinear and
      structured grids; a trailing b writes BINARY); TYPE a VTK scalar type name
  vtk_volume.py read PATH [PATH ...]   reads NRRD files with vtkNrrdReader

For each file it prints what VTK's reader finds in it: "dims", "spacing", "origin", then "points N" with N
lines "x y z" (node positions, x fastest), "type", "values N" with N lines, and "end".
"""
import sys

# Only the modules needed: the whole of vtk would register an MPI variant of the NRRD reader that
# fails without a controller.
from vtkmodules import vtkCommonCore as core
from vtkmodules.vtkCommonCore import vtkPoints
from vtkmodules.vtkCommonDataModel import vtkImageData, vtkRectilinearGrid, vtkStructuredGrid
from vtkmodules.vtkIOImage import vtkMetaImageReader, vtkMetaImageWriter, vtkNrrdReader
from vtkmodules.vtkIOLegacy import (vtkRectilinearGridReader, vtkRectilinearGridWriter, vtkStructuredGridReader,
                                    vtkStructuredGridWriter, vtkStructuredPointsReader, vtkStructuredPointsWriter)

TYPES = {
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


def values(type_name):
    make, lo, hi = TYPES[type_name]
    a = make()
    a.SetName("values")
    n = DIMS[0] * DIMS[1] * DIMS[2]
    for i in range(n):
        if lo is None:
            v = (i * 37 % 23 - 11) * 1.25e3 ** ((i % 5) - 2) + 0.1
        else:
            # The extremes first, then a spread over the range.
            v = lo if i == 0 else hi if i == 1 else lo + (i * 2654435761) % (hi - lo + 1)
        a.InsertNextValue(v)
    return a


def coords(vals):
    c = core.vtkFloatArray()
    for v in vals:
        c.InsertNextValue(v)
    return c


def dataset(kind, type_name):
    if kind in ("mhd", "mha", "sp", "spb"):
        d = vtkImageData()
        d.SetDimensions(*DIMS)
        d.SetSpacing(0.5, 2, 1.25)
        d.SetOrigin(10, -4, 3)
    elif kind in ("rg", "rgb"):
        d = vtkRectilinearGrid()
        d.SetDimensions(*DIMS)
        d.SetXCoordinates(coords([10, 10.5, 11.25, 12.5, 14]))
        d.SetYCoordinates(coords([-4, -2, 1, 5]))
        d.SetZCoordinates(coords([3, 3.125, 4.5]))
    else:
        d = vtkStructuredGrid()
        d.SetDimensions(*DIMS)
        p = vtkPoints()
        for k in range(DIMS[2]):
            for j in range(DIMS[1]):
                for i in range(DIMS[0]):
                    p.InsertNextPoint(10 + 0.5 * i + 0.1 * j, -4 + 2 * j + 0.01 * i * k, 3 + 1.25 * k)
        d.SetPoints(p)
    d.GetPointData().SetScalars(values(type_name))
    return d


# Writer and reader by the first two letters of the kind.
CLASSES = {
    "mh": (vtkMetaImageWriter, vtkMetaImageReader),
    "sp": (vtkStructuredPointsWriter, vtkStructuredPointsReader),
    "rg": (vtkRectilinearGridWriter, vtkRectilinearGridReader),
    "sg": (vtkStructuredGridWriter, vtkStructuredGridReader),
}


def write(kind, type_name, path):
    writer, reader = CLASSES[kind[:2]]
    w = writer()
    if kind[:2] == "mh":
        w.SetCompression(kind == "mha")
    if kind.endswith("b"):
        w.SetFileTypeToBinary()
    w.SetInputData(dataset(kind, type_name))
    w.SetFileName(path)
    w.Write()
    # What is in the file, as VTK reads it back: text files hold fewer digits than memory.
    r = reader()
    r.SetFileName(path)
    r.Update()
    return r.GetOutput()


def show(d):
    out = ["dims %d %d %d" % d.GetDimensions()]
    if hasattr(d, "GetSpacing"):
        out.append("spacing %.9g %.9g %.9g" % d.GetSpacing())
        out.append("origin %.9g %.9g %.9g" % d.GetOrigin())
    n = d.GetNumberOfPoints()
    out.append("points %d" % n)
    out.extend("%.9g %.9g %.9g" % d.GetPoint(i) for i in range(n))
    s = d.GetPointData().GetScalars()
    out.append("type %s" % s.GetDataTypeAsString())
    out.append("values %d" % s.GetNumberOfTuples())
    out.extend(repr(s.GetTuple1(i)) for i in range(s.GetNumberOfTuples()))
    out.append("end")
    sys.stdout.write("\n".join(out) + "\n")


def main():
    args = sys.argv[2:]
    if sys.argv[1] == "write":
        for i in range(0, len(args), 3):
            show(write(args[i], args[i + 1], args[i + 2]))
    else:
        for path in args:
            r = vtkNrrdReader()
            r.SetFileName(path)
            r.Update()
            show(r.GetOutput())


if __name__ == "__main__":
    main()
