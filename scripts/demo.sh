#!/usr/bin/env bash
# make demo: extracts surfaces from built-in fields and writes them under demo-out/.
set -euo pipefail
build=${1:-build}
out=demo-out
mkdir -p "$out"
echo "== gyroid, 128^3 float field, standard cubes"
"$build/bin/vxiso" surface --field gyroid --size 128 -t 0 -o "$out/gyroid.ply"
echo "== torus, 96^3, compactified"
"$build/bin/vxiso" surface --field torus --size 96 -t 0 --compactify -o "$out/torus.ply"
echo
echo "Meshes written: $(ls "$out"/*.ply | tr '\n' ' ')"
echo "Open them in any mesh viewer, or run 'build/bin/vxiso --help' for more."
