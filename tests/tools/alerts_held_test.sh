#!/usr/bin/env bash
# alerts and watch, while another process has the alert file's mutex: they wait, say so, and no alert is lost or taken
# before its turn. With VARNEX_LONG=1 also what comes of one who never gives it back.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly store="$bin/LocalAlt.dat" held="$folder/held" now=$(date +%s)
readonly notice="varnexhost: Waiting for the alert file, which another process may hold ([0-9]* s)"

# hold_alerts: another process has the mutex from here on, until let_go; three alerts are stored.
hold_alerts() {
  printf '1;85;91;%s(now);;\r\n' "$now" "$now" "$now" >"$store"
  cp "$store" "$folder/stored"
  : >"$held"
  begin_report_server alerts "$(windows_path "$held")"
}

# let_go FILE: the mutex is given back when the notice stands in the file; until then the store has been left alone.
let_go() {
  local turn
  for turn in $(seq 300); do
    ! grep -q "$notice" "$1" || break
    sleep 0.1
  done
  cmp -s "$store" "$folder/stored" && ! grep -q "CPU 91" "$folder/output" "$folder/watch" && : >"$folder/in turn"
  rm "$held"
}

# expect_waited FILE WHO: the notice stands in the file, and the alerts came out behind it.
expect_waited() {
  grep -q "$notice" "$1" || fail "$2 does not say that it waits: $(cat "$1")"
  [ -e "$folder/in turn" ] || fail "$2 took alerts while another process had the mutex"
  [ ! -s "$store" ] || fail "$2 left alerts in the store: $(cat "$store")"
  rm -f "$folder/in turn"
}

: >"$folder/watch"
: >"$folder/output"
: >"$folder/errors"
hold_alerts
let_go "$folder/errors" &
expect_json 0 "assert [alert['value'] for alert in found] == [91, 91, 91], found" alerts --json
expect_waited "$folder/errors" alerts

: >"$folder/output"
hold_alerts
let_go "$folder/watch" &
begin_watch --seconds 1
end_watch
expect_waited "$folder/watch" watch
[ "$(grep -c "| CPU 91 %, threshold 85 %" "$folder/watch")" -eq 3 ] || fail "the watch shows other alerts: $(cat "$folder/watch")"
grep -q "^Alerts fetched: 3, CPU 3" "$folder/watch" || fail "the watch counts other alerts: $(cat "$folder/watch")"

if [ "${VARNEX_LONG:-}" = 1 ]; then
  hold_alerts
  SECONDS=0
  expect 0 "^Fetched: 3" alerts
  [ "$SECONDS" -ge 60 ] && [ "$SECONDS" -lt 90 ] || fail "the wait took $SECONDS s, expected a minute"
  [ -e "$held" ] && kill -0 "${servers[-1]}" || fail "the mutex was given back after all"
  [ "$(grep -c "$notice" "$folder/output")" -ge 6 ] || fail "it does not go on saying that it waits: $(cat "$folder/output")"
fi

finish
