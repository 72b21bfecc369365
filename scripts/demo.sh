#!/usr/bin/env bash
# Runs the module on this machine's real load: alerts raised and fetched, then a report. About 90 seconds after the
# build; everything it leaves is in build/demo. usage: scripts/demo.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly demo="$PWD/build/demo"
readonly bin="$demo/A/B/bin" logs="$demo/A/B/Logs" shown="$demo/watch.txt"
readonly watch_seconds=80
readonly report_after=65 # the samplers take one sample a minute, so each has two by then
background=()

fail() {
  echo "demo: $*" >&2
  exit 1
}

say() {
  printf '\n== %s\n' "$*"
}

clean_up() {
  local pid
  for pid in "${background[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  wineserver -k 2>/dev/null || true
  rm -f "$demo/traffic.bin"
}

# set_policy NAME VALUE: one of the configuration's values, as an operator would edit it.
set_policy() {
  sed -i "s|<$1>[^<]*</$1>|<$1>$2</$1>|" "$bin/KpmCfg.xml"
  grep -q "<$1>$2</$1>" "$bin/KpmCfg.xml" || fail "examples/KpmCfg.xml has no $1 to set"
}

lay_out_tree() {
  rm -rf "$demo"
  mkdir -p "$bin" "$logs"
  cp build/release/bin/Varnex.dll build/release/bin/varnexhost.exe build/release/winepdh/pdh.dll "$bin/"
  cp examples/KpmCfg.xml "$bin/"
  local resource
  for resource in CPU Memory Disk Network; do
    set_policy "${resource}Interval" 1
    set_policy "${resource}SamplingAmount" 3
  done
  # Low enough that what this machine does anyway, and the load made here, reach them.
  set_policy CPUThreshold 50
  set_policy MemoryThreshold 1
  set_policy DiskThreshold 5
  set_policy NetworkThreshold 1
}

varnexhost() {
  scripts/wine-run.sh "$bin/varnexhost.exe" "$@"
}

# Writes at most some 40 MB/s, each piece through to the disk.
write_to_disk() {
  while dd if=/dev/zero of="$demo/traffic.bin" bs=1M count=8 conv=fsync status=none; do
    sleep 0.2
  done
}

expect_alert() {
  grep -q "| $1 [0-9]" "$shown" || fail "no $1 alert came; $logs/Varnex.log tells what the module saw"
}

echo "Building (log: build/release.log) ..."
scripts/build.sh release Varnex varnexhost winepdh

# A prefix of its own: a test run at the same time has the same named objects, and its server is not to be ended.
export WINEPREFIX="${WINEPREFIX:-$PWD/build/demo-wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# The performance counters come from pdh.dll beside the module, which serves this machine's real numbers.
export WINEDLLOVERRIDES="pdh=n,b"
unset DISPLAY
trap clean_up EXIT
trap 'exit 130' INT TERM
echo "Starting Wine (the first time about 20 seconds) ..."
scripts/wine-run.sh cmd /c exit || fail "Wine does not start; its words are in $WINEPREFIX.log"
lay_out_tree

say "The host agent's part: watching this machine for $watch_seconds seconds, under load made here"
echo "CPU: every processor kept busy.   Disk: written to, up to 40 MB/s.   Memory, network: as they are."
echo "Each line with a time is one alert, fetched by GetAlertRecord and gone from the store:"
echo
write_to_disk &
background+=($!)
varnexhost watch --alerts all --report --burn --seconds "$watch_seconds" > >(tee "$shown") 2>&1 &
watch=$!
background+=("$watch")

sleep "$report_after" &
background+=($!)
wait -n "$!" "$watch" && kill -0 "$watch" 2>/dev/null || fail "the watch ended early; see its words above"
say "The management side's part: a second process asks for a utilization report"
varnexhost report --span 60 --min 1 --timeout 20 | tee "$demo/report.txt" || fail "no report came"
varnexhost report --span 60 --min 1 --timeout 20 --xml >"$demo/report.xml" || fail "no report came as XML"
for part in Processor "Physical memory" "Paging file" Disk; do
  grep -q "^$part.* [0-9]" "$demo/report.txt" || fail "the report lacks: $part"
done
say "The watch ends"
wait "$watch" || fail "the watch ended early; see its words above"
sleep 0.2 # the last words on their way through the pipe

for kind in CPU memory "paging file" disk; do
  expect_alert "$kind"
done

say "For inspection"
echo "log             $logs/Varnex.log"
echo "configuration   $bin/KpmCfg.xml   (the day's alert counts are under PkiAlertNum)"
echo "alert file      $bin/LocalAlt.dat   (alerts not yet fetched; empty or absent when all were)"
echo "report          $demo/report.txt, report.xml"
echo "alerts shown    $shown"
