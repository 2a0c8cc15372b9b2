"""The Python module against the command on the same data, its options, errors, interruption and
the ownership of the arrays it hands over."""
import os
import signal
import subprocess
import tracemalloc

import numpy as np
import pytest

import vxiso

BIN = os.environ.get("VXISO_BIN", os.path.join(os.path.dirname(__file__), "../../build/bin"))
TYPES = ["uint8", "int8", "uint16", "int16", "uint32", "int32", "float32", "float64"]


def gyroid(shape, dtype):
    i, j, k = np.meshgrid(*(np.linspace(0, 2 * np.pi, n) for n in shape), indexing="ij")
    v = np.sin(i) * np.cos(j) + np.sin(j) * np.cos(k) + np.sin(k) * np.cos(i)
    if np.dtype(dtype).kind == "f":
        return v.astype(dtype)
    return np.round(v * 40 + (60 if np.dtype(dtype).kind == "u" else 0)).astype(dtype)


def level_of(dtype):
    return 0.0 if np.dtype(dtype).kind == "f" else 60.5 if np.dtype(dtype).kind == "u" else 0.5


def read_ply(path):
    with open(path, "rb") as f:
        header = []
        while not header or header[-1] != "end_header":
            header.append(f.readline().decode().strip())
        counts = {w[1]: int(w[2]) for w in (h.split() for h in header) if w[0] == "element"}
        data = f.read()
    columns = sum(h.startswith("property float") for h in header)  # 3, or 6 with normals
    v = np.frombuffer(data, "<f4", counts["vertex"] * columns).reshape(-1, columns)
    faces = np.frombuffer(data, np.dtype([("n", "u1"), ("i", "<i4", 3)]), counts["face"], v.nbytes)
    return v[:, :3], faces["i"], v[:, 3:]


def command_surface(tmp_path, volume, level, *options):
    """The command on the array's memory, its x the index that runs fastest there."""
    if not os.path.exists(os.path.join(BIN, "vxiso")):
        pytest.skip("the vxiso command is not built")
    raw, out = tmp_path / "v.raw", tmp_path / "v.ply"
    raw.write_bytes(volume.tobytes(order="A"))
    dims = volume.shape[::-1] if volume.flags.c_contiguous else volume.shape
    type_name = {"float32": "float32", "float64": "float64"}.get(volume.dtype.name, volume.dtype.name)
    subprocess.run([os.path.join(BIN, "vxiso"), "surface", "--raw", str(raw), "--dims", *map(str, dims),
                    "--type", type_name, "-t", repr(level), "--cores", "1", "-o", str(out), *options],
                   check=True, capture_output=True)
    return read_ply(out)


@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("dtype", TYPES)
def test_same_surface_as_the_command(tmp_path, dtype, order):
    volume = np.asarray(gyroid((13, 11, 9), dtype), order=order)
    level = level_of(dtype)
    verts, faces, normals = vxiso.marching_cubes(volume, level, cores=1)
    want_v, want_f, want_n = command_surface(tmp_path, volume, level)
    assert len(faces) > 100
    if order == "C":  # the command's x, y, z are the array's k, j, i; triangles turn round with them
        verts, normals, faces = verts[:, ::-1], normals[:, ::-1], faces[:, [0, 2, 1]]
    np.testing.assert_array_equal(verts, want_v)
    np.testing.assert_array_equal(normals, want_n)
    np.testing.assert_array_equal(faces, want_f)
    # Two cores give the same surface.
    again = vxiso.marching_cubes(volume, level, cores=2)
    np.testing.assert_array_equal(again[1], vxiso.marching_cubes(volume, level, cores=1)[1])


def test_undefined_nodes_as_the_command(tmp_path):
    volume = gyroid((14, 12, 10), "float32")
    volume[5:8, 3:9, 2:5] = np.nan
    verts, faces, _ = vxiso.marching_cubes(volume, 0.0, undefined=float("nan"), cores=1)
    want_v, want_f, _ = command_surface(tmp_path, volume, 0.0, "--undefined", "nan")
    np.testing.assert_array_equal(verts[:, ::-1], want_v)
    np.testing.assert_array_equal(faces[:, [0, 2, 1]], want_f)
    assert np.isfinite(verts).all()


def test_same_coordinates_as_scikit_image():
    measure = pytest.importorskip("skimage.measure")
    volume = gyroid((20, 16, 12), "float32")
    spacing = (0.5, 2.0, 1.5)
    verts, faces, normals = vxiso.marching_cubes(volume, 0.2, spacing, (1, 2, 3))
    theirs = measure.marching_cubes(volume, 0.2, spacing=spacing)[0] + (1, 2, 3)
    key = lambda v: v[np.lexsort(np.round(v, 4).T[::-1])]
    np.testing.assert_allclose(key(verts), key(theirs), atol=1e-4)
    # Each triangle turns counter-clockwise around the normals of its vertices.
    a, b, c = (verts[faces[:, i]] for i in range(3))
    assert (np.einsum("ij,ij->i", np.cross(b - a, c - a), normals[faces].sum(axis=1)) > 0).mean() > 0.99


def test_mask_keeps_the_surface_inside():
    volume = gyroid((16, 16, 16), "float32")
    everywhere = vxiso.marching_cubes(volume, 0.0)
    ones = vxiso.marching_cubes(volume, 0.0, mask=np.ones(volume.shape, bool))
    np.testing.assert_array_equal(everywhere[1], ones[1])
    mask = np.zeros(volume.shape, "int16")
    mask[:8] = 7
    strict = vxiso.marching_cubes(volume, 0.0, mask=mask)
    relaxed = vxiso.marching_cubes(volume, 0.0, mask=mask, relaxed=True)
    assert strict[0][:, 0].max() <= 7 and relaxed[0][:, 0].max() <= 8
    assert 0 < len(strict[1]) < len(relaxed[1]) < len(everywhere[1])
    assert (mask[:8] == 7).all()  # the caller's mask is not grown


@pytest.mark.parametrize("call, error, text", [
    (lambda v: vxiso.marching_cubes(v.tolist(), 0), ValueError, "must be a NumPy array, not list"),
    (lambda v: vxiso.marching_cubes(v[0], 0), ValueError, "3-D array, not 2-D"),
    (lambda v: vxiso.marching_cubes(v.astype("complex64"), 0), ValueError, "holds complex64 values"),
    (lambda v: vxiso.marching_cubes(v.astype(">f4"), 0), ValueError, "native uint8"),
    (lambda v: vxiso.marching_cubes(v[:, ::2], 0), ValueError, "C- or F-contiguous"),
    (lambda v: vxiso.marching_cubes(v, float("nan")), ValueError, "level must be a number, not nan"),
    (lambda v: vxiso.marching_cubes(v, 0, (1, 1)), ValueError, "spacing must be three numbers"),
    (lambda v: vxiso.marching_cubes(v, 0, cores=0), ValueError, "cores must be between 1 and 4096, not 0"),
    (lambda v: vxiso.marching_cubes(v, 0, cores="2"), ValueError, "cores must be an integer, not '2'"),
    (lambda v: vxiso.marching_cubes(v, 0, undefined="nan"), ValueError, "undefined must be a number"),
    (lambda v: vxiso.marching_cubes(v, 0, mask=np.ones((2, 2, 2))), ValueError, "they must match"),
    (lambda v: vxiso.marching_cubes(v, 0, relaxed=True), ValueError, "relaxed belongs to mask"),
    (lambda v: vxiso.isolines(v, [0], 3, 0), ValueError, "axis must be 0, 1 or 2, not 3"),
    (lambda v: vxiso.isolines(v, [0], 0, 6), ValueError, "index must be between 0 and 5, not 6"),
    (lambda v: vxiso.isolines(v, [float("nan")], 0, 1), ValueError, "values must be numbers, not nan"),
    (lambda v: vxiso.read("/nonexistent/head.nii"), OSError, "/nonexistent/head.nii"),
    (lambda v: vxiso.read("head.nii", scalars="v"), ValueError, "scalars chooses the field of a mesh file"),
    (lambda v: vxiso.read("v.raw", raw={"dims": (2, 2, 2)}), ValueError, "raw needs dims and dtype"),
    (lambda v: vxiso.write("/tmp/x.xyz", np.zeros((3, 3)), [[0, 1, 2]]), ValueError, "unknown mesh format"),
    (lambda v: vxiso.write("/tmp/x.ply", np.zeros((3, 3)), [[0, 1, 3]]), ValueError, "refers to vertex 3"),
    (lambda v: vxiso.write("/nonexistent/x.ply", np.zeros((3, 3)), [[0, 1, 2]]), OSError, "/nonexistent/x.ply"),
])
def test_bad_input_gets_a_clear_error(call, error, text):
    with pytest.raises(error, match=text.replace("(", r"\(").replace(")", r"\)")):
        call(gyroid((6, 5, 4), "float32"))


def test_arrays_are_handed_over_not_copied():
    volume = gyroid((96, 96, 96), "float32")
    volume.flags.writeable = False  # read in place, never written
    tracemalloc.start()
    verts, faces, normals = vxiso.marching_cubes(volume, 0.0)
    peak = tracemalloc.get_traced_memory()[1]
    tracemalloc.stop()
    assert peak < volume.nbytes // 4  # neither the volume nor the surface went through NumPy's allocator
    for a in (verts, faces, normals):
        assert not a.flags.owndata and type(a.base).__name__ == "PyCapsule"
    assert (verts.dtype, faces.dtype, normals.dtype) == (np.float32, np.int32, np.float32)


def test_ctrl_c_and_callback_errors_stop_the_extraction():
    volume = gyroid((64, 64, 64), "float32")
    seen = []
    vxiso.marching_cubes(volume, 0.0, progress=seen.append)
    assert seen and seen[-1] == 1.0 and seen == sorted(seen)

    def ctrl_c(fraction):
        os.kill(os.getpid(), signal.SIGINT)

    for cores in (1, 2):
        with pytest.raises(KeyboardInterrupt):
            vxiso.marching_cubes(volume, 0.0, cores=cores, progress=ctrl_c)

    def failing(fraction):
        raise RuntimeError("stop here")

    with pytest.raises(RuntimeError, match="stop here"):
        vxiso.marching_cubes(volume, 0.0, progress=failing)


def test_read_and_write_round_trip(tmp_path):
    volume = gyroid((12, 10, 8), "float32")
    verts, faces, normals = vxiso.marching_cubes(volume, 0.0)
    vxiso.write(str(tmp_path / "s.ply"), verts, faces, normals)
    got = read_ply(tmp_path / "s.ply")
    np.testing.assert_array_equal(got[0], verts)
    np.testing.assert_array_equal(got[1], faces)
    head = "/usr/share/mricron/templates/ch2.nii.gz"
    if not os.path.exists(head):
        pytest.skip("mricron-data is not installed")
    values, placement = vxiso.read(head)
    assert values.shape == (181, 217, 181) and values.dtype == np.uint8 and not values.flags.owndata
    assert placement["origin"] == (-90, -125, -71) and placement["spacing"] == (1, 1, 1)


def read_vtk_lines(path):
    words = open(path).read().split()
    at = words.index("POINTS")
    n = int(words[at + 1])
    points = np.array(words[at + 3:at + 3 + 3 * n], np.float32).reshape(-1, 3)
    at = words.index("LINES")
    ids, lines = np.array(words[at + 3:at + 3 + int(words[at + 2])], int), []
    while len(ids):
        lines.append(points[ids[1:1 + ids[0]]])
        ids = ids[1 + ids[0]:]
    return lines


@pytest.mark.parametrize("axis, resolution", [(0, None), (1, None), (2, 40)])
def test_isolines_as_the_command(tmp_path, axis, resolution):
    if not os.path.exists(os.path.join(BIN, "vxiso")):
        pytest.skip("the vxiso command is not built")
    volume = gyroid((9, 14, 11), "float32")
    (tmp_path / "v.raw").write_bytes(volume.tobytes())
    lines = vxiso.isolines(volume, [-0.5, 0, 0.5], axis, 4, resolution)
    options = ["--resolution", str(resolution)] if resolution else []
    subprocess.run([os.path.join(BIN, "vxiso"), "isolines", "--raw", str(tmp_path / "v.raw"), "--dims", "11", "14",
                    "9", "--type", "float32", "--slice", "zyx"[axis], "4", "--values", "-0.5", "0", "0.5",
                    "-o", str(tmp_path / "l.vtk"), *options], check=True, capture_output=True)
    want = read_vtk_lines(tmp_path / "l.vtk")
    assert len(lines) == len(want) > 3
    assert sorted({value for value, _ in lines}) == [-0.5, 0, 0.5]
    for (value, points), expected in zip(lines, want):
        np.testing.assert_allclose(points[:, ::-1], expected, rtol=1e-6)
        assert (points[:, axis] == 4).all()


def test_tetra_surface_as_the_command(tmp_path):
    if not os.path.exists(os.path.join(BIN, "vxiso")):
        pytest.skip("the vxiso command is not built")
    # A 6^3 lattice of cubes, six tetrahedra a cube, with the distance from the centre on the nodes.
    n = 7
    idx = np.arange(n ** 3).reshape(n, n, n)
    points = np.stack(np.meshgrid(*[np.arange(n)] * 3, indexing="ij"), -1).reshape(-1, 3).astype(np.float32)
    corners = [idx[i:n - 1 + i, j:n - 1 + j, k:n - 1 + k].ravel() for i in (0, 1) for j in (0, 1) for k in (0, 1)]
    six = [(0, 1, 3, 7), (0, 3, 2, 7), (0, 2, 6, 7), (0, 6, 4, 7), (0, 4, 5, 7), (0, 5, 1, 7)]
    tetras = np.concatenate([np.stack([corners[c] for c in t], 1) for t in six]).astype(np.int32)
    values = np.linalg.norm(points - 3, axis=1).astype(np.float32)
    mesh = tmp_path / "m.vtk"
    with open(mesh, "w") as f:
        f.write(f"# vtk DataFile Version 3.0\nball\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS {len(points)} float\n")
        np.savetxt(f, points, "%g")
        f.write(f"CELLS {len(tetras)} {5 * len(tetras)}\n")
        np.savetxt(f, np.hstack([np.full((len(tetras), 1), 4), tetras]), "%d")
        f.write(f"CELL_TYPES {len(tetras)}\n" + "10\n" * len(tetras))
        f.write(f"POINT_DATA {len(points)}\nSCALARS d float 1\nLOOKUP_TABLE default\n")
        np.savetxt(f, values, "%.9g")
    verts, faces, normals = vxiso.tetra_surface(points, tetras, values, 2.2)
    subprocess.run([os.path.join(BIN, "vxiso"), "surface", str(mesh), "-t", "2.2", "-o", str(tmp_path / "m.ply")],
                   check=True, capture_output=True)
    want_v, want_f, _ = read_ply(tmp_path / "m.ply")
    assert len(faces) > 100
    np.testing.assert_array_equal(verts, want_v)
    np.testing.assert_array_equal(faces, want_f)
    # Unit normals facing as the triangles do: into the ball, these tetrahedra being negatively oriented.
    np.testing.assert_allclose(np.linalg.norm(normals, axis=1), 1, rtol=1e-5)
    assert (np.einsum("ij,ij->i", normals, verts - 3) < 0).all()
    read_values, placement = vxiso.read(str(mesh))  # the mesh as read gives the same surface
    again = vxiso.tetra_surface(placement["points"], placement["cells"], read_values, 2.2)
    np.testing.assert_array_equal(again[1], faces)
    with pytest.raises(KeyboardInterrupt):
        vxiso.tetra_surface(points, tetras, values, 2.2, progress=lambda f: os.kill(os.getpid(), signal.SIGINT))
    tetras[0, 2] = len(points)
    with pytest.raises(ValueError, match="tetrahedron 0 refers to point 343, but there are 343"):
        vxiso.tetra_surface(points, tetras, values, 1)


def vtk_file(path, dataset, values, type_name="float"):
    path.write_text(f"# vtk DataFile Version 3.0\nt\nASCII\nDATASET {dataset}\nPOINT_DATA {len(values)}\n"
                    f"SCALARS v {type_name} 1\nLOOKUP_TABLE default\n" + " ".join(map(str, values)) + "\n")
    return str(path)


def test_read_gives_every_kind_of_lattice_with_its_placement(tmp_path):
    # 3 x 2 x 2 nodes in file order (x fastest), each value telling its node: x + 10 y + 100 z.
    nodes = [(i, j, k) for k in range(2) for j in range(2) for i in range(3)]
    values = [i + 10 * j + 100 * k for i, j, k in nodes]
    want = np.array(values).reshape(2, 2, 3).T
    rect = vtk_file(tmp_path / "r.vtk", "RECTILINEAR_GRID\nDIMENSIONS 3 2 2\nX_COORDINATES 3 float\n0 1 5\n"
                    "Y_COORDINATES 2 float\n0 2\nZ_COORDINATES 2 float\n-1 1", values)
    v, p = vxiso.read(rect)
    assert p["kind"] == "rectilinear" and [list(a) for a in p["axes"]] == [[0, 1, 5], [0, 2], [-1, 1]]
    np.testing.assert_array_equal(v, want)
    sheared = [(i + j, j, k + 0.5 * i) for i, j, k in nodes]
    vtk_file(tmp_path / "c.vtk", "STRUCTURED_GRID\nDIMENSIONS 3 2 2\nPOINTS 12 float\n" +
             " ".join("%g %g %g" % q for q in sheared), values)
    # A multi-block description: its blocks in order, each as it reads alone.
    (tmp_path / "w.vxblocks").write_text("# vxblocks 1\nblock r.vtk\nblock c.vtk\n")
    blocks, p = vxiso.read(str(tmp_path / "w.vxblocks"))
    assert [b["kind"] for b in p["blocks"]] == ["rectilinear", "curvilinear"]
    np.testing.assert_array_equal(blocks[1], want)
    np.testing.assert_array_equal(p["blocks"][1]["points"], np.reshape(sheared, (2, 2, 3, 3)).transpose(2, 1, 0, 3))
    # Labels: integer values become the smallest label type that holds them; uniform volumes only.
    image = vtk_file(tmp_path / "l.vtk", "STRUCTURED_POINTS\nDIMENSIONS 3 2 2\nORIGIN 1 2 3\nSPACING 1 1 2",
                     values, "short")
    v, p = vxiso.read(image, labels=True)
    assert (p["kind"], v.dtype, p["origin"], p["spacing"]) == ("labels", np.uint16, (1, 2, 3), (1, 1, 2))
    np.testing.assert_array_equal(v, want)
    with pytest.raises(ValueError, match="labels need uniform coordinates"):
        vxiso.read(rect, labels=True)
    # Headerless values after a header of 7 bytes, in the other byte order.
    (tmp_path / "v.raw").write_bytes(b"header!" + want.astype(">i2").tobytes(order="F"))
    v, p = vxiso.read(str(tmp_path / "v.raw"), raw=dict(dims=(3, 2, 2), dtype="int16", offset=7, swap_bytes=True,
                                                        spacing=(1, 2, 3)))
    assert (p["kind"], p["spacing"], p["format"]) == ("uniform", (1, 2, 3), "raw")
    np.testing.assert_array_equal(v, want)
