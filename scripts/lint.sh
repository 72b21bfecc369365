#!/usr/bin/env bash
# The layout of all sources, then clang-tidy over src/, with clang as a second compiler for the same target.
# usage: scripts/lint.sh [FILE...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

command -v clang-tidy >/dev/null || { echo "lint: clang-tidy is not installed (package clang-tidy)" >&2; exit 1; }

if [ $# -eq 0 ]; then
  # The public header is laid out by hand: clang-format takes its extern "C" for a block to indent.
  git ls-files '*.cpp' '*.h' '*.c' | grep -v '^third_party/\|^include/' | xargs clang-format --dry-run -Werror ||
    { echo "lint: clang-format -i settles these" >&2; exit 1; }
fi

gcc_headers=$(dirname "$(x86_64-w64-mingw32-g++-win32 -print-libgcc-file-name)")/include/c++
[ $# -gt 0 ] || mapfile -t files < <(find src -name '*.cpp' | sort)
flags=(--target=x86_64-w64-mingw32 -std=c++17
       -isystem "$gcc_headers" -isystem "$gcc_headers/x86_64-w64-mingw32"
       -Isrc -Iinclude -DWIN32_LEAN_AND_MEAN -DNOMINMAX -D_WIN32_WINNT=0x0601 -DUNICODE -D_UNICODE -DVARNEX_NO_DLLIMPORT
       -Wall -Wextra)

log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
printf '%s\n' "${@:-${files[@]}}" | xargs -P "$(nproc)" -n 4 sh -c '
  shift; exec clang-tidy --quiet "$@" -- '"$(printf '%q ' "${flags[@]}")" sh -- >"$log" 2>&1 || status=$?
# It exits 0 where it could not even find a header: look for that, too.
if [ "$status" -ne 0 ] || grep -q 'compiler error\|\[clang-diagnostic-error\]' "$log"; then
  grep -v 'warnings generated\|Suppressed\|Use -header-filter' "$log" >&2 || true
  echo "lint: clang-tidy has something to say" >&2
  exit 1
fi
echo "lint: clang-tidy is content"
