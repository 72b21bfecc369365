# Sourced by the tests of this folder, each of which is called alike:
# usage: NAME_test.sh WINE_RUN VARNEXHOST VARNEX_DLL PDH_DLL CONFIGURATION REPORT_SCHEMA [REPORT_SERVER]
# Lays out a product in a folder of its own and counts the failures; each test ends with `finish`.
set -euo pipefail

readonly wine_run=$1 configuration=$5 schema=$6 report_server=${7:-}
readonly folder=$(mktemp -d)
readonly bin="$folder/A/B/bin" logs="$folder/A/B/Logs"
watch=
servers=()
end_servers() {
  local server
  for server in "${servers[@]}"; do
    kill "$server" 2>/dev/null || true
    wait "$server" 2>/dev/null || true
  done
  servers=()
}
clean_up() {
  end_servers
  [ -z "$watch" ] || kill "$watch" 2>/dev/null || true
  rm -rf "$folder"
}
trap clean_up EXIT
mkdir -p "$bin" "$logs"
cp "$2" "$3" "$4" "$5" "$bin/"
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="pdh=n,b"
failures=0

varnexhost() {
  "$wine_run" "$bin/varnexhost.exe" "$@"
}

# windows_path PATH: the same file in a Windows program's words.
windows_path() {
  printf 'Z:%s' "${1//\//\\}"
}

# fail WORDS...: counted; the test goes on.
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

finish() {
  [ "$failures" -eq 0 ]
}

# expect CODE PATTERN ARGUMENTS...: varnexhost ends with the code, and its output or errors have the pattern.
expect() {
  local code=$1 pattern=$2 ended=0
  shift 2
  varnexhost "$@" >"$folder/output" 2>&1 || ended=$?
  if [ "$ended" -ne "$code" ] || ! grep -q -e "$pattern" "$folder/output"; then
    fail "varnexhost $*: ended with $ended, expected $code and '$pattern' in:"
    cat "$folder/output"
  fi
}

# expect_json CODE PYTHON ARGUMENTS...: varnexhost ends with the code, and its output is JSON of which the statements,
# which see it as `found`, hold.
expect_json() {
  local code=$1 statements=$2 ended=0
  shift 2
  varnexhost "$@" >"$folder/output" 2>"$folder/errors" || ended=$?
  if [ "$ended" -ne "$code" ] || ! python3 - "$folder/output" >"$folder/check" 2>&1 <<PYTHON; then
import json, sys
found = json.load(open(sys.argv[1], encoding="utf-8"))
$statements
PYTHON
    fail "varnexhost $*: ended with $ended, expected $code; checked by '$statements':"
    cat "$folder/output" "$folder/errors" "$folder/check"
  fi
}

# begin_report_server ARGUMENTS...: in the background, until it is ready.
begin_report_server() {
  : >"$folder/server"
  "$wine_run" "$report_server" "$@" >"$folder/server" 2>&1 &
  servers+=($!)
  local turn
  for turn in $(seq 100); do
    grep -q ready "$folder/server" && return
    sleep 0.1
  done
  fail "the report server did not begin: $(cat "$folder/server")"
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
  fail "watch $* did not begin:"
  cat "$folder/watch"
}

end_watch() {
  local ended=0
  wait "$watch" || ended=$?
  watch=
  if [ "$ended" -ne 0 ]; then
    fail "the watch ended with $ended:"
    cat "$folder/watch"
  fi
}
