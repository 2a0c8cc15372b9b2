#!/usr/bin/env bash
# Fails, naming the files, when a C++ file of the repository differs from what the repository's
# .clang-format makes of it. `make format` rewrites them.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || { echo "check-format: clang-format is not installed (make deps)"; exit 1; }
mapfile -t files < <(git ls-files '*.cpp' '*.h')
differ=()
for f in "${files[@]}"; do
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || differ+=("$f")
done
if [ ${#differ[@]} -gt 0 ]; then
  echo "check-format: ${#differ[@]} file(s) differ from .clang-format (run 'make format'):"
  printf '  %s\n' "${differ[@]}"
  exit 1
fi
echo "check-format: ${#files[@]} files as .clang-format writes them"
