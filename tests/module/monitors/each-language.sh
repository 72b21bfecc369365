#!/usr/bin/env bash
# Runs one test case in a real process of each system language but English, in which all other tests run.
# usage: each-language.sh PROGRAM.exe
# Wine takes its system language from the environment of its first process, so each language needs a server, and with it
# a prefix, of its own. The prefixes share the system files of the usual one and copy only its registry.
set -euo pipefail

program=${1:?the test program is missing}
run=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)/scripts/wine-run.sh
base=${WINEPREFIX:-$(dirname "$run")/../build/wine-prefix}
export WINEPREFIX=$base
"$run" cmd /c exit >/dev/null 2>&1 # makes it, if need be

work=$(mktemp -d)
cleanup() {
  for prefix in "$work"/*/; do
    WINEPREFIX=${prefix%/} wineserver -k 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT

failed=0
for locale in de_CH es_ES fr_FR it_IT pt_BR; do
  prefix=$work/$locale
  mkdir -p "$prefix/dosdevices"
  cp -p "$base"/*.reg "$base/.update-timestamp" "$base/.varnex-ready" "$prefix/"
  ln -s "$(realpath "$base/drive_c")" "$prefix/dosdevices/c:"
  ln -s "$(realpath "$base/drive_c")" "$prefix/drive_c"
  ln -s / "$prefix/dosdevices/z:"
  # Wine knows the locale, the host need not; the shell would complain.
  if ! env WINEPREFIX="$prefix" LC_ALL="$locale.UTF-8" VARNEX_LANGUAGE="${locale%%_*}" \
    "$run" "$program" "real language:*" 2>/dev/null; then
    echo "failed in $locale" >&2
    failed=1
  fi
done
exit "$failed"
