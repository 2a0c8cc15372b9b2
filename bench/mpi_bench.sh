#!/usr/bin/env bash
# vxiso-mpi on one machine (`make mpi-bench`; never a test): a gyroid volume larger than the memory
# each rank may use, extracted by 1, 2 and 4 ranks under that limit, printing for each the wall time,
# every rank's peak memory and the size of the PLY file. One rank is expected to refuse the volume.
#   bench/mpi_bench.sh [BUILD_DIR] [N] [LIMIT_MB]   (defaults: build 448 300)
set -euo pipefail
build=${1:-build}
n=${2:-448}
limit=${3:-300}
bin="$build/bin"
[ -x "$bin/vxiso_gyroid_raw" ] || { echo "mpi-bench: $bin/vxiso_gyroid_raw is not built"; exit 1; }
[ -x "$bin/vxiso-mpi" ] || { echo "mpi-bench: $bin/vxiso-mpi is not built (needs libopenmpi-dev)"; exit 1; }
command -v mpirun >/dev/null || { echo "mpi-bench: mpirun is missing (openmpi-bin)"; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$bin/vxiso_gyroid_raw" "$n" "$work/gyroid.raw"
bytes=$(stat -c %s "$work/gyroid.raw")
echo "volume: gyroid ${n}^3 float32, $((bytes / 1048576)) MB; limit per rank: --max-memory ${limit} MB"
echo "machine: $(nproc) cores, $(awk '/MemTotal/ {printf "%d MB", $2 / 1024}' /proc/meminfo)"
# The threaded command on the whole volume, without a limit, for reference.
/usr/bin/time -f "%e %M" -o "$work/time.txt" "$bin/vxiso" surface --raw "$work/gyroid.raw" --dims "$n" "$n" "$n" \
  --type float32 -t 0.3 -o "$work/threaded.ply" >/dev/null
read -r secs kb <"$work/time.txt"
echo "vxiso surface (one process, all threads, no limit): $secs s, peak $((kb / 1024)) MB"
printf "%-6s %-10s %-34s %s\n" ranks "time (s)" "peak memory per rank (MB)" "output"
for np in 1 2 4; do
  out="$work/g$np.ply"
  start=$(date +%s.%N)
  if mpirun --allow-run-as-root --oversubscribe -np "$np" "$bin/vxiso-mpi" surface --raw "$work/gyroid.raw" \
      --dims "$n" "$n" "$n" --type float32 -t 0.3 --max-memory "$limit" --verbose -o "$out" \
      >"$work/out.txt" 2>"$work/err.txt"; then
    end=$(date +%s.%N)
    peaks=$(sed -n 's/^rank [0-9]* peak memory: \([0-9.]*\) MB$/\1/p' "$work/out.txt" | paste -sd' ')
    size=$(stat -c %s "$out")
    printf "%-6s %-10.2f %-34s %d MB, %s\n" "$np" "$(awk -v a="$start" -v b="$end" 'BEGIN {print b - a}')" "$peaks" \
      "$((size / 1048576))" "$(head -1 "$work/out.txt" | sed 's/Isosurface contains //')"
    sed -n 's/^slowest rank: /       stages, slowest rank: /p' "$work/out.txt"
    rm -f "$out"
  else
    printf "%-6s %-10s %s\n" "$np" "-" "refused: $(sed 's/^vxiso-mpi: error: //' "$work/err.txt" | head -1)"
  fi
done
