#!/usr/bin/env bash
# Runs a Windows program under Wine in another system locale: its language, and its ANSI code page.
# usage: in-locale.sh LOCALE PROGRAM.exe [ARGUMENTS...]
# Wine takes its locale from the environment of its first process, so each needs a server, and with it a prefix, of its
# own. The prefix shares the system files of the usual one and copies only its registry.
set -euo pipefail

locale=${1:?the locale is missing}
program=${2:?the program is missing}
shift 2
run=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/wine-run.sh
base=${WINEPREFIX:-$(dirname "$run")/../build/wine-prefix}
WINEPREFIX=$base "$run" cmd /c exit >/dev/null 2>&1 # makes it, if need be

prefix=$(mktemp -d)
cleanup() {
  WINEPREFIX=$prefix wineserver -k 2>/dev/null || true
  rm -rf "$prefix"
}
trap cleanup EXIT

mkdir "$prefix/dosdevices"
cp -p "$base"/*.reg "$base/.update-timestamp" "$base/.varnex-ready" "$prefix/"
ln -s "$(realpath "$base/drive_c")" "$prefix/dosdevices/c:"
ln -s "$(realpath "$base/drive_c")" "$prefix/drive_c"
ln -s / "$prefix/dosdevices/z:"
# Wine knows the locale, the host need not; the shell would complain.
env WINEPREFIX="$prefix" LC_ALL="$locale.UTF-8" "$run" "$program" "$@" 2>/dev/null
