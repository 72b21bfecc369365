#!/usr/bin/env bash
# usage: varnexhost_test.sh WINE_RUN VARNEXHOST VARNEX_DLL PDH_DLL CONFIGURATION REPORT_SCHEMA
set -euo pipefail

readonly wine_run=$1 schema=$6
readonly folder=$(mktemp -d)
readonly bin="$folder/A/B/bin"
watch=
clean_up() {
  [ -z "$watch" ] || kill "$watch" 2>/dev/null || true
  rm -rf "$folder"
}
trap clean_up EXIT
mkdir -p "$bin" "$folder/A/B/Logs"
cp "$2" "$3" "$4" "$5" "$bin/"
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="pdh=n,b"
failures=0

varnexhost() {
  "$wine_run" "$bin/varnexhost.exe" "$@"
}

# expect CODE PATTERN ARGUMENTS...: varnexhost ends with the code, and its output or errors have the pattern.
expect() {
  local code=$1 pattern=$2 ended=0
  shift 2
  varnexhost "$@" >"$folder/output" 2>&1 || ended=$?
  if [ "$ended" -ne "$code" ] || ! grep -q "$pattern" "$folder/output"; then
    echo "FAILED: varnexhost $*: ended with $ended, expected $code and '$pattern' in:"
    cat "$folder/output"
    failures=$((failures + 1))
  fi
}

# expect_report_as FORMAT_OPTION CHECK...: the report is printed and the checking program takes it.
expect_report_as() {
  local option=$1
  shift
  : >"$folder/check"
  if ! varnexhost report "$option" --timeout 20 >"$folder/report" || ! "$@" "$folder/report" >"$folder/check" 2>&1; then
    echo "FAILED: report $option, checked by $1:"
    cat "$folder/report" "$folder/check"
    failures=$((failures + 1))
  fi
}

# begin_watch ARGUMENTS...: in the background, until it has said its first line.
begin_watch() {
  : >"$folder/watch" # else the words of the watch before could be taken for this one's
  varnexhost watch "$@" >>"$folder/watch" 2>&1 &
  watch=$!
  local turn
  for turn in $(seq 100); do
    grep -q watching "$folder/watch" && return
    sleep 0.1
  done
  echo "FAILED: watch $* did not begin:"
  cat "$folder/watch"
  failures=$((failures + 1))
}

end_watch() {
  local ended=0
  wait "$watch" || ended=$?
  watch=
  if [ "$ended" -ne 0 ]; then
    echo "FAILED: the watch ended with $ended:"
    cat "$folder/watch"
    failures=$((failures + 1))
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

begin_watch --seconds 5 # without reporting
expect 1 "No answer within 1 seconds" report --timeout 1
end_watch

begin_watch --report --seconds 14
expect 1 "there may be only one at a time" watch --seconds 1
sleep 3 # the first samples
expect 0 "^Physical memory  *[1-9][0-9]* %" report --span 1 --min 1
expect_report_as --json python3 -m json.tool
expect_report_as --xml xmllint --noout --schema "$schema"
end_watch

[ "$failures" -eq 0 ]
