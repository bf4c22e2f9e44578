#!/usr/bin/env bash
# Formats every tracked C++ file with clang-format 14 and the committed
# .clang-format; with --check, changes nothing and fails listing the files
# that are not formatted.
#   scripts/format.sh [--check]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$here"
tool=clang-format-14
command -v "$tool" >/dev/null || { echo "format: $tool not found (scripts/setup.sh test installs it)" >&2; exit 1; }
mapfile -t files < <(git ls-files '*.h' '*.cpp')
if [ "${1:-}" = --check ]; then
  bad=()
  for f in "${files[@]}"; do
    "$tool" --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
  done
  if [ ${#bad[@]} -gt 0 ]; then
    printf 'format: not formatted (run scripts/format.sh):\n' >&2
    printf '  %s\n' "${bad[@]}" >&2
    exit 1
  fi
  echo "format: ${#files[@]} files formatted"
else
  "$tool" -i "${files[@]}"
fi
