#!/usr/bin/env bash
# Configures and builds one preset, quietly when all is well. usage: scripts/build.sh [PRESET] [TARGET...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset="${1:-release}"
shift || true

scripts/setup.sh
mkdir -p build
log="build/$preset.log"
run() {
  if ! "$@" >"$log" 2>&1; then
    tail -n 60 "$log" >&2
    echo "build: '$*' failed; everything it said is in $log" >&2
    exit 1
  fi
}
run cmake --preset "$preset"
run cmake --build --preset "$preset" ${1:+--target "$@"}
