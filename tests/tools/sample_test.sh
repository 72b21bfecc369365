#!/usr/bin/env bash
# sample: what each source gives, or why not and what to do.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The network's part depends on the adapters of this machine: read or not, it has to be said rightly.
cat >"$folder/checks.py" <<'PYTHON'
sources = {source["source"]: source for source in found["sources"]}
assert list(sources) == ["cpu", "memory", "disk", "network"], list(sources)
for source in sources.values():
    assert source["read"] == (source["failures"] == []), source
    assert source["values"] or source["failures"], source
    for failure in source["failures"]:
        assert failure["what"] and failure["remedy"], failure
assert found["read"] == all(source["read"] for source in sources.values()), found
def values(source, quantity):
    return {value["name"]: value["value"] for value in sources[source]["values"] if value["quantity"] == quantity}
for value in sources["network"]["values"]:
    assert value["unit"] == {"utilization": "%", "traffic": "B/s", "link speed": "bit/s"}[value["quantity"]], value
PYTHON
checks=$(cat "$folder/checks.py")

# expect_samples PYTHON: the sources as JSON; the exit code is that of what was read.
expect_samples() {
  local ended=0
  varnexhost sample --json >"$folder/output" 2>"$folder/errors" || ended=$?
  if ! python3 - "$folder/output" "$ended" >"$folder/check" 2>&1 <<PYTHON; then
import json, re, sys
found = json.load(open(sys.argv[1], encoding="utf-8"))
$checks
assert int(sys.argv[2]) == (0 if found["read"] else 1), sys.argv[2]
$1
PYTHON
    fail "sample --json ended with $ended; checked by '$1':"
    cat "$folder/output" "$folder/errors" "$folder/check"
  fi
}

expect 2 "extra" sample extra
expect 0 "Usage: varnexhost sample" sample --help
grep -q "  2  wrong usage" "$folder/output" || fail "sample --help does not tell the exit codes"

# What is read once leaves nothing behind: no log either, which would lie in the root of the current drive.
readonly drive="${WINEPREFIX:-$(dirname "$wine_run")/../build/wine-prefix}/drive_c"
varnexhost --version >/dev/null
ls "$drive" >"$folder/drive_before"
(cd "$folder" && find A | sort) >"$folder/before"

# This machine's own numbers.
expect_samples '
utilization = values("cpu", "utilization")
processors = re.findall(r"^cpu(\d+)", open("/proc/stat").read(), re.M)
assert set(utilization) == {"all processors"} | {f"processor {i}" for i in processors}, utilization
assert all(0 <= percent <= 100 for percent in utilization.values()), utilization
kilobytes = int(next(line for line in open("/proc/meminfo") if line.startswith("MemTotal:")).split()[1])
assert abs(values("memory", "size")["physical memory"] - kilobytes // 1024) <= 1, sources["memory"]
assert 0 < values("memory", "utilization")["physical memory"] <= 100, sources["memory"]
assert sources["cpu"]["read"] and sources["memory"]["read"] and sources["disk"]["read"], found
assert all(value["name"].startswith("disk 0") for value in sources["disk"]["values"][:1]), sources["disk"]'

# A machine that stands still: zeros are values, and whoever waits for them is told.
printf 'cpu  10 0 10 100 0 0 0 0\ncpu0 5 0 5 50 0 0 0 0\ncpu1 5 0 5 50 0 0 0 0\n' >"$folder/stat"
printf '8 0 sda 10 0 80 5 10 0 80 5 0 5 10\n8 16 sdb 10 0 80 5 10 0 80 5 0 5 10\n' >"$folder/diskstats"
export WINEPDH_PROC_STAT=$(windows_path "$folder/stat") WINEPDH_DISKSTATS=$(windows_path "$folder/diskstats")
expect_samples '
assert values("disk", "throughput") == {"disk 0 C:": 0, "disk 1 D:": 0}, sources["disk"]
processors = values("cpu", "utilization")
assert processors["processor 0"] == processors["processor 1"] == 0 and sources["cpu"]["read"], sources["cpu"]'
grep -q "^varnexhost: Reading the sources.* (2 s)" "$folder/errors" || fail "seconds went by without a word"

# One source after the other is taken away.
rm "$folder/diskstats"
expect 1 "^disk: not read" sample
grep -q "0xc0000bb8 PDH_CSTATUS_NO_OBJECT: " "$folder/output" || fail "the code is not told in words"
grep -q "What to do: .*lodctr /E:PerfDisk" "$folder/output" || fail "the remedy for the disk counters is not told"
grep -q "The module asked by the English names: .* system locale.* display language, which is English for this account" \
  "$folder/output" || fail "the language of the names is not told: $(cat "$folder/output")"
grep -q "^  processor 1, utilization  *0 %" "$folder/output" || fail "the processors are missed along with the disks"
rm "$folder/stat"
expect_samples '
for source, what in ("cpu", "The processors cannot be listed"), ("disk", "The physical disks cannot be listed"):
    failure, = sources[source]["failures"]
    assert failure["what"] == what and failure["code"] == "0xc0000bb8", failure
assert "lodctr /E:PerfOS" in sources["cpu"]["failures"][0]["remedy"], sources["cpu"]
assert list(values("cpu", "utilization")) == ["all processors"], sources["cpu"]
assert sources["memory"]["read"], sources["memory"]'

# A disk that is listed and then gives nothing: its counters go while it is measured, which takes six idle seconds from
# the second on. On a machine too busy for that they go before, and it is tried again.
for turn in 1 2 3; do
  printf '8 0 sda 10 0 80 5 10 0 80 5 0 5 10\n' >"$folder/diskstats"
  (sleep 4 && rm "$folder/diskstats") &
  ended=0
  varnexhost sample >"$folder/output" 2>/dev/null || ended=$?
  wait $!
  grep -q "disks cannot be listed" "$folder/output" || break
done
[ "$ended" -eq 1 ] && grep -q '^  FAILED: .PhysicalDisk(0 C:).Disk Bytes/sec cannot be read' "$folder/output" ||
  fail "a disk that stopped answering passes for an idle one ($ended): $(cat "$folder/output")"
unset WINEPDH_PROC_STAT WINEPDH_DISKSTATS

# Listed, but none is there to be measured: only the aggregate of all.
: >"$folder/none"
WINEPDH_DISKSTATS=$(windows_path "$folder/none") expect_samples '
failure, = sources["disk"]["failures"]
assert failure["code"] is None and "empty" in failure["what"] and "lodctr" in failure["remedy"], failure'

# WMI that refuses, as Wine's does when its library may not be loaded.
WINEDLLOVERRIDES="pdh=n,b;wbemprox=d" expect_samples '
failure, = sources["network"]["failures"]
assert failure["what"] == "WMI does not list the network adapters" and failure["code"] == "0x80070005", failure
assert failure["text"] and "may not ask WMI" in failure["remedy"], failure
assert sources["cpu"]["read"] and sources["disk"]["read"], found'

# Wine without a pdh.dll for it has no counters, and there is nothing that an operator could repair.
mv "$bin/pdh.dll" "$folder/"
WINEDLLOVERRIDES="pdh=b" expect_samples '
for source in "cpu", "disk":
    failure, = sources[source]["failures"]
    assert failure["code"] == "0xc0000bd3" and "nothing to repair" in failure["remedy"], failure
assert sources["memory"]["read"], sources["memory"]'
mv "$folder/pdh.dll" "$bin/"

# A processor whose counter the module cannot name, which it would log.
printf 'cpu  10 0 10 100 0 0 0 0\ncpu%01100d 5 0 5 50 0 0 0 0\n' 0 >"$folder/stat"
ended=0
(cd "$drive" && WINEPDH_PROC_STAT=$(windows_path "$folder/stat") varnexhost sample >"$folder/output" 2>&1) || ended=$?
[ "$ended" -eq 1 ] && grep -q "The system says: 0xc0000bc0 PDH_CSTATUS_BAD_COUNTERNAME" "$folder/output" ||
  fail "a counter that cannot be named ended with $ended: $(cut -c1-200 "$folder/output")"
(cd "$folder" && find A | sort) | diff "$folder/before" - || fail "reading the sources left something behind"
ls "$drive" | diff "$folder/drive_before" - || fail "reading the sources wrote a log"

# A German system's counters are asked for by their German names; the disks' are not there.
ended=0
WINEPDH_DISKSTATS=$(windows_path "$folder/nowhere") "$(dirname "${BASH_SOURCE[0]}")/../support/in-locale.sh" de_DE \
  "$bin/varnexhost.exe" sample >"$folder/output" || ended=$?
[ "$ended" -eq 1 ] && grep -q "^cpu: read" "$folder/output" &&
  grep -q "The module asked by the German names: .* which is German for this account" "$folder/output" ||
  fail "the German names are not told ($ended): $(cat "$folder/output")"

# It may run beside a host agent.
begin_watch --alerts cpu --seconds 6
expect_samples 'assert sources["cpu"]["read"] and sources["memory"]["read"], found'
end_watch

finish
