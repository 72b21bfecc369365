#!/usr/bin/env bash
# Measures what the module costs beside what nobody could do without: a table on the screen, the same as JSON and as the
# tables of docs/performance.md in build/bench. Some ten minutes; --short takes seconds, and its figures say little.
# usage: scripts/bench.sh [--short] [PART...]      parts: log config alerts cycles reports entry footprint
# VARNEX_BENCH_BUILD names a build directory to measure as it is: nothing is built, and the files go to its folder bench.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

parts=(log config alerts cycles reports entry footprint)
form="full run"
files=full
if [ "${1:-}" = --short ]; then
  form="short form"
  files=short
  shift
fi
for part in "$@"; do
  if [[ " ${parts[*]} " != *" $part "* ]]; then
    echo "bench: there is no part '$part'; they are: ${parts[*]}" >&2
    exit 2
  fi
done
unset VARNEX_BENCH_PARTS
if [ $# -gt 0 ]; then
  export VARNEX_BENCH_PARTS="$*"
  files=parts
fi

if [ -n "${VARNEX_BENCH_BUILD:-}" ]; then
  build=$VARNEX_BENCH_BUILD
  output=$build/bench
else
  build=build/release
  output=build/bench
  scripts/build.sh release varnex_bench
fi
mkdir -p "$output"
output=$(cd "$output" && pwd)
export WINEPREFIX="${WINEPREFIX:-$PWD/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
unset DISPLAY

# One server for the whole run: its start is no part of any figure.
mkdir -p "$WINEPREFIX"
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
VARNEX_BENCH_FILES="Z:$output/$files" scripts/wine-run.sh "$build/bin/bench/varnex_bench.exe" "$form"
after=$(load after)
echo "$after"
printf '%s\n' "" "$before" "$after" >>"$output/$files.md"
echo "JSON: ${output#"$PWD"/}/$files.json; tables: ${output#"$PWD"/}/$files.md"
