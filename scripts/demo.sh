#!/usr/bin/env bash
# make demo: the head surface of a real MRI scan and contour lines on one of its slices, surfaces of
# built-in fields, and surface and contour lines of a field on a tetrahedral mesh made by gmsh,
# under demo-out/.
set -euo pipefail
build=${1:-build}
out=demo-out
here=$(cd "$(dirname "$0")/.." && pwd)
vxiso="$build/bin/vxiso"
mkdir -p "$out"

ch2=/usr/share/mricron/templates/ch2.nii.gz
if [ ! -f "$ch2" ]; then
  echo "== installing mricron-data (the sample scans)"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends mricron-data >/dev/null ||
    { $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends mricron-data >/dev/null; }
fi

if ! command -v gmsh >/dev/null; then
  echo "== installing gmsh (the mesher of the unstructured case)"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends gmsh >/dev/null ||
    { $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends gmsh >/dev/null; }
fi

echo "== head surface of the ch2 T1 scan (181 x 217 x 181, 1 mm)"
"$vxiso" info "$ch2"
# In ch2 the air is exactly 0 and the head's darkest voxels are 7 (its histogram has nothing in
# between), so -t 3 follows the skin. The scan ends at the neck; --pad closes the surface there.
# The picture looks at the face: along -y (RAS: from the front), with z (feet to head) up.
"$vxiso" surface "$ch2" -t 3 --pad -o "$out/head.ply" --png "$out/head.png" --view 0 -1 0 --up 0 0 1

echo "== contour lines on the middle axial slice of the same scan"
"$vxiso" isolines "$ch2" --slice z --uniform 20 100 5 --annotate --every 2 1 --contour-clip \
  -o "$out/head-lines.svg" --png "$out/head-lines.png"

echo "== the mid-sagittal slice, colour-mapped, with labelled contours"
"$vxiso" contours "$ch2" --slice x --uniform 30 90 3 --contour-clip --resolution 300 --png "$out/head-contours.png"

echo "== the left hippocampus: the same scan inside region 37 of the AAL atlas, relaxed mask"
"$vxiso" surface "$ch2" -t 80 --compactify --mask /usr/share/mricron/templates/aal.nii.gz --mask-label 37 \
  --relaxed -o "$out/hippocampus.ply"

echo "== gyroid, 128^3 float field, standard cubes"
"$vxiso" surface --field gyroid --size 128 -t 0 -o "$out/gyroid.ply"
echo "== torus, 96^3, compactified"
"$vxiso" surface --field torus --size 96 -t 0 --compactify -o "$out/torus.ply"
echo "== a gyroid inside the unit ball: tetrahedra made by gmsh, the field added by awk"
gmsh -3 -format msh22 "$here/examples/ball.geo" -o "$out/ball.msh" >"$out/gmsh.log" ||
  { tail -n 20 "$out/gmsh.log"; exit 1; }
awk -f "$here/scripts/gyroid-field.awk" "$out/ball.msh" >"$out/ball-gyroid.msh"
"$vxiso" info "$out/ball-gyroid.msh"
"$vxiso" surface "$out/ball-gyroid.msh" -t 0 -o "$out/ball-gyroid.ply" --png "$out/ball-gyroid.png"
"$vxiso" isolines "$out/ball-gyroid.msh" --slice z --uniform -0.8 0.8 5 -o "$out/ball-lines.svg"

echo
echo "Meshes written: $(ls "$out"/*.ply | tr '\n' ' ')"
echo "Pictures: $(ls "$out"/*.png "$out"/*.svg | tr '\n' ' ')"
echo "Open them in any mesh viewer, or run '$vxiso --help' for more."
