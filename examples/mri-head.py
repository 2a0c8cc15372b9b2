"""The skin of the MRI template ch2 (Debian's mricron-data) from a NumPy array, written as PLY.

usage: PYTHONPATH=build/python /usr/bin/python3 examples/mri-head.py [head.ply]
"""
import sys

import numpy as np

import vxiso

volume, placement = vxiso.read("/usr/share/mricron/templates/ch2.nii.gz")
# The air is 0 and the darkest voxels of the head 7: a threshold of 3 follows the skin. One layer of
# zeros closes the surface where the scan is cut at the neck.
padded = np.pad(volume, 1)
origin = np.subtract(placement["origin"], placement["spacing"])
verts, faces, normals = vxiso.marching_cubes(padded, 3, placement["spacing"], origin)
out = sys.argv[1] if len(sys.argv) > 1 else "head.ply"
vxiso.write(out, verts, faces, normals)
print(f"{out}: {len(verts)} vertices, {len(faces)} triangles")
