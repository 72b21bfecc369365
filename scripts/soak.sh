#!/usr/bin/env bash
# Runs the reliability tests in their long form and shows their figures; docs/reliability.md tells what they mean.
# usage: scripts/soak.sh [ITEM]      (needs a build: scripts/build.sh)
# VARNEX_BUILD_DIR names another build directory than build/release.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=${VARNEX_BUILD_DIR:-build/release}
wanted=${1:-all}
export VARNEX_LONG=1
failed=()
found=no

# run_item ITEM PROGRAM [CATCH FILTER...]
run_item() {
  [ "$wanted" = all ] || [ "$wanted" = "$1" ] || return 0
  found=yes
  echo "== $1"
  scripts/wine-run.sh "$build/bin/$2.exe" "${@:3}" || failed+=("$1")
}

run_item faults reliability_faults
run_item kill reliability_kill
run_item contention reliability_contention
run_item log reliability_log

if [ "$found" = no ]; then
  echo "soak: there is no item '$wanted'; they are: $(grep -o '^run_item [a-z]*' "$0" | cut -d' ' -f2 | xargs)" >&2
  exit 2
fi
[ ${#failed[@]} -eq 0 ] || { echo "soak: failed: ${failed[*]}" >&2; exit 1; }
