#!/usr/bin/env bash
# check_format.sh <checkout> <clang-format>: the sources that git knows, or would, are formatted as .clang-format says.
set -euo pipefail
cd "$1"
list() {
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z --cached --others --exclude-standard -- '*.h' '*.cpp'
  else
    find . -path ./build -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0
  fi
}
mapfile -d '' files < <(list)
[ ${#files[@]} -gt 0 ] || { echo "no sources found in $1"; exit 1; }
if ! said=$(printf '%s\0' "${files[@]}" | xargs -0 -n 16 -P 2 "$2" --dry-run -Werror 2>&1); then
  # One line per place instead of the formatter's three.
  grep -oE '^[^ :]+:[0-9]+:[0-9]+: error: ' <<<"$said" | cut -d: -f1,2 | sort -u -t: -k1,1 -k2,2n || printf '%s\n' "$said"
  echo "not formatted; mend with clang-format -i"
  exit 1
fi
