# Cross-check of our contour lines with contourpy's on the same samples: a raw float32 grid of
# ROWS x COLS (x the column, y the row, NaN where invalid, masked for contourpy) and our lines, one a
# text line "value x0 y0 x1 y1 ...". Each segment is compared as the pair of grid edges it joins,
# except in saddle cells, where the two differ by design. Prints per level both counts and the
# segments in one set only.
# usage: python3 contourpy_lines.py GRID.raw ROWS COLS OURS.txt
import sys

import contourpy
import numpy as np

rows, cols = int(sys.argv[2]), int(sys.argv[3])
z = np.fromfile(sys.argv[1], dtype=np.float32).reshape(rows, cols).astype(np.float64)
ours = {}
for text in open(sys.argv[4]):
    numbers = [float(w) for w in text.split()]
    ours.setdefault(np.float32(numbers[0]), []).append(np.array(numbers[1:]).reshape(-1, 2))
generator = contourpy.contour_generator(z=np.ma.masked_invalid(z), name="serial", corner_mask=False,
                                        line_type="Separate")


def segments(lines, level):
    below = level > z
    out = set()
    for line in lines:
        for a, b in zip(line[:-1], line[1:]):
            c, r = np.floor((a + b) / 2).astype(int)
            if below[r, c] == below[r + 1, c + 1] != below[r + 1, c] == below[r, c + 1]:
                continue
            edges = [(0, round(x), int(y)) if abs(x - round(x)) < 1e-4 else (1, int(x), round(y)) for x, y in (a, b)]
            out.add(tuple(sorted(edges)))
    return out


for level, lines in sorted(ours.items()):
    mine, theirs = segments(lines, level), segments(generator.lines(float(level)), level)
    print("level %g: ours %d, contourpy %d, differ %d" % (level, len(mine), len(theirs), len(mine ^ theirs)))
