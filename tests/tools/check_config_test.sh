#!/usr/bin/env bash
# check-config: what the module makes of a configuration file, and what will not work as meant.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly file="$folder/tried.xml"
readonly today=$(date +%Y-%m-%d)

# policy ELEMENTS: a file with these in the policy's section.
policy() {
  printf '<KPMConfiguration>\n<PkiAlert>\n%s\n</PkiAlert>\n<PkiAlertNum/>\n' "$1" >"$file"
  printf '<VarnexLog><Level>3</Level></VarnexLog>\n</KPMConfiguration>\n' >>"$file"
}

# expect_value TEXT NUMBER REASON: a CPUInterval of this text is in force as the number; default for the reason, or from
# the file when there is none.
expect_value() {
  policy "<CPUInterval>$1</CPUInterval>"
  varnexhost check-config "$(windows_path "$file")" --json >"$folder/output" 2>/dev/null || true
  python3 - "$folder/output" "$2" "$3" <<'PYTHON' || fail "the value '$1', expected $2 ($3)"
import json, sys
value = json.load(open(sys.argv[1], encoding="utf-8"))["policy"][0]
assert value["name"] == "CPUInterval" and value["inForce"] == int(sys.argv[2]), value
assert (value["reason"] or "") == sys.argv[3] and value["origin"] == ("default" if sys.argv[3] else "file"), value
assert value["unit"] == "s" and value["line"] == 3, value
PYTHON
}

# expect_finding CODE PATTERN ELEMENTS: the policy with these elements gives the finding.
expect_finding() {
  policy "$3"
  expect "$1" "$2" check-config "$(windows_path "$file")"
}

expect 2 "FILE is required" check-config
expect 2 "not expected: b" check-config a b
expect 1 "There is no file" check-config 'C:\no such file.xml'

# The default file is as its writer meant it; so is one without a value.
expect 0 "^No problem found" check-config "$(windows_path "$configuration")"
policy ""
cat >"$folder/defaults.py" <<'PYTHON'
defaults = {"CPU": (90, 85, 5, 5), "Memory": (90, 85, 5, 5), "Disk": (60, 50, 5, 5), "Network": (90, 60, 5, 5)}
kinds = ("Interval", "Threshold", "SamplingAmount", "MaxAlertNum")
names = [(resource + kind, defaults[resource][i]) for resource in defaults for i, kind in enumerate(kinds)]
assert [(value["name"], value["inForce"]) for value in found["policy"]] == names, found["policy"]
PYTHON
expect_json 0 "$(cat "$folder/defaults.py")
assert all(value['reason'] == 'missing' and value['line'] is None for value in found['policy']), found
assert found['problems'] == [] and found['loads'] and found['logLevel']['inForce'] == 3, found" \
  check-config --json "$(windows_path "$file")"
expect_json 0 "$(cat "$folder/defaults.py")
assert all(value['origin'] == 'file' for value in found['policy']), found" \
  check-config --json "$(windows_path "$configuration")"

# Each of the sixteen is read from its own element.
python3 - >"$file" <<'PYTHON'
print("<KPMConfiguration><PkiAlert>")
number = 10
for resource in ("CPU", "Memory", "Disk", "Network"):
    for kind in ("Interval", "Threshold", "SamplingAmount", "MaxAlertNum"):
        print(f"<{resource}{kind}>{number}</{resource}{kind}>")
        number += 1
print("</PkiAlert></KPMConfiguration>")
PYTHON
expect_json 0 'assert [value["inForce"] for value in found["policy"]] == list(range(10, 26)), found
assert [value["line"] for value in found["policy"]] == list(range(2, 18)), found
assert found["logLevel"]["reason"] == "missing" and found["logLevel"]["inForce"] == 3, found' \
  check-config --json "$(windows_path "$file")"

expect_value 7 7 ""
expect_value "  +08 " 8 ""
expect_value 12abc 12 ""
expect_value -5 -5 ""
expect_value "" 90 empty
expect_value abc 90 "not a number"
expect_value 0 90 "0 stands for the default"
expect_value -1 90 "-1 stands for the default"

expect_finding 1 'line 3: CPUThreshold: "12abc" is read as 12' "<CPUThreshold>12abc</CPUThreshold>"
expect_finding 1 '"1.5" is read as 1:' "<CPUThreshold>1.5</CPUThreshold>"
expect_finding 1 '"high" is not a number' "<CPUThreshold>high</CPUThreshold>"
expect_finding 1 'line 3: DiskThreshold: "4294967346" .* does not fit' "<DiskThreshold>4294967346</DiskThreshold>"
expect_finding 0 "^No problem found" "<DiskThreshold>2147483647</DiskThreshold>"
expect_finding 1 "CPUInterval: -5 means no pause" "<CPUInterval>-5</CPUInterval>"
expect_finding 1 "CPUThreshold: -2 is reached by every" "<CPUThreshold>-2</CPUThreshold>"
expect_finding 1 "NetworkThreshold: 101 is never reached" "<NetworkThreshold>101</NetworkThreshold>"
expect_finding 0 "^No problem found" "<NetworkThreshold>100</NetworkThreshold>"
expect_finding 0 "^No problem found" "<DiskThreshold>101</DiskThreshold>"
expect_finding 1 "MemorySamplingAmount: -3 means that no average" "<MemorySamplingAmount>-3</MemorySamplingAmount>"
expect_finding 1 "DiskMaxAlertNum: 0 does not mean no alerts" "<DiskMaxAlertNum>0</DiskMaxAlertNum>"
expect_finding 0 "DiskMaxAlertNum: -2 means that no alert" "<DiskMaxAlertNum>-2</DiskMaxAlertNum>"
expect_finding 0 "the first judgement comes after 66:40:00" "<CPUInterval>60000</CPUInterval>"

expect_finding 1 "line 3: CPUIntervall is not read.* CPUInterval is probably meant" "<CPUIntervall>3</CPUIntervall>"
expect_finding 1 "cputhreshold .* CPUThreshold is probably" "<cputhreshold>3</cputhreshold>"
expect_finding 1 "k:CPUThreshold .* CPUThreshold is probably" "<k:CPUThreshold xmlns:k='u'>3</k:CPUThreshold>"
expect_finding 1 "line 3: Level is not read in PkiAlert. .* in VarnexLog" "<Level>4</Level>"
expect_finding 1 "line 3: Whatever is not read in PkiAlert.$" "<Whatever/>"
expect_finding 1 "line 4: CPUInterval .*more than once.*in line 3" \
  $'<CPUInterval>3</CPUInterval>\n<CPUInterval>4</CPUInterval>'
expect_finding 1 "line 3: The attribute value of CPUInterval" '<CPUInterval value="3"/>'

printf '<KPMConfiguration>\n<PkiAlerts/>\n<CPUInterval>3</CPUInterval>\n</KPMConfiguration>' >"$file"
expect 1 "line 2: PkiAlerts .* PkiAlert is probably" check-config "$(windows_path "$file")"
grep -q "line 3: CPUInterval .* in PkiAlert" "$folder/output" || fail "a value outside of its section is not pointed at"
printf '<KPMConfiguration><SomethingElse/></KPMConfiguration>' >"$file"
expect 0 "line 1: SomethingElse is not known" check-config "$(windows_path "$file")"
printf '<KpmConfiguration>\n<PkiAlert><CPUInterval>3</CPUInterval></PkiAlert>\n</KpmConfiguration>' >"$file"
expect 1 "line 1: The outermost element is KpmConfiguration" check-config "$(windows_path "$file")"
expect 1 "CPUInterval  *90 s  *default: missing" check-config "$(windows_path "$file")"

# level TEXT
level() {
  printf '<KPMConfiguration>\n<VarnexLog><Level>%s</Level></VarnexLog>\n</KPMConfiguration>' "$1" >"$file"
}
level 4
expect_json 0 'assert found["logLevel"]["inForce"] == 4 and found["logLevel"]["line"] == 2, found' \
  check-config --json "$(windows_path "$file")"
level 7
expect_json 1 'assert found["logLevel"]["inForce"] == 3 and found["logLevel"]["origin"] == "default", found
assert len(found["problems"]) == 1 and found["problems"][0]["line"] == 2, found' \
  check-config --json "$(windows_path "$file")"
level 0
expect 0 "writes no log" check-config "$(windows_path "$file")"

# counts DATE CPU
counts() {
  printf '<KPMConfiguration>\n<PkiAlertNum><Date>%s</Date><CPU>%s</CPU><PH>1</PH></PkiAlertNum>\n' "$@" >"$file"
  printf '</KPMConfiguration>\n' >>"$file"
}
counts "$today" 3
expect_json 0 'counts = found["alerts"]["counts"]
assert counts["CPU"] == {"today": 3, "limit": 5}, counts
assert counts["PH"]["today"] == 1 and counts["Disk"]["today"] == 0, counts' \
  check-config --json "$(windows_path "$file")"
counts "$today" 5
expect 0 "line 2: CPU: today's alerts have reached their limit" check-config "$(windows_path "$file")"
counts "$today" many
expect 1 'CPU: "many" is not a number' check-config "$(windows_path "$file")"
counts 2020-01-31 3
expect 0 "are of 2020-01-31" check-config "$(windows_path "$file")"
grep -q "^Alerts today, $today: CPU 0 of 5" "$folder/output" || fail "the counts of another day pass for today's"

printf '<KPMConfiguration>\n<PkiAlert>\n<CPUInterval>3</CPUInterval\n</KPMConfiguration>\n' >"$file"
expect 1 "^  line [34]: The file is no XML: ..*cannot load it" check-config "$(windows_path "$file")"
expect_json 1 'assert not found["loads"] and "policy" not in found and found["problems"][0]["line"] in (3, 4), found' \
  check-config --json "$(windows_path "$file")"
: >"$file"
expect 1 "The file is no XML" check-config "$(windows_path "$file")"

# A check leaves nothing behind: no changed file, and no log, which would lie in the root of the current drive.
readonly drive="${WINEPREFIX:-$(dirname "$wine_run")/../build/wine-prefix}/drive_c"
policy "<CPUInterval>abc</CPUInterval>"
cp "$file" "$folder/before.xml"
ls "$drive" >"$folder/drive_before"
(cd "$folder" && find . | sort) >"$folder/before"
ended=0
(cd "$drive" && varnexhost check-config "$(windows_path "$file")" >/dev/null) || ended=$?
[ "$ended" -eq 1 ] || fail "a check in another folder ended with $ended"
(cd "$folder" && find . | sort) | diff "$folder/before" - || fail "a check left something behind"
ls "$drive" | diff "$folder/drive_before" - || fail "a check wrote a log"
cmp "$file" "$folder/before.xml" || fail "a check changed the file"

# The shipped module says the same in its log.
policy "<CPUInterval>12abc</CPUInterval><CPUThreshold>4294967346</CPUThreshold><CPUSamplingAmount>-1</CPUSamplingAmount>
<MemoryInterval>7</MemoryInterval><MemoryThreshold>high</MemoryThreshold><DiskMaxAlertNum>-9</DiskMaxAlertNum>
<NetworkThreshold>0</NetworkThreshold><NetworkSamplingAmount> 3</NetworkSamplingAmount>"
cp "$file" "$bin/KpmCfg.xml"
varnexhost check-config "$(windows_path "$file")" --json >"$folder/checked.json" || true
expect 0 "The monitors have ended" watch --alerts all --seconds 1
python3 - "$folder/checked.json" "$logs/Varnex.log" <<'PYTHON' || fail "the module goes by other values"
import json, re, sys
policy = [value["inForce"] for value in json.load(open(sys.argv[1], encoding="utf-8"))["policy"]]
log = open(sys.argv[2], encoding="latin-1").read()
for i, resource in enumerate(("CPU", "Memory", "Disk", "Network")):
    begun = re.search(rf"Monitor {resource} \w+ thread begin: Interval\((-?\d+)\)S, Threshold\((-?\d+)[^)]*\), "
                      r"SamplingAmount InADay\((-?\d+)\), MaxAlertNum\((-?\d+)\)", log)
    assert begun, f"{resource} did not begin"
    assert [int(number) for number in begun.groups()] == policy[4 * i:4 * i + 4], (resource, begun.group(0), policy)
PYTHON

finish
