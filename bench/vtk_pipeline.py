# The peer's whole job, as the command race times it: read a gzipped NIfTI volume, extract the surface
# at a threshold with flying edges and normals, write binary PLY.
# usage: python3 vtk_pipeline.py VOLUME.nii.gz THRESHOLD OUT.ply THREADS
import sys

import vtk

volume, threshold, out, threads = sys.argv[1], float(sys.argv[2]), sys.argv[3], int(sys.argv[4])
vtk.vtkSMPTools.Initialize(threads)
reader = vtk.vtkNIFTIImageReader()
reader.SetFileName(volume)
surface = vtk.vtkFlyingEdges3D()
surface.SetInputConnection(reader.GetOutputPort())
surface.SetValue(0, threshold)
surface.ComputeNormalsOn()
surface.ComputeGradientsOff()
surface.ComputeScalarsOff()
writer = vtk.vtkPLYWriter()
writer.SetInputConnection(surface.GetOutputPort())
writer.SetFileName(out)
writer.SetFileTypeToBinary()
if not writer.Write():
    sys.exit(1)
