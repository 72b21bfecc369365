#!/usr/bin/env bash
# report --prometheus: metrics for a textfile collector; with the page on fleets, whose rules and configuration are used.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly page="$(dirname "$schema")/fleet.md" here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly fleet="$folder/fleet"
readonly file="$fleet/varnex.prom"
mkdir "$fleet"

# wait_until_nobody_answers: the objects of a process that ended are gone.
wait_until_nobody_answers() {
  local turn
  for turn in $(seq 50); do
    varnexhost report --timeout 1 >"$folder/output" 2>&1 || true
    grep -q "Nobody answers" "$folder/output" && return
    sleep 0.1
  done
  fail "somebody still answers: $(cat "$folder/output")"
}

# expect_written ARGUMENTS...: a report comes into the file, without a word.
expect_written() {
  if ! varnexhost report "$@" --prometheus "$(windows_path "$file")" >"$folder/output" 2>&1 || [ -s "$folder/output" ]; then
    fail "report $* --prometheus: $(cat "$folder/output")"
  fi
}

expect_only_the_file() {
  [ "$(ls -A "$fleet")" = varnex.prom ] || fail "$1: the folder holds more or less than the file: $(ls -A "$fleet")"
}

expect 2 "prometheus" report --prometheus
expect 2 "prometheus" report --prometheus ""
expect 2 "excludes" report --prometheus "$(windows_path "$file")" --xml
expect 2 "excludes" report --prometheus "$(windows_path "$file")" --json

# Without a report the file of before stays, and none is made where none was.
expect 1 "Nobody answers" report --prometheus "$(windows_path "$file")"
[ -z "$(ls -A "$fleet")" ] || fail "a file was made without a report"
printf 'as it was\n' >"$file"
expect 1 "Nobody answers" report --prometheus "$(windows_path "$file")"
[ "$(cat "$file")" = "as it was" ] || fail "the file of before did not stay"
expect_only_the_file "without a report"

# Names that begin alike, that hold what the format gives a meaning, and that are empty; speeds and sizes nobody knows.
cat >"$folder/report.xml" <<'XML'
<ServerPKIInformation xmlns="AgentInfoProbe"><Time>2026-01-31 23:59:59</Time>
<CPUUtil Index="1" Utilization="7"/><CPUUtil Index="1" Utilization="100"/><CPUUtil Index="&quot;" Utilization="0"/>
<CPUUtil Index="\" Utilization="55"/>
<MemoryUtil PhysicalMemUtil="95" PhysicalMemCapacity="-1" PageFileUtil="-2" PageFileCapacity="0"/>
<DiskUtil Index="0" Throughput="9007199254740993"/><DiskUtil Index="0" Throughput="0"/>
<NetworkUtil MACAddress="a&quot;b\n&#10;c\\&#228;{}," LinkSpeed="1000" Utilization="29"/>
<NetworkUtil MACAddress="" LinkSpeed="0" Utilization="1"/>
<NetworkUtil MACAddress="" LinkSpeed="400000" Utilization="1"/>
</ServerPKIInformation>
XML
begin_report_server serve "$(windows_path "$folder/report.xml")"
before=$(date +%s)
expect_written --span 5
expect_only_the_file "a report came"
promtool check metrics <"$file" >"$folder/check" 2>&1 || fail "promtool does not take the file: $(cat "$folder/check")"
python3 - "$file" "$before" <<'PYTHON' || fail "the file is not what the report says"
import re, sys, time
text = open(sys.argv[1], "rb").read().decode("utf-8")
samples = [line for line in text.split("\n") if line and not line.startswith("#")]
stamp = int(samples[0].removeprefix("varnex_report_timestamp_seconds "))
assert int(sys.argv[2]) <= stamp <= time.time(), (sys.argv[2], stamp)
hostile = r'{mac="a\"b\\n\nc\\\\' + "\u00e4" + '{},",position="0"}'
assert samples[1:] == [
    'varnex_report_span_seconds 300',
    'varnex_cpu_utilization_ratio{cpu="1",position="0"} 0.07',
    'varnex_cpu_utilization_ratio{cpu="1",position="1"} 1',
    r'varnex_cpu_utilization_ratio{cpu="\"",position="2"} 0',
    r'varnex_cpu_utilization_ratio{cpu="\\",position="3"} 0.55',
    'varnex_memory_physical_utilization_ratio 0.95',
    'varnex_memory_physical_size_bytes 4503599626321920',
    'varnex_memory_paging_file_utilization_ratio -0.02',
    'varnex_disk_throughput_bytes_per_second{disk="0",position="0"} 9007199254740993',
    'varnex_disk_throughput_bytes_per_second{disk="0",position="1"} 0',
    f'varnex_network_utilization_ratio{hostile} 0.29',
    'varnex_network_utilization_ratio{mac="",position="1"} 0.01',
    'varnex_network_utilization_ratio{mac="",position="2"} 0.01',
    f'varnex_network_link_speed_bytes_per_second{hostile} 125000000',
    'varnex_network_link_speed_bytes_per_second{mac="",position="2"} 50000000000'], "\n".join(samples)
for line in samples:
    name = re.match(r"\w+", line).group()
    assert f"\n# HELP {name} " in "\n" + text and text.count(f"# TYPE {name} gauge\n") == 1, name
assert text.endswith("\n") and "\r" not in text
PYTHON

# A reader that is soon done is waited for; after one that is not, the file is as it was.
printf 'as it was\n' >"$file"
begin_report_server hold "$(windows_path "$file")" 1000
expect_written
grep -q varnex_report_timestamp_seconds "$file" || fail "the file was not replaced once its reader was done"
printf 'as it was\n' >"$file"
begin_report_server hold "$(windows_path "$file")" 8000
expect 1 "cannot be replaced: .*error" report --prometheus "$(windows_path "$file")"
[ "$(cat "$file")" = "as it was" ] || fail "a file that could not be replaced is not as it was"
expect_only_the_file "the file could not be replaced"
expect 1 "cannot be made: .*error 3" report --prometheus "$(windows_path "$folder/nowhere/varnex.prom")"

# A report that lacks something is none.
end_servers
wait_until_nobody_answers
sed 's/ PageFileUtil="-2"//' "$folder/report.xml" >"$folder/partial.xml"
begin_report_server serve "$(windows_path "$folder/partial.xml")"
expect 1 "The report is not complete" report --prometheus "$(windows_path "$file")"
[ "$(cat "$file")" = "as it was" ] || fail "half a report came into the file"
end_servers
wait_until_nobody_answers

# The page's rules speak when they have to.
# page_block NAME: the block of the page that is the file of this name.
page_block() {
  awk -v begin="\`\`\`yaml $1" '$0 == begin { on = 1; next } /^```/ { on = 0 } on' "$page"
}
page_block varnex-rules.yml >"$folder/varnex-rules.yml"
cp "$here/fleet_rules_test.yml" "$folder/"
(cd "$folder" && promtool check rules varnex-rules.yml && promtool test rules fleet_rules_test.yml) \
  >"$folder/check" 2>&1 || fail "the page's rules: $(cat "$folder/check")"

# A real Prometheus scrapes a real exporter, which reads the file: first the report of above, then this machine's.
free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# expect_query EXPRESSION CONDITION: within 35 seconds Prometheus answers with samples, by name `samples`, for which the
# Python expression holds; a sample is its labels and its value.
expect_query() {
  python3 - "$prometheus_port" "$1" "$2" <<'PYTHON' || fail "Prometheus never gave $1 with $2"
import json, sys, time, urllib.error, urllib.parse, urllib.request
port, query, condition = sys.argv[1:]
url = f"http://127.0.0.1:{port}/api/v1/query?" + urllib.parse.urlencode({"query": query})
samples, end = None, time.monotonic() + 35
while time.monotonic() < end:
    try:
        answer = json.load(urllib.request.urlopen(url, timeout=5))
        samples = [(sample["metric"], float(sample["value"][1])) for sample in answer["data"]["result"]]
        if eval(condition):
            sys.exit(0)
    except (urllib.error.URLError, OSError) as error:
        samples = error
    time.sleep(0.3)
print(samples)
sys.exit(1)
PYTHON
}

begin_report_server serve "$(windows_path "$folder/report.xml")"
expect_written
end_servers
wait_until_nobody_answers
exporter_port=$(free_port) prometheus_port=$(free_port)
{ printf 'global: {scrape_interval: 1s, evaluation_interval: 1s}\n'
  page_block prometheus.yml | sed "s/targets: .*/targets: ['127.0.0.1:$exporter_port']/"; } >"$folder/prometheus.yml"
grep -q "127.0.0.1:$exporter_port" "$folder/prometheus.yml" || fail "the page's configuration has no targets"
prometheus-node-exporter --web.listen-address="127.0.0.1:$exporter_port" --collector.disable-defaults \
  --collector.textfile --collector.textfile.directory="$fleet" >"$folder/exporter.log" 2>&1 &
servers+=($!)
prometheus --config.file="$folder/prometheus.yml" --storage.tsdb.path="$folder/data" \
  --web.listen-address="127.0.0.1:$prometheus_port" >"$folder/prometheus.log" 2>&1 &
servers+=($!)
known=$failures
expect_query varnex_memory_physical_utilization_ratio '[value for _, value in samples] == [0.95]'
expect_query 'varnex_network_utilization_ratio{position="0"}' \
  '[labels["mac"] for labels, _ in samples] == ["a\"b\\n\nc\\\\\u00e4{},"]'
expect_query 'count(varnex_cpu_utilization_ratio{cpu="1"})' '[value for _, value in samples] == [2]'
expect_query 'ALERTS{alertname="VarnexMemoryShort",alertstate="pending"}' 'len(samples) == 1'
expect_query node_textfile_scrape_error '[value for _, value in samples] == [0]'

begin_watch --report --seconds 12
sleep 3 # the first samples
expect_written --span 1
expect_only_the_file "a real report came"
promtool check metrics <"$file" >"$folder/check" 2>&1 || fail "promtool does not take the file: $(cat "$folder/check")"
size=$(sed -n 's/^varnex_memory_physical_size_bytes //p' "$file")
expect_query varnex_memory_physical_size_bytes "[value for _, value in samples] == [${size:-0}]"
expect_query varnex_memory_physical_utilization_ratio 'len(samples) == 1 and 0 < samples[0][1] <= 1'
[ "$failures" -eq "$known" ] || tail -n 5 "$folder/exporter.log" "$folder/prometheus.log"
end_watch

# The page tells of each metric that there is, and of no other.
grep -o '^| `varnex_[a-z_]*`' "$page" | grep -o 'varnex_[a-z_]*' | sort >"$folder/told"
page_block varnex-rules.yml | grep -o 'varnex_[a-z_]*' | sort -u |
  grep -v -x -e varnex_report_fresh | comm -23 - "$folder/told" | grep . && fail "the rules ask for metrics there are none of"
sed -i 's/PageFileCapacity="0"/PageFileCapacity="1"/' "$folder/report.xml"
begin_report_server serve "$(windows_path "$folder/report.xml")"
expect_written
sed -n 's/^# TYPE \([a-z_]*\) .*/\1/p' "$file" | sort | diff "$folder/told" - || fail "the page's metrics are not the file's"

finish
