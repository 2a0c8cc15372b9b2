# Contour lines of a sampled grid by contourpy, for the cross-check of our own: the grid is a raw
# float32 file of ROWS x COLS samples (row after row, NaN where a sample is invalid), x the column and
# y the row. Prints, per level, "level V" and then one line per polyline: its point count and points.
# usage: python3 contourpy_lines.py GRID.raw ROWS COLS LEVEL...
import sys

import contourpy
import numpy as np

rows, cols = int(sys.argv[2]), int(sys.argv[3])
z = np.fromfile(sys.argv[1], dtype=np.float32).reshape(rows, cols).astype(np.float64)
generator = contourpy.contour_generator(z=np.ma.masked_invalid(z), name="serial", corner_mask=False,
                                        line_type="Separate")
for level in sys.argv[4:]:
    print("level", level)
    for line in generator.lines(float(level)):
        print(len(line), " ".join("%.9g %.9g" % (x, y) for x, y in line))
