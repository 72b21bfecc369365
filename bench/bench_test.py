#!/usr/bin/env python3
"""Runs the benchmark's short form by its script and looks whether all of it is there: usage: bench_test.py SOURCE BUILD

What it measured passes or fails nothing.
"""
import json
import math
import os
import pathlib
import subprocess
import sys

SOURCE, BUILD = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
SCRIPT = str(SOURCE / "scripts/bench.sh")

# Every row of the table: its operation, and what there is to do.
ROWS = {
    "log call below the level": ["4 arguments", "4 arguments, logger at hand"],
    "log line written": ["88 bytes", "628 bytes"],
    "log line written, wide": ["88 bytes", "628 bytes"],
    "policy value": ["1 load"],
    "log level": ["1 load"],
    "counter read": ["2 loads"],
    "counter saved, same day": ["2 loads, 1 safe save", "2 loads, 1 plain save"],
    "counter saved, new day": ["8 loads, 7 safe saves", "8 loads, 7 plain saves"],
    "alert stored": ["10 stored", "10 stored, bare floor", "100000 stored", "100000 stored, bare floor"],
    "fetch 16 alerts": ["10 stored", "1000 stored", "100000 stored"],
    "cycle of the CPU monitor": [""],
    "cycle of the memory monitor": [""],
    "cycle of the disk monitor": ["4 disks", "24 disks"],
    "cycle of the network monitor": ["4 adapters", "16 adapters"],
    "cycle of the CPU sampler": ["8 processors", "64 processors"],
    "cycle of the memory sampler": [""],
    "cycle of the disk sampler": ["4 disks", "24 disks"],
    "cycle of the network sampler": ["4 adapters", "16 adapters"],
    "report": ["1 processors", "8 processors", "64 processors", "64 processors, document alone"],
    "averaging alone": ["64 processors"],
    "history append at 1440": ["a percentage", "a throughput", "an adapter's record"],
    "load and unload": ["COM in use already"],
    "processor time of a day": ["8/4/4", "64/24/16"],
}
WITHOUT_GOAL = [("log call below the level", "4 arguments, logger at hand"),
                ("report", "64 processors, document alone"), ("averaging alone", "64 processors")]
# Every figure with a goal of its own, and of each machine's day how many there are at least.
FIGURES_WITH_GOAL = [f"memory of a fetch of 16 of {n} alerts" for n in (10, 1000, 100000)]
FIGURES_WITH_GOAL += ["averaging alone, 64 processors, 24 disks, 16 adapters", "size of the DLL, stripped"]
FIGURES_OF_A_MACHINE = 16

failures = []


def expect(condition, text):
    if not condition:
        failures.append(text)


def run(arguments, **variables):
    return subprocess.run(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", env={**os.environ, **variables})


def check_refusals():
    result = run([SCRIPT, "--short", "nosuch"], VARNEX_BENCH_BUILD=str(BUILD))
    expect(result.returncode == 2 and "no part 'nosuch'" in result.stdout,
           f"an unknown part is not refused by the script:\n{result.stdout}")
    program = str(BUILD / "bin/bench/varnex_bench.exe")
    # A name is a whole word: "log" is a part, and this one only has it within.
    result = run([str(SOURCE / "scripts/wine-run.sh"), program, "short form"], VARNEX_BENCH_PARTS="log nologs")
    expect(result.returncode != 0 and "log ..." not in result.stdout,
           f"an unknown part is not refused by the program:\n{result.stdout}")


def check_row(row, markdown):
    name = f"{row['operation']}, {row['work']}"
    numbers = [row[key] for key in ("moduleNs", "floorNs", "ratio", "ratioLowerQuartile", "ratioUpperQuartile")]
    expect(all(isinstance(n, (int, float)) and math.isfinite(n) and n > 0 for n in numbers), f"{name}: {numbers}")
    expect(row["pairs"] >= 1, f"{name}: no pair")
    goal = (row["operation"], row["work"]) not in WITHOUT_GOAL
    expect(("goal" in row) == goal, f"{name}: {'has no goal' if goal else 'has a goal'}")
    lines = [line for line in markdown if line.startswith(f"| {row['operation']} | {row['work']} |")]
    expect(len(lines) == 1, f"{name}: {len(lines)} lines in the Markdown")
    if goal and len(lines) == 1:
        verdict = "met" if row["goal"]["met"] else "**over**"
        expect(f"| {verdict} |" in lines[0], f"{name}: the Markdown does not say {verdict}")


def check_results():
    files = {kind: BUILD / "bench" / f"short.{kind}" for kind in ("json", "md")}
    for file in files.values():
        file.unlink(missing_ok=True)
    result = run([SCRIPT, "--short"], VARNEX_BENCH_BUILD=str(BUILD))
    print(result.stdout)
    if result.returncode != 0 or not all(file.exists() for file in files.values()):
        expect(False, f"the script ended with {result.returncode}, or without its files")
        return
    results = json.loads(files["json"].read_text(encoding="utf-8"))
    markdown = files["md"].read_text(encoding="utf-8").splitlines()
    expected = [(operation, work) for operation, works in ROWS.items() for work in works]
    found = [(row["operation"], row["work"]) for row in results["rows"]]
    expect(sorted(found) == sorted(expected), f"missing: {[r for r in expected if r not in found]}; "
           f"unknown or twice: {[r for r in found if r not in expected or found.count(r) != 1]}")
    for row in results["rows"]:
        check_row(row, markdown)
    names = [figure["name"] for figure in results["figures"]]
    expect(sorted(f["name"] for f in results["figures"] if "goal" in f) == sorted(FIGURES_WITH_GOAL),
           f"figures with a goal: {names}")
    for machine in ROWS["processor time of a day"]:
        of_machine = [name for name in names if name.startswith(f"{machine}: ")]
        expect(len(of_machine) >= FIGURES_OF_A_MACHINE, f"figures of {machine}: {of_machine}")
        loaded = [f["value"] for f in results["figures"] if f["name"] == f"{machine}: private memory after load"]
        expect(len(loaded) == 1 and loaded[0] > 0, f"{machine}: a module without memory of its own: {loaded}")
    for name in names:
        expect(any(line.startswith(f"| {name} |") for line in markdown), f"not in the Markdown: {name}")


check_refusals()
check_results()
if failures:
    print("\n".join(failures))
    sys.exit(1)
