# What the package's tests share; read by each of them.
# Given by CTest: SDK, the unpacked package; WINE_RUN, the script that runs a Windows program.
set -euo pipefail
readonly tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
export WINEDEBUG="${WINEDEBUG:--all}"
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# quietly COMMAND...: its words are shown only when it fails, and then the test ends.
quietly() {
  local words
  if ! words=$("$@" 2>&1); then
    echo "FAILED: $*"
    echo "$words"
    exit 1
  fi
}

# same WHAT EXPECTED FOUND
same() {
  [ "$2" = "$3" ] || fail "$1:
expected: $2
found:    $3"
}

finish() {
  [ "$failures" -eq 0 ]
}

# tool NAME: one of LLVM's, as Debian names it, with its version or without.
tool() {
  command -v "$1-14" || command -v "$1-19" || command -v "$1" || { echo "FAILED: $1 is not installed" >&2; exit 1; }
}

# begin_in FOLDER: an empty working folder.
begin_in() {
  rm -rf "$1"
  mkdir -p "$1"
  cd "$1"
}

# lay_out_agent FOLDER PROGRAM: the program and the module as they are installed, and one alert that waits.
lay_out_agent() {
  mkdir -p "$1/bin" "$1/Logs"
  cp "$2" "$SDK/bin/Varnex.dll" "$SDK/examples/KpmCfg.xml" "$1/bin/"
  printf '3;50;72;2147483647(2038-01-19 03:14:07);D1;\r\n' >"$1/bin/LocalAlt.dat"
}

# run_windows PROGRAM: its output, with the line ends of this machine.
run_windows() {
  local ended=0
  "$WINE_RUN" "$1" >windows-output || ended=$?
  tr -d '\r' <windows-output
  return "$ended"
}

# expect_linked_with LIBRARY TARGET: in the build folder out. Each linker takes the other one's library too, so that a
# program which runs does not tell.
expect_linked_with() {
  local command
  command=$(ninja -C out -t commands "$2" | tail -n 1)
  [[ "$command" == *"$SDK/lib/$1"* ]] || fail "CMake did not take lib/$1: $command"
}

# imports_of BINARY: the libraries that it needs, one a line.
imports_of() {
  x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^\tDLL Name: //p' | LC_ALL=C sort -f
}
