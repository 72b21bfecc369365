#!/usr/bin/env bash
# varnexhost as a whole: its words, its exit codes, and two of its processes at once.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# expect_report_as FORMAT_OPTION CHECK...: the report is printed and the checking program takes it.
expect_report_as() {
  local option=$1
  shift
  : >"$folder/check"
  if ! varnexhost report "$option" --timeout 20 >"$folder/report" || ! "$@" "$folder/report" >"$folder/check" 2>&1; then
    fail "report $option, checked by $1:"
    cat "$folder/report" "$folder/check"
  fi
}

expect 0 "Exit codes:" --help
expect 0 "^varnexhost [0-9]" --version
expect 2 "subcommand" # none is named
expect 2 "subcommand" nonsense
expect 2 "excludes" report --xml --json
expect 2 "span" report --span 0
expect 2 "alerts" watch --alerts weather
expect 1 "no .*Varnex.dll" watch --module-dir 'C:\no such folder'
expect 1 "Nobody answers" report

for command in watch alerts report check-config print-config collect; do
  expect 0 "Usage: varnexhost $command" "$command" --help
  expect 0 "  2  wrong usage" "$command" --help
done

begin_watch --seconds 7 # without reporting
expect 1 "No answer within 3 seconds" report --timeout 3
grep -q "Waiting for the answer (2 s)" "$folder/output" || fail "three seconds of waiting went by without a word"
expect 1 "No answer within 1 seconds" report --timeout 1
grep -q "Waiting" "$folder/output" && fail "one second of waiting needs no words"
end_watch

begin_watch --report --seconds 14
expect 1 "there may be only one at a time" watch --seconds 1
sleep 3 # the first samples
expect 0 "^Physical memory  *[1-9][0-9]* %" report --span 1 --min 1
expect_report_as --json python3 -m json.tool
expect_report_as --xml xmllint --noout --schema "$schema"
end_watch

finish
