#!/usr/bin/env bash
# Runs one case of unit_config on a small disk of its own, which it mounts. usage: full_disk_test.sh WINE_RUN PROGRAM CASE
set -euo pipefail

readonly disk=$(mktemp -d)
clean_up() {
  umount -l "$disk" 2>/dev/null || true # lazily, because Wine may have it open for a moment longer
  rmdir "$disk"
}
trap clean_up EXIT
if ! refusal=$(mount -t tmpfs -o size=256k none "$disk" 2>&1); then
  echo "SKIPPED: a small disk cannot be mounted here, which takes root and the right to mount: $refusal"
  exit 77
fi
VARNEX_TEST_SMALL_DISK="Z:${disk//\//\\}" "$1" "$2" "$3"
