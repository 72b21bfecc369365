#!/usr/bin/env bash
# Fuzzes the pieces of src/ that need no Windows, natively, under the address and undefined-behaviour sanitizers, and
# prints a figure for each. An input that breaks one stays in build/fuzz.
# usage: scripts/fuzz.sh [--keep] [SECONDS [TARGET...]]     (60 seconds each; targets: alert_lines bounded_text averages)
# --keep goes on from the inputs that an earlier run has found; without it each run begins with the one below.
# Needs clang and its run-time library (packages clang-N and libclang-rt-N-dev of the same version).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

known=(alert_lines bounded_text averages)
keep=no
if [ "${1:-}" = --keep ]; then
  keep=yes
  shift
fi
seconds=${1:-60}
[[ "$seconds" =~ ^[1-9][0-9]*$ ]] || { echo "usage: scripts/fuzz.sh [--keep] [SECONDS [TARGET...]]" >&2; exit 2; }
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${known[@]}")
for target in "${targets[@]}"; do
  if [[ " ${known[*]} " != *" $target "* ]]; then
    echo "fuzz: there is no target '$target'; they are: ${known[*]}" >&2
    exit 2
  fi
done

compiler=$(command -v clang++-14 || command -v clang++-19 || command -v clang++) || { echo "fuzz: clang is not installed" >&2; exit 1; }
flags=(-std=c++17 -g -O1 -Wall -Wextra -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all
       -Itests/fuzz/native -Itests/fuzz -Isrc -Iinclude -include tests/fuzz/native/windows.h)
mkdir -p build/fuzz

# sources TARGET: what it is made of, beside the stand-in for Windows.
sources() {
  case "$1" in
    alert_lines) echo tests/fuzz/FuzzAlertLines.cpp src/alerting/Alert{File,Line}.cpp src/common/{AnsiText,LocalTime}.cpp ;;
    bounded_text) echo tests/fuzz/FuzzBoundedText.cpp ;;
    averages) echo tests/fuzz/FuzzAverages.cpp src/reporting/UtilizationAverage.cpp ;;
  esac
}

for target in "${targets[@]}"; do
  files=$(sources "$target")
  # shellcheck disable=SC2086
  "$compiler" "${flags[@]}" $files src/common/BoundedText.cpp tests/fuzz/native/NativeWindows.cpp \
    -o "build/fuzz/$target" 2>"build/fuzz/$target.build.log" || {
    cat "build/fuzz/$target.build.log" >&2
    exit 1
  }
  corpus="build/fuzz/$target.corpus"
  [ "$keep" = yes ] || rm -rf "$corpus"
  mkdir -p "$corpus"
  # What an input looks like: found by chance, it would take most of the time.
  printf '\377\377\001\000\002\001\0003;50;72;1706745599(2024-01-31 23:59:59);0 C:;\r\n2;1;2;3();PF;x\n' >"$corpus/seed"
  log="build/fuzz/$target.log"
  # The same seed and the same first input: courses that begin alike. They part when the fuzzer takes up something that
  # the code compares with and that is another in each run, an address say; what it finds is kept as a file.
  if ! "build/fuzz/$target" -seed=20260131 -max_total_time="$seconds" -max_len=8192 -rss_limit_mb=1024 -timeout=10 \
    -artifact_prefix="build/fuzz/$target-" -print_final_stats=1 "$corpus" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "fuzz: $target is broken by an input; it lies in build/fuzz" >&2
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  coverage=$(sed -n 's/.*cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  memory=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log")
  echo "FIGURE fuzz $target: $runs inputs in $seconds s, $coverage places reached, at most $memory MB, 0 findings"
done
