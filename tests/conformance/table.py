#!/usr/bin/env python3
"""The table of docs/testing.md, from a run of the conformance tests.

usage: table.py check|update SOURCE_DIR BUILD_DIR [RECORD]

`update` writes the column of the system that ran; the other systems' columns stay as they were seen. `check` fails when
that would change the page. RECORD is the output of a run somewhere else, of the whole program.
"""
import pathlib
import re
import subprocess
import sys

MODE, SOURCE, BUILD = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
PAGE = SOURCE / "docs/testing.md"
BEGIN, END = "<!-- conformance: begin -->\n", "<!-- conformance: end -->"
SYSTEMS = ["Windows", "Wine 8", "Wine 10"]
SUBJECTS = ["counters", "document", "WMI", "interface table", "registry", "files", "named objects", "threads",
            "run-time library", "time", "dumps"]
NOT_SEEN = "not seen yet"


def run():
    """The whole program in one process; its end tells whether all passed."""
    result = subprocess.run([SOURCE / "scripts/wine-run.sh", BUILD / "bin/conformance.exe"], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if result.returncode != 0:
        sys.exit("the conformance tests did not pass:\n" + result.stdout.decode(errors="replace")[-4000:])
    return result.stdout


def code(text):
    return f"`{text}`" if text else ""


def documented(answer, page):
    if "/" not in page:
        return " ".join(filter(None, [code(answer) or "unknown", f"({page})" if page else ""]))
    link = f"https://learn.microsoft.com/en-us/{page}"
    return f"[{code(answer)}]({link})" if answer else f"unknown ([page]({link}))"


def as_root(cell):
    return cell.endswith("(as root)`")


def scripted(test):
    """The test that scripts Windows' answer must be there."""
    name = test.partition(": ")[2]
    if not any(f'TEST_CASE("{name}"' in p.read_text() for p in SOURCE.glob("tests/*/**/*.cpp")):
        sys.exit(f"there is no test {test}")
    return f"Windows' answer is scripted by `{test}`"


def former_cells(text):
    """What the page tells of each check: {check: {system: cell}}."""
    cells = {}
    for line in text.splitlines():
        columns = [c.strip() for c in re.split(r"(?<!\\)\|", line)[1:-1]]
        if len(columns) == 3 + len(SYSTEMS):
            cells[columns[0]] = dict(zip(SYSTEMS, columns[2:]))
    return cells


record = pathlib.Path(sys.argv[4]).read_bytes() if len(sys.argv) > 4 else run()
page = PAGE.read_text()
former = former_cells(page[page.index(BEGIN):page.index(END)])
rows, unknown = [], 0
for line in record.decode(errors="replace").replace("\r", "").splitlines():
    if not line.startswith("SEEN\t"):
        continue
    _, name, windows, where, system, seen, fakes, test = line.split("\t")
    cell = "=" if seen == windows else code(seen)
    cells = former.get(name, {})
    if not (cells.get(system, "") != cell and "=" in (cell, cells.get(system)) and as_root(cell + cells.get(system, ""))):
        cells[system] = cell
    unknown += not windows
    notes = "; ".join(filter(None, [fakes, scripted(test) if test else ""]))
    rows.append([name, documented(windows, where)] + [cells.get(s) or NOT_SEEN for s in SYSTEMS] + [notes])
rows.sort(key=lambda row: SUBJECTS.index(row[0].partition(":")[0]))

lines = [f"{len(rows)} checks; of {unknown} Windows' answer is not known from its documentation.", "",
         "| check | Windows documents | " + " | ".join(SYSTEMS) + " | fakes that answer the same |",
         "|---|---|" + "---|" * len(SYSTEMS) + "---|"]
lines += ["| " + " | ".join(c.replace("|", "\\|") for c in row) + " |" for row in rows]
table = "\n".join(lines) + "\n"
new = page[:page.index(BEGIN) + len(BEGIN)] + table + page[page.index(END):]
if MODE == "update":
    PAGE.write_text(new)
elif new != page:
    old = set(page.splitlines())
    # A system that nobody has looked at yet may run the tests all the same.
    changed = [l for l in new.splitlines() if l not in old]
    if all(NOT_SEEN in former.get(l.split(" | ")[0][2:], {}).get(system, "") for l in changed if l.startswith("| ")):
        sys.exit(0)
    sys.exit("docs/testing.md is not up to date; tests/conformance/table.py update writes it:\n" + "\n".join(changed))
