# contourpy's side of the isoline race: the contour lines of a raw float32 grid of N x N samples at
# the given levels, serial and on one thread, lines as one array of points per level with offsets
# (its cheapest line output). Prints the best of REPS runs in milliseconds, then points and lines.
# usage: python3 contourpy_bench.py GRID.raw N REPS LEVEL...
import sys
import time

import contourpy
import numpy as np

n, reps = int(sys.argv[2]), int(sys.argv[3])
levels = [float(v) for v in sys.argv[4:]]
z = np.fromfile(sys.argv[1], dtype=np.float32).reshape(n, n).astype(np.float64)


def run():
    generator = contourpy.contour_generator(z=z, name="serial", corner_mask=False,
                                            line_type="ChunkCombinedOffset")
    return [generator.lines(v) for v in levels]


best = float("inf")
for r in range(reps + 1):
    t0 = time.perf_counter()
    lines = run()
    ms = (time.perf_counter() - t0) * 1000
    if r > 0:
        best = min(best, ms)
points = sum(len(p) for level in lines for p in level[0] if p is not None)
polylines = sum(len(o) - 1 for level in lines for o in level[1] if o is not None)
print("%.3f %d %d" % (best, points, polylines))
