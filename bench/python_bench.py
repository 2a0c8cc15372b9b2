"""vxiso.marching_cubes against scikit-image's marching cubes and VTK's flying edges on the same NumPy
arrays, in one process, one thread each, counting the conversions each needs from a NumPy volume
to NumPy vertices, faces and normals. Prints medians and the ratios peer / vxiso (above 1: vxiso
is faster). A peer that is not installed is left out.

usage: PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py [RUNS]
"""
import os
import statistics
import sys
import time

import numpy as np

import vxiso

RUNS = int(sys.argv[1]) if len(sys.argv) > 1 else 7
HEAD = "/usr/share/mricron/templates/ch2.nii.gz"


def gyroid(n, dtype):
    t = np.linspace(0, 4 * np.pi, n, dtype=np.float32)
    x, y, z = t[:, None, None], t[None, :, None], t[None, None, :]
    v = np.sin(x) * np.cos(y) + np.sin(y) * np.cos(z) + np.sin(z) * np.cos(x)
    return v if dtype == np.float32 else np.round(v * 80 + 128).astype(dtype)


def ours(volume, level):
    return vxiso.marching_cubes(volume, level, cores=1)


def scikit(volume, level):
    from skimage import measure
    return measure.marching_cubes(volume, level)[:3]


def vtk_flying_edges(volume, level):
    import vtk
    from vtk.util import numpy_support
    image = vtk.vtkImageData()
    image.SetDimensions(volume.shape[::-1])  # VTK's x runs fastest: the last index of a C array
    image.GetPointData().SetScalars(numpy_support.numpy_to_vtk(volume.ravel(), deep=False))
    surface = vtk.vtkFlyingEdges3D()
    surface.SetInputData(image)
    surface.SetValue(0, level)
    surface.ComputeNormalsOn()
    surface.ComputeGradientsOff()
    surface.ComputeScalarsOff()
    surface.Update()
    out = surface.GetOutput()
    verts = numpy_support.vtk_to_numpy(out.GetPoints().GetData())[:, ::-1]
    faces = numpy_support.vtk_to_numpy(out.GetPolys().GetConnectivityArray()).reshape(-1, 3)
    normals = numpy_support.vtk_to_numpy(out.GetPointData().GetNormals())[:, ::-1]
    return verts, faces, normals


def medians_ms(extractors, volume, level):
    """Medians per extractor, the runs interleaved so that a busy machine slows all of them alike."""
    counts = {name: len(extract(volume, level)[1]) for name, extract in extractors.items()}  # warm-up
    times = {name: [] for name in extractors}
    for _ in range(RUNS):
        for name, extract in extractors.items():
            start = time.perf_counter()
            extract(volume, level)
            times[name].append(time.perf_counter() - start)
    return {name: (1000 * statistics.median(t), counts[name]) for name, t in times.items()}


def main():
    peers = {"vxiso": ours}
    try:
        import skimage.measure  # noqa: F401
        peers["scikit-image"] = scikit
    except ImportError:
        print("scikit-image not installed (python3-skimage): left out")
    try:
        import vtk
        vtk.vtkSMPTools.Initialize(1)
        peers["VTK flying edges"] = vtk_flying_edges
    except ImportError:
        print("VTK not installed (python3-vtk9): left out")

    volumes = [("gyroid 256^3 float32", gyroid(256, np.float32), 0.0),
               ("gyroid 256^3 uint8", gyroid(256, np.uint8), 128.5)]
    if os.path.exists(HEAD):
        volumes.append(("MRI head ch2 uint8 at 3", np.ascontiguousarray(vxiso.read(HEAD)[0]), 3.0))

    print(f"median of {RUNS} runs after a warm-up, one thread, interleaved; ratio = peer / vxiso")
    for name, volume, level in volumes:
        result = medians_ms(peers, volume, level)
        base, triangles = result.pop("vxiso")
        line = f"{name:24s} vxiso {base:6.1f} ms ({triangles} triangles)"
        for peer, (ms, n) in result.items():
            line += f" | {peer} {ms:6.1f} ms ({n}), ratio {ms / base:5.2f}"
        print(line, flush=True)


if __name__ == "__main__":
    main()
