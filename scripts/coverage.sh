#!/usr/bin/env bash
# Runs the tests on a module that counts what runs, and prints the lines and branches of src/ that did, by folder and in
# all. The counts by file and line: build/coverage/report. usage: scripts/coverage.sh [--report-only] [CTEST ARGUMENTS...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh --coverage
status=0
if [ "${1:-}" = --report-only ]; then
  shift
else
  # Counts of an earlier run may belong to other objects.
  find build/coverage -name '*.gcda' -delete 2>/dev/null || true
  # What reads the package, these pages or the tool's output runs nothing of src/ that the rest does not. A test that
  # compares the module's imports or size with what is shipped may fail here: the counting brings its own.
  scripts/test.sh --preset coverage -LE 'package|docs' "$@" || status=$?
fi

# Branches that only an exception takes are left out: the compiler makes one behind each call that might throw.
# Threads count without a lock, so that a few counts end up negative, which gcovr takes for an error.
mkdir -p build/coverage/report
gcovr --root . --filter 'src/' --gcov-executable x86_64-w64-mingw32-gcov-win32 \
  --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
  --json-summary build/coverage/report/summary.json --txt build/coverage/report/lines.txt \
  --html-details build/coverage/report/index.html build/coverage/src

python3 - build/coverage/report/summary.json <<'PYTHON'
import collections, json, sys

folders = collections.defaultdict(lambda: [0, 0, 0, 0])
for file in json.load(open(sys.argv[1]))["files"]:
    for folder in (file["filename"].split("/")[1], "all"):
        for i, key in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
            folders[folder][i] += file[key]


def percent(part, whole):
    return f"{100 * part / whole:6.1f} %  {part:5} of {whole:5}" if whole else f"{'-':>6}"


print(f"{'':10}  lines                     branches")
for folder in sorted(set(folders) - {"all"}) + ["all"]:
    lines, all_lines, branches, all_branches = folders[folder]
    print(f"{folder:10} {percent(lines, all_lines)}  {percent(branches, all_branches)}")
PYTHON
exit "$status"
