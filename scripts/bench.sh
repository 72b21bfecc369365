#!/usr/bin/env bash
# Measures what the module costs beside what nobody could do without: a table on the screen, the same as JSON and as the
# tables of docs/performance.md in build/bench. Some ten minutes; --short takes seconds, and its figures say little.
# usage: scripts/bench.sh [--short] [PART...]      parts: log config alerts cycles reports entry footprint
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

form="full run"
files=full
if [ "${1:-}" = --short ]; then
  form="short form"
  files=short
  shift
fi
if [ $# -gt 0 ]; then
  export VARNEX_BENCH_PARTS="$*"
  files=parts
fi

build="${VARNEX_BENCH_BUILD:-build/release}"
if [ "$build" = build/release ]; then
  scripts/build.sh release varnex_bench
fi
export WINEPREFIX="${WINEPREFIX:-$PWD/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
unset DISPLAY

# One server for the whole run: its start is no part of any figure.
mkdir -p "$WINEPREFIX" build/bench
if wineserver -p >/dev/null 2>&1 </dev/null; then
  trap 'wineserver -k || true' EXIT
fi

load() {
  echo "Load of the machine's $(nproc) cores $1: $(cut -d' ' -f1-3 /proc/loadavg) (a calm one has less than 1 beside" \
       "this program)."
}
before=$(load before)
echo "$before"
# Wine shows the root as drive Z:.
VARNEX_BENCH_FILES="Z:$PWD/build/bench/$files" scripts/wine-run.sh "$build/bin/bench/varnex_bench.exe" "$form"
after=$(load after)
echo "$after"
printf '%s\n' "" "$before" "$after" >>"build/bench/$files.md"
echo "JSON: build/bench/$files.json; tables: build/bench/$files.md"
