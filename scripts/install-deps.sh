#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need; only the missing ones.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  libcoin-dev libtbb-dev qtbase5-dev libboost-dev tcl-dev zlib1g-dev libisal-dev
  libegl-dev libgl-dev libegl-mesa0 libgl1-mesa-dri fonts-dejavu-core libfontconfig-dev
  libsoqt520-dev xvfb xauth
  libgtest-dev libgmock-dev libbenchmark-dev
  libopenmpi-dev openmpi-bin
  clang libclang-rt-14-dev clang-format
  mricron-data
  python3-dev python3-pybind11 python3-numpy
)
# Test-only cross-checks (gmsh makes the test meshes; pytest runs the Python module's tests) and the
# peer benchmarks; wanted but not required.
optional=(python3-vtk9 python3-contourpy libvtk9-dev gmsh python3-pytest python3-skimage)

missing=()
for p in "${packages[@]}" "${optional[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
