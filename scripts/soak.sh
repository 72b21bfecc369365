#!/usr/bin/env bash
# Runs the reliability tests in their long form and shows their figures; docs/reliability.md tells what they mean.
# usage: scripts/soak.sh [ITEM]      (needs a build: scripts/build.sh)
# VARNEX_SOAK_DAYS=N makes the soak live N days instead of 30.
# VARNEX_BUILD_DIR names another build directory than build/release.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=${VARNEX_BUILD_DIR:-build/release}
wanted=${1:-all}
export VARNEX_LONG=1
failed=()
found=no

# run_item ITEM PROGRAM
# Each test case in a process of its own: the module finds the file of its configuration once in a process.
run_item() {
  [ "$wanted" = all ] || [ "$wanted" = "$1" ] || return 0
  found=yes
  echo "== $1"
  local program="$build/bin/$2.exe" name names
  # The number of tests is the list's exit code.
  mapfile -t names < <(scripts/wine-run.sh "$program" --list-test-names-only | tr -d '\r' | grep -v '^child: ')
  [ ${#names[@]} -gt 0 ] || failed+=("$1")
  for name in "${names[@]}"; do
    scripts/wine-run.sh "$program" "${name//,/\\,}" </dev/null || failed+=("$1: $name")
  done
}

run_item faults reliability_faults
run_item kill reliability_kill
run_item kill reliability_kill_module
run_item contention reliability_contention
run_item log reliability_log
run_item hostile reliability_hostile
run_item time reliability_time
run_item security reliability_security
run_item soak reliability_soak
run_item hour reliability_hour

if [ "$found" = no ]; then
  echo "soak: there is no item '$wanted'; they are: $(grep -o '^run_item [a-z]*' "$0" | cut -d' ' -f2 | uniq | xargs)" >&2
  exit 2
fi
[ ${#failed[@]} -eq 0 ] || { echo "soak: failed: ${failed[*]}" >&2; exit 1; }
