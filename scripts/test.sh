#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. usage: scripts/test.sh [--preset PRESET] [CTEST ARGUMENTS...]
# Examples: scripts/test.sh -R unit_config      scripts/test.sh --preset ubsan
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=release
if [ "${1:-}" = --preset ]; then
  preset="${2:?--preset needs a name}"
  shift 2
fi

scripts/setup.sh
export WINEPREFIX="${WINEPREFIX:-$PWD/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# A display of the caller's would only make Wine slower to start.
unset DISPLAY

# begin_wine PREFIX: the prefix first, by a server that ends with it; then one server for the whole run, ended with it:
# without one, programs wait for the last one's server to go. A server that is there already, and stays, belongs to
# another run.
servers=()
trap 'for prefix in "${servers[@]}"; do WINEPREFIX=$prefix wineserver -k || true; done' EXIT
exec {endless}<> <(:) # a pipe that never has anything to read: a program that waits for it stays
begin_wine() {
  export WINEPREFIX=$1
  local ours=
  scripts/wine-run.sh cmd /c exit </dev/null >/dev/null
  for _ in 1 2 3 4 5 6 7 8; do
    if wineserver -p 2>/dev/null; then
      servers+=("$1")
      ours=yes
      break
    fi
    sleep 1
  done
  # Its services are started here and not by a test, whose output they would keep open.
  scripts/wine-run.sh cmd /c exit </dev/null >/dev/null 2>&1
  # So is the desktop, which lasts as long as a program that uses it. Without that one, each test with COM begins a desktop
  # that outlives it by a second, and ctest waits for its end.
  if [ -n "$ours" ]; then
    scripts/wine-run.sh cmd <&"$endless" >/dev/null 2>&1 &
    disown
  fi
}
first="$WINEPREFIX"
begin_wine "$first"

scripts/build.sh "$preset"
# One at a time in a prefix: the module's mutexes and events are machine-wide names, and a test under the virtual clock that
# finds one of them taken by another would let its time pass. A test that fails is run once more: one in some thousand
# programs does not get through to Wine's server as it starts.
run_tests() {
  ctest --preset "$preset" -j 1 --repeat until-pass:2 --no-tests=error "$@"
}
if [ $# -gt 0 ]; then
  run_tests "$@"
  exit
fi

# Everything: in three lanes with a prefix each, which are three machines to the module.
lanes=('^reliability_[^k]' '^(reliability_k|tools|docs|package|bench)')
logs=("build/$preset-lane-1.log") runs=()
for lane in "${lanes[@]}"; do
  log="build/$preset-lane-$((${#logs[@]} + 1)).log"
  begin_wine "$first-$((${#logs[@]} + 1))"
  run_tests -V -R "$lane" </dev/null >"$log" 2>&1 &
  runs+=($!)
  logs+=("$log")
done
export WINEPREFIX="$first"
status=0
run_tests -E "$(IFS='|'; echo "${lanes[*]}")" 2>&1 | tee "${logs[0]}" || status=$?
for i in "${!runs[@]}"; do
  wait "${runs[i]}" || status=$?
  log="${logs[i + 1]}"
  echo
  echo "Another lane ($log):"
  for number in $(sed -n 's|^ *[0-9]*/[0-9]* Test *#\([0-9]*\):.*\*\*\*.*|\1|p' "$log" | sort -un); do
    grep "^$number: " "$log" | tail -n 40
  done
  tail -n 12 "$log"
done
echo
echo "What the tests measured:"
sed -n 's/^[0-9]*: FIGURE */  /p' "${logs[@]}"
echo
echo "Not passed, or not at the first try:"
sed -n 's|^ *[0-9]*/[0-9]* Test *#[0-9]*: \(.*[^. ]\) \.*\*\*\*\(.*[^ ]\)  *[0-9.]* sec.*|  \1: \2|p' "${logs[@]}" | grep . || echo "  none"
echo
sed -n 's/.* tests passed, \([0-9]*\) tests failed out of \([0-9]*\)$/\1 \2/p' "${logs[@]}" |
  awk '{ failed += $1; all += $2 } END { printf "%d passed, %d failed\n", all - failed, failed }'
exit "$status"
