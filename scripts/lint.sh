#!/usr/bin/env bash
# The layout of all sources; then, over src/ and tools/, clang as a second compiler with its analysis of what each lock
# guards, cppcheck, and clang-tidy. usage: scripts/lint.sh [FILE...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh --lint

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

files=("$@")
if [ $# -eq 0 ]; then
  # The public header is laid out by hand: clang-format takes its extern "C" for a block to indent.
  git ls-files '*.cpp' '*.h' '*.c' | grep -v '^third_party/\|^include/' | xargs clang-format --dry-run -Werror ||
    { echo "lint: clang-format -i settles these" >&2; exit 1; }
  mapfile -t files < <(find src tools -name '*.cpp' | sort)
fi

# The tools' libraries, apart from this system's other headers.
mkdir "$work/libraries"
ln -s /usr/include/CLI /usr/include/nlohmann "$work/libraries/"
gcc_headers=$(dirname "$(x86_64-w64-mingw32-g++-win32 -print-libgcc-file-name)")/include/c++
definitions=(-DWIN32_LEAN_AND_MEAN -DNOMINMAX -D_WIN32_WINNT=0x0601 -DUNICODE -D_UNICODE -DVARNEX_NO_DLLIMPORT)
flags=(--target=x86_64-w64-mingw32 -std=c++17
       -isystem "$gcc_headers" -isystem "$gcc_headers/x86_64-w64-mingw32"
       -isystem "$work/libraries" -Isrc -Iinclude -Itools/varnexhost -Itools/winepdh
       "${definitions[@]}" '-DVARNEX_VERSION="0"'
       -Wall -Wextra -Wthread-safety -Wthread-safety-beta)

# each_file COMMAND...: runs it for every file, as many at a time as there are processors.
each_file() {
  printf '%s\0' "${files[@]}" | xargs -0 -P "$(nproc)" -I '{}' "$@"
}

complain() {
  grep -v 'warnings\? generated\|^Suppressed\|^Use -header-filter' "$work/log" >&2 || true
  echo "lint: $1 has something to say" >&2
  exit 1
}

each_file clang++ "${flags[@]}" -Werror -fsyntax-only '{}' >"$work/log" 2>&1 || complain "clang as a second compiler"
echo "lint: clang is content"

# Each suppression has its reason in the file.
cppcheck --quiet --error-exitcode=1 --enable=warning,style,performance,portability --inconclusive --inline-suppr \
  --std=c++17 --language=c++ --platform=win64 -D_WIN32 -Isrc -Iinclude "${definitions[@]}" \
  --suppressions-list=.cppcheck --template='{file}:{line}: {id}: {message}' "${files[@]}" >"$work/log" 2>&1 ||
  complain "cppcheck"
echo "lint: cppcheck is content"

status=0
each_file clang-tidy --quiet '{}' -- "${flags[@]}" >"$work/log" 2>&1 || status=$?
# It exits 0 where it could not even find a header: look for that, too.
if [ "$status" -ne 0 ] || grep -q 'compiler error\|\[clang-diagnostic-error\]' "$work/log"; then
  complain "clang-tidy"
fi
echo "lint: clang-tidy is content"
