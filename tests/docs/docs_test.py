#!/usr/bin/env python3
"""Holds the pages against the project: usage: docs_test.py links|c|cpp|xml|yaml|commands SOURCE_DIR BUILD_DIR

A block or command of a kind that this script does not know fails: nothing on a page goes unproven by accident.
"""
import itertools
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import xml.etree.ElementTree

KIND, SOURCE, BUILD = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
PAGES = [p for pattern in ("*.md", "docs/*.md", "tools/*/README.md", "tests/*/README.md")
         for p in sorted(SOURCE.glob(pattern))]
WINE = str(SOURCE / "scripts/wine-run.sh")
CC = ["x86_64-w64-mingw32-gcc-win32", "-std=c99", "-Wall", "-Wextra", "-pedantic-errors", "-Werror"]
CXX = ["x86_64-w64-mingw32-g++-win32", "-std=c++17", "-fsyntax-only", "-DNOMINMAX", "-D_WIN32_WINNT=0x0601",
       "-DUNICODE", "-DVARNEX_NO_DLLIMPORT"]

failures = []


def fail(page, text):
    failures.append(f"{page.relative_to(SOURCE)}: {text}")


def blocks(page, *languages):
    """The fenced code blocks of these languages: (first line's number, text)."""
    for match in re.finditer(r"^```(\w+)[^\n]*\n(.*?)^```", page.read_text(), re.M | re.S):
        if match.group(1) in languages:
            yield page.read_text()[:match.start()].count("\n") + 2, match.group(2)


def run(arguments, directory=None, **options):
    return subprocess.run(arguments, cwd=directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", **options)


def work_directory(name):
    directory = BUILD / "docs tests" / name
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    return directory


def lay_out_agent(name):
    """A directory tree as the pages describe it, with one alert in the store."""
    agent = work_directory(name)
    (agent / "bin").mkdir()
    (agent / "Logs").mkdir()
    for file in (BUILD / "bin/Varnex.dll", BUILD / "bin/varnexhost.exe", SOURCE / "examples/KpmCfg.xml"):
        shutil.copy(file, agent / "bin")
    (agent / "bin/LocalAlt.dat").write_bytes(b"3;50;72;2147483647(2038-01-19 03:14:07);0 C:;\r\n")
    return agent / "bin"


def check_links():
    for page in PAGES:
        text = re.sub(r"^```.*?^```", "", page.read_text(), flags=re.M | re.S)
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"https?:", target):
                continue
            path, _, anchor = target.partition("#")
            file = (page.parent / path).resolve() if path else page
            if not file.exists():
                fail(page, f"link to {target}: no such file")
            elif anchor:
                headings = re.findall(r"^#+ (.*)$", file.read_text(), re.M)
                anchors = [re.sub(r"[^\w\- ]", "", h.lower()).replace(" ", "-") for h in headings]
                if anchor not in anchors:
                    fail(page, f"link to {target}: no such heading")


def check_c():
    """A whole program is built against the import library and run in an agent's tree; a function is compiled; loose
    lines are compiled as the body of one."""
    for page in PAGES:
        for number, text in blocks(page, "c"):
            directory = work_directory("c")
            program = "int main(" in text
            if not program and not re.search(r"^\w[^;=]*\)\n\{", text, re.M):
                lines = text.splitlines()
                top = [line for line in lines if line.startswith("#")]
                body = [line for line in lines if not line.startswith("#")]
                text = "\n".join(top + ["void Fragment(void)", "{"] + body + ["}"])
            # What a page may take as included.
            prelude = "" if program else "#include <windows.h>\n#include <stdio.h>\n#include <string.h>\n#include <wchar.h>\n"
            (directory / "block.c").write_text(prelude + text + "\n")
            # Wide formats in the C99 sense.
            command = CC + ["-Wno-unused-variable", f"-I{SOURCE}/include", "block.c"]
            command += ["-o", "host.exe", str(BUILD / "lib/libVarnex.dll.a"), "-lole32"] if program else ["-c"]
            result = run(command, directory)
            if result.returncode != 0:
                fail(page, f"line {number} does not compile:\n{result.stdout}")
            elif program:
                agent = lay_out_agent("c agent")
                shutil.copy(directory / "host.exe", agent)
                result = run([WINE, str(agent / "host.exe")], agent, timeout=90)
                if result.returncode != 0:
                    fail(page, f"line {number}: the program ended with {result.returncode}:\n{result.stdout}")


def check_cpp():
    """Pieces of tests: compiled with everything that tests include."""
    headers = sorted((SOURCE / "tests/support").glob("*.h"))
    prelude = ["#include <catch2/catch.hpp>"] + [f'#include "support/{h.name}"' for h in headers]
    prelude += ['#include "alerting/AlertStore.h"', "#include <varnex/Varnex.h>", "using namespace varnex;",
                "using namespace varnex::test;"]
    for page in PAGES:
        for number, text in blocks(page, "cpp"):
            directory = work_directory("cpp")
            (directory / "block.cpp").write_text("\n".join(prelude) + "\n" + text)
            includes = [f"-I{SOURCE}/{d}" for d in ("src", "include", "tests", "third_party")]
            includes.append(f"-I{BUILD}/third_party")
            result = run(CXX + includes + ["block.cpp"], directory)
            if result.returncode != 0:
                fail(page, f"line {number} does not compile:\n{result.stdout[-3000:]}")


def check_xml():
    for page in PAGES:
        for number, text in blocks(page, "xml"):
            try:
                xml.etree.ElementTree.fromstring(text)
            except xml.etree.ElementTree.ParseError as error:
                fail(page, f"line {number}: {error}")


def check_yaml(known=("varnex-rules.yml", "prometheus.yml")):
    """Each block names its file, and promtool takes it; a configuration finds the page's other files beside it."""
    for page in PAGES:
        if len(re.findall(r"^```ya?ml", page.read_text(), re.M)) != len(re.findall(r"^```yaml \S+\n", page.read_text(), re.M)):
            fail(page, "a yaml block without the name of its file")
        files = re.findall(r"^```yaml (\S+)\n(.*?)^```", page.read_text(), re.M | re.S)
        directory = work_directory("yaml")
        for name, text in files:
            (directory / name).write_text(text)
        for name, _ in files:
            if name not in known:
                fail(page, f"{name}: a file of no known kind; teach this script, or take it off the page")
                continue
            result = run(["promtool", "check", "config" if name == "prometheus.yml" else "rules", name], directory)
            if result.returncode != 0:
                fail(page, f"{name}: promtool does not take it:\n{result.stdout}")


def check_test_command(page, command, arguments):
    """scripts/test.sh: its filter must find tests. Not run: this is one of them."""
    if arguments and arguments[0] == "--preset":
        if f'"name": "{arguments[1]}"' not in (SOURCE / "CMakePresets.json").read_text():
            fail(page, f"{command}: no such preset")
        arguments = arguments[2:]
    if arguments:
        result = run(["ctest", "--test-dir", str(BUILD), "-N"] + arguments)
        if not re.search(r"Total Tests: [1-9]", result.stdout):
            fail(page, f"{command}: finds no test")


def words_of(script, pattern):
    """The names that a script itself holds its arguments against."""
    words = " ".join(re.findall(pattern, (SOURCE / script).read_text(), re.M)).split()
    if not words:
        sys.exit(f"{script}: no list of what it takes; teach this script where it is")
    return words


def unknown_arguments(script, arguments):
    """What the script would not know of what a page gives it."""
    if script == "scripts/soak.sh":
        return arguments[1:] + [a for a in arguments[:1] if a not in words_of(script, r"^run_item (\w+) ")]
    if script == "scripts/bench.sh":
        return [a for a in arguments[arguments[:1] == ["--short"]:] if a not in words_of(script, r"^parts=\((.*)\)$")]
    if script == "scripts/fuzz.sh":
        arguments = arguments[arguments[:1] == ["--keep"]:]
        seconds = [a for a in arguments[:1] if not re.fullmatch("[1-9][0-9]*", a)]
        return seconds + [a for a in arguments[1:] if a not in words_of(script, r"^known=\((.*)\)$")]
    if script == "scripts/fresh.sh":
        return [a for a in arguments[:1] if a not in words_of(script, r"^  ([a-z |]+)\) shift")]
    if script == "scripts/build.sh":
        presets = re.findall(r'"name": "(\w+)"', (SOURCE / "CMakePresets.json").read_text())
        return [a for a in arguments[:1] if a not in presets] + arguments[1:]
    return arguments


def check_script(page, command, arguments):
    """Other scripts: they exist and parse, and know what they are given; what they do is another test's."""
    if run(["bash", "-n", arguments[0]], SOURCE).returncode != 0:
        fail(page, f"{command}: does not parse")
        return
    unknown = unknown_arguments(arguments[0], arguments[1:])
    if unknown:
        fail(page, f"{command}: {arguments[0]} does not know {' '.join(unknown)}")


def check_variables(page, command, variables):
    """Each is read by a script, a test or the benchmark."""
    for variable in variables:
        if run(["grep", "-rqw", variable.partition("=")[0], "scripts", "tests", "bench"], SOURCE).returncode != 0:
            fail(page, f"{command}: nothing reads {variable}")


def check_preset_command(page, command, arguments):
    for name in re.findall(r"--preset (\w+)", command):
        if f'"name": "{name}"' not in (SOURCE / "CMakePresets.json").read_text():
            fail(page, f"{command}: no such preset")


def check_program(page, command, arguments):
    """A program of the build under Wine; tools run in an agent's tree."""
    result = run([WINE] + [str(BUILD / a.removeprefix("build/release/")) if a.startswith("build/") else a
                           for a in arguments[1:]], SOURCE, timeout=90)
    if result.returncode != 0:
        fail(page, f"{command}: ended with {result.returncode}:\n{result.stdout}")
    if "No test cases matched" in result.stdout:
        fail(page, f"{command}: finds no test")


def check_varnexhost(page, command, arguments):
    agent = lay_out_agent("tool agent")
    if arguments[:1] == ["watch"] and "--seconds" not in arguments:
        arguments = arguments + ["--seconds", "2"]
    for argument in arguments:
        if argument.endswith("Util.log"):
            (agent / argument).parent.mkdir(parents=True, exist_ok=True)
    result = run([WINE, str(agent / "varnexhost.exe")] + arguments, agent, timeout=90)
    # Without an instance to ask, `report` says so in its documented way.
    expected = (1,) if arguments[:1] == ["report"] else (0,)
    if result.returncode not in expected:
        fail(page, f"{command}: ended with {result.returncode}:\n{result.stdout}")


def check_task(page, command, arguments):
    """Its switches are known, with a value each, and what it runs is a command of ours; nothing here schedules."""
    switches = dict(zip(arguments[2::2], arguments[3::2]))
    if arguments[1] != "/Create" or len(arguments) % 2 != 0 or set(switches) != {"/TN", "/SC", "/MO", "/RU", "/TR"}:
        fail(page, f"{command}: a switch is unknown, missing or without its value")
        return
    program, *rest = switches["/TR"].split()
    if not program.endswith("\\varnexhost.exe") or len(switches["/TR"]) > 261:
        fail(page, f"{command}: not what a task can run")
    else:
        check_varnexhost(page, command, rest)


def check_registry(page, command, arguments):
    result = run([WINE] + arguments + ["/f"], timeout=90)
    if result.returncode != 0:
        fail(page, f"{command}: ended with {result.returncode}:\n{result.stdout}")
    run([WINE, "reg", "delete", arguments[2], "/f"], timeout=90)


def check_command(page, command):
    # Windows' commands keep their backslashes.
    arguments = ([a.strip('"') for a in shlex.split(command, posix=False)] if command.startswith(("reg ", "schtasks "))
                 else shlex.split(command))
    variables = list(itertools.takewhile(re.compile(r"[A-Z_]+=").match, arguments))
    check_variables(page, command, variables)
    arguments = arguments[len(variables):]
    kinds = {
        "scripts/test.sh": lambda: check_test_command(page, command, arguments[1:]),
        "scripts/wine-run.sh": lambda: check_program(page, command, arguments),
        "cmake": lambda: check_preset_command(page, command, arguments),
        "varnexhost": lambda: check_varnexhost(page, command, arguments[1:]),
        "reg": lambda: check_registry(page, command, arguments),
        "schtasks": lambda: check_task(page, command, arguments),
    }
    if arguments[0] in kinds:
        kinds[arguments[0]]()
    elif arguments[0].startswith("scripts/"):
        check_script(page, command, arguments)
    else:
        fail(page, f"{command}: a command of no known kind; teach this script, or take it off the page")


def check_commands():
    for page in PAGES:
        if page.name == "package.md":
            continue  # tests/package runs its blocks against the unpacked package
        for _, text in blocks(page, "sh", "bat"):
            for line in text.replace("\\\n", " ").splitlines():
                command = re.sub(r"\s+#.*$", "", line).strip()
                if command and not command.startswith("#"):
                    check_command(page, command)
        inline = re.sub(r"^```.*?^```", "", page.read_text(), flags=re.M | re.S)
        for command in re.findall(r"`((?:[A-Z_]+=\S+\s+)*scripts/[^`]+)`", inline):
            if re.search(r"\s", command) and "[" not in command and "…" not in command:
                check_command(page, command)


{"links": check_links, "c": check_c, "cpp": check_cpp, "xml": check_xml, "yaml": check_yaml,
 "commands": check_commands}[KIND]()
if failures:
    print("\n".join(failures))
    sys.exit(1)
