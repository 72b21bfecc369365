#!/usr/bin/env bash
# alerts: fetches the stored alerts and prints them.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly store="$bin/LocalAlt.dat" now=$(date +%s)

# store_alerts TYPE;THRESHOLD;VALUE;RESOURCE...: the store holds these, raised now.
store_alerts() {
  local alert type threshold value resource
  : >"$store"
  for alert in "$@"; do
    IFS=';' read -r type threshold value resource <<<"$alert"
    printf '%s;%s;%s;%s(now);%s;\r\n' "$type" "$threshold" "$value" "$now" "$resource" >>"$store"
  done
}

# expect_left COUNT: so many alerts are still stored.
expect_left() {
  local left
  left=$(wc -l <"$store")
  [ "$left" -eq "$1" ] || fail "the store holds $left alerts, expected $1"
}

expect 2 "max" alerts --max 0
expect 2 "max" alerts --max many
expect 2 "extra" alerts extra
expect 1 "no .*Varnex.dll" alerts --module-dir 'C:\no such folder'

expect 0 "^None is stored" alerts
expect_json 0 "assert found == []" alerts --json

store_alerts '1;85;91;' '2;85;92;PH' '2;85;93;PF' '3;50;72;0 C:' '4;60;61;Adapter'
expect 0 "| CPU 91 %, threshold 85 %" alerts --max 1
grep -q "| memory 92 %, threshold 85 %" "$folder/output" || fail "the one more that came is not printed"
grep -q "^Fetched: 2" "$folder/output" || fail "two alerts were fetched, but that is not what is said"
expect_left 3
expect_json 0 '
assert [alert["type"] for alert in found] == [5, 3, 4], found
assert found[1]["kind"] == "disk" and found[1]["value"] == 72 and found[1]["threshold"] == 50, found
assert found[1]["unit"] == "MB/s" and found[1]["text"].endswith(", 0 C:"), found
assert found[0]["kind"] == "paging file" and found[0]["unit"] == "%", found' alerts --json
expect_left 0

# More than one fetch.
mapfile -t many < <(for value in $(seq 100); do echo "1;85;$value;"; done)
store_alerts "${many[@]}"
expect_json 0 'assert [alert["value"] for alert in found] == list(range(1, 101)), found' alerts --json
expect_left 0

# An alert is not taken when it cannot be shown.
store_alerts '1;85;91;' '1;85;92;'
for form in "" --json; do
  ended=0
  varnexhost alerts $form >/dev/full 2>"$folder/errors" || ended=$?
  [ "$ended" -eq 1 ] || fail "alerts $form ended with $ended though nothing could be printed"
  expect_left 2
done

# A store that cannot be rewritten is not an empty one.
rm -f "$bin/LocalAlt_Backup.dat"
mkdir "$bin/LocalAlt_Backup.dat"
expect 1 "they are still there" alerts
grep -q "None is stored" "$folder/output" && fail "alerts that could not be taken pass for none"
expect 1 "they are still there" alerts --json
expect_left 2
rmdir "$bin/LocalAlt_Backup.dat"
expect 0 "^Fetched: 2" alerts

begin_watch --seconds 4
expect 1 "there may be only one at a time" alerts
end_watch

finish
