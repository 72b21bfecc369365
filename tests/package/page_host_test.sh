#!/usr/bin/env bash
# The code blocks of docs/package.md, run as they stand there. usage: page_host_test.sh FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# block NAME: the text of the page's code block with that name.
block() {
  sed -n "/^\`\`\`[a-z]* ${1//./\\.}\$/,/^\`\`\`\$/p" "$SDK/docs/package.md" | sed '1d;$d' | grep '' ||
    { echo "FAILED: docs/package.md has no block $1" >&2; exit 1; }
}

# expect_alert PROGRAM: it fetches the alert that waits.
expect_alert() {
  lay_out_agent "$1 agent" "$2"
  run_windows "$1 agent/bin/host.exe" >"$1 output" || fail "the host built $1 ended with $?"
  grep -q '^2038-01-19 03:14:07, .*D1.*: type 3, 72 reached 50$' "$1 output" ||
    fail "the host built $1 fetched no alert: $(cat "$1 output")"
}

begin_in "$1"
export SDK
block host.c >host.c
block CMakeLists.txt >CMakeLists.txt

quietly bash -euc "$(block with-cmake)"
cmp build/Varnex.dll "$SDK/bin/Varnex.dll" || fail "the DLL was not copied beside the program"
expect_alert with-cmake build/host.exe

quietly bash -euc "$(block with-mingw)"
expect_alert with-mingw host.exe

# Header and host hold under the strictest reading of C99.
quietly x86_64-w64-mingw32-gcc-win32 -std=c99 -Wall -Wextra -pedantic-errors -Werror -fsyntax-only -I"$SDK/include" host.c
finish
