#!/usr/bin/env bash
# chart: a made-up day becomes a page, which a browser shows.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$folder"
python3 "$here/chart_day.py" .

# browse ARGUMENTS... PAGE: headless, without a word to any network; its own words go to browser.txt.
browse() {
  timeout 60 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
    --user-data-dir="$folder/profile" --enable-logging=stderr "${@:1:$#-1}" "file://$folder/${*: -1}" 2>browser.txt
}

# look WHAT ARGUMENTS...
look() {
  python3 "$here/chart_page.py" "$@" || fail "chart_page.py $*"
}

# expect_page CODE_0_PATTERN EXPRESSION ARGUMENTS...: a page is made, and the expression holds for its data.
expect_page() {
  local pattern=$1 expression=$2
  shift 2
  expect 0 "$pattern" chart "$@" -o other.html
  look data other.html "$expression"
}

# The day, in a browser.
expect 0 '^Wrote day.html' chart CPUUtil.log MemoryUtil.log DiskUtil.log NetworkUtil.log report.xml \
  --alerts LocalAlt.dat -o day.html --title '<Day> & "night"'
look file day.html
look data day.html '"&lt;Day&gt; &amp; &quot;night&quot;</h1>" in page.text'
browse --window-size=1280,1000 --dump-dom day.html >dom.html || fail "the browser did not show the page"
! grep CONSOLE browser.txt || fail "the browser complains about the page"
look dom dom.html processors series=6 points=5512 threshold=85 marks=3 gaps=2
look dom dom.html memory series=4 points=2742 threshold=85 marks=1 gaps=2
look dom dom.html disks series=3 points=2761 threshold=50 marks=1 gaps=1
look dom dom.html network series=4 points=2762 threshold=60 marks=1 gaps=1
grep -q 'href="#processors-alert-3"[^>]*title="20:30:30, CPU 95 %, threshold 85 %"' dom.html ||
  fail "an alert is not marked with its time and text"
grep -q '<th scope="row">CPU1</th>.*<td>1370</td><td>10</td>' day.html || fail "the failed samples are not counted"
look data day.html 'panel["tables"][0]["series"][1]["values"].count(None) == 1' # the line is broken there
grep -q 'Nothing was recorded from 11:59:07 to 13:00:07' day.html || fail "the missing minutes are not told"
for scheme in light dark; do
  dark=$([ "$scheme" = light ] || echo --blink-settings=preferredColorScheme=0)
  browse --window-size=400,900 $dark --screenshot="$folder/$scheme.png" day.html || fail "no $scheme picture"
  look picture "$scheme.png" "$scheme"
done

# Thresholds, alerts and days.
sed 's|<CPUThreshold>[^<]*<|<CPUThreshold>70<|' "$configuration" >KpmCfg.xml
expect_page 'Wrote' 'panel["threshold"] == 70 and "70 % (from the configuration)" in page.text' CPUUtil.log --config KpmCfg.xml
sed 's|<CPUThreshold>[^<]*<|<CPUThreshold>170<|' "$configuration" >KpmCfg.xml
expect_page 'Wrote' 'panel["threshold"] is None and "170 % (from the" in page.text' CPUUtil.log --config KpmCfg.xml
printf '[{"type": 1, "value": 90, "threshold": 85, "text": "2026-01-31 01:00:00, HOST"}, 7]' >alerts.json
expect_page '1 entry of alerts.json' 'panel["alerts"][0]["text"] == "01:00:00, CPU 90 %, threshold 85 %, HOST"' \
  CPUUtil.log --alerts alerts.json
expect_page 'Wrote' 'panel["unit"] == "Mbit/s" and panel["threshold"] is None' NetworkUtil.log
expect_page 'Wrote' '[one["name"] for one in panel["tables"][0]["series"]] == ["Mean of 12", "Highest of 12"]' Many.log
expect 1 '2 days, 2026-01-31 to 2026-02-01.*--day' chart CPUUtil.log OtherDay.log
expect_page '6 alerts of other days left out' 'len(panel["tables"]) == 1 and panel["gaps"] == [[43147, 46807]]' \
  CPUUtil.log OtherDay.log --day 2026-02-01 --alerts LocalAlt.dat
expect 1 'nothing of 2026-03-01' chart CPUUtil.log --day 2026-03-01

# What is wrong with a file is said, and the page of before stays.
printf 'the page of before' >kept.html
expect_refusal() {
  local pattern=$1
  shift
  expect 1 "$pattern" chart "$@" -o kept.html
  [ "$(cat kept.html)" = 'the page of before' ] || fail "a run that failed changed the page: $*"
}
printf 'Time\t\tCPU1\r\n' >begun.log
: >empty.log
printf '2026-01-31 10:00:00\t5\r\n' >headless.log
printf 'Time\t\tCP' >torn_header.log
printf '<ServerPKIInformation><Time>now</Time></ServerPKIInformation>' >bad_report.xml
expect_refusal 'missing.log cannot be opened' missing.log
expect_refusal 'empty.log is empty' CPUUtil.log empty.log
expect_refusal 'no samples' begun.log
expect_refusal 'no header line' headless.log
expect_refusal 'torn or names no resource' torn_header.log
expect_refusal 'neither' LocalAlt.dat
expect_refusal '--config' KpmCfg.xml
expect_refusal 'no valid Time' bad_report.xml
expect_refusal 'no alerts' CPUUtil.log --alerts KpmCfg.xml
expect_refusal 'no configuration' CPUUtil.log --config CPUUtil.log
printf 'Time\t\tCPU1\r\n2026-01-31 10:00:00\t5\r\n2026-01-31 10:01:00\t2026-01-31 10:02:00\t7\r\n2026-01-31 10:03:00\t12' >torn.log
printf 'Time\t\tCPU1\r\n2026-01-31 02:59:00\t9223372036854775807\r\n2026-01-31 02:00:00\t-2147481643\r\n' >odd.log
expect_page 'clock went back from 02:59:00 to 02:00:00' '"<td>1</td><td>1</td>" in page.text' odd.log
expect_page '1 line of torn.log' 'panel["tables"][0]["times"] == [36000]' torn.log
grep -q 'last line of torn.log is torn' "$folder/output" || fail "a torn last line is not told"

# What the documentation shows.
grep '^varnexhost chart' "$here/../../docs/chart.md" >shown.txt
while read -r line; do
  eval "$line" >output.txt 2>&1 </dev/null || { fail "$line"; cat output.txt; }
done <shown.txt
[ "$(wc -l <shown.txt)" -eq 2 ] || fail "the documentation does not show two commands"

# Where the page goes.
cp CPUUtil.log before.log
expect 1 'one of the files to be read' chart CPUUtil.log -o "$(windows_path "$folder/CPUUtil.log")"
cmp CPUUtil.log before.log || fail "a page was written over its input"
expect 1 'cannot be made' chart CPUUtil.log -o 'no such folder\page.html'
expect 0 '^Wrote kept.html' chart CPUUtil.log -o kept.html
look file kept.html
expect 0 '^Wrote varnex-chart-2026-01-31.html' chart CPUUtil.log
! ls | grep -q 'tmp$' || fail "a file on the way to the page stayed"
expect 2 'FILE is required' chart
expect 2 'not a day' chart CPUUtil.log --day yesterday

finish
