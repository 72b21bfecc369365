#!/usr/bin/env bash
# Runs one test case in a real process of each system language but English, in which all other tests run.
# usage: each-language.sh PROGRAM.exe
set -euo pipefail

program=${1:?the test program is missing}
run=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../support" && pwd)/in-locale.sh

failed=0
for locale in de_CH es_ES fr_FR it_IT pt_BR; do
  if ! VARNEX_LANGUAGE="${locale%%_*}" "$run" "$locale" "$program" "real language:*"; then
    echo "failed in $locale" >&2
    failed=1
  fi
done
exit "$failed"
