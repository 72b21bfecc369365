#!/usr/bin/env bash
# Runs one cross-built Windows program under Wine, in the prefix that belongs to this source tree.
# usage: scripts/wine-run.sh PROGRAM.exe [ARGUMENTS...]
# WINEPREFIX may name another prefix; it is made at the first use (about 20 seconds).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$root/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# No crash dialog, no .NET or HTML engine to be offered for installation.
export WINEDLLOVERRIDES="winedbg.exe=d;mscoree=d;mshtml=d;${WINEDLLOVERRIDES:-}"
# In a locale that knows ASCII only, Wine can make no file whose name needs more.
case "${LC_ALL:-${LC_CTYPE:-${LANG:-}}}" in
  *[Uu][Tt][Ff]*) ;;
  *) export LC_ALL=C.UTF-8 ;;
esac

if [ ! -e "$WINEPREFIX/.varnex-ready" ]; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    if [ ! -e "$WINEPREFIX/.varnex-ready" ]; then
      rm -f "$WINEPREFIX/.update-timestamp" # of a set-up that was cut off: it would count as done
      if ! wine wineboot --init >"$WINEPREFIX.log" 2>&1; then
        echo "wine-run: Wine could not set up its prefix in $WINEPREFIX; its words are in $WINEPREFIX.log" >&2
        exit 1
      fi
      # The services of a first start are not all well; the next program begins them anew. Left alone, each use of COM
      # would wait 20 seconds for one of them. They end by themselves, unless a server was there that stays.
      timeout 30 wineserver -w || wineserver -k || true
      touch "$WINEPREFIX/.varnex-ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi

exec wine "$@"
