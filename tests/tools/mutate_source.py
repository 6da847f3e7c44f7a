"""Source mutants: would the tests notice these wrong versions of the module?

Each row of tests/lists/source_mutants.toml says which text of a source file is replaced, by what, and what goes wrong.
The module is built with that file in the place of its own; then the tests run, those that the row names first, until
one fails. A row for an interpreter that is not Debian's takes the checks of support/on_interpreter.py instead, and one
of the package `ryn` its own tests.

`./dev mutate --source` runs it; the figures are in docs/coverage.md. Tests that build the module themselves, and those
that count instructions, take no part.
"""

from __future__ import annotations

import argparse
import hashlib
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from threading import Lock

import tomllib

ROOT = Path(__file__).resolve().parents[2]
TESTS = ROOT / "tests"
sys.path.insert(0, str(TESTS / "support"))
import builds  # noqa: E402

LIST = TESTS / "lists/source_mutants.toml"
LONGEST = 900  # seconds of one run of the tests
CPP = [
    "g++",
    "-std=c++20",
    "-O1",
    "-fPIC",
    "-fno-exceptions",
    "-fno-rtti",
    "-fvisibility=hidden",
    "-ffunction-sections",
    "-w",
]
LINK = [
    "-shared",
    "-Wl,-z,now",
    "-Wl,--gc-sections",
    "-Wl,--as-needed",
    "-Wl,-Bsymbolic-functions",
    f"-Wl,--version-script={ROOT}/libryn/exports.map",
]
INCLUDE = re.compile(r'^#include "(.*)"', re.MULTILINE)

# The tests that every row meets after its own, the cheapest folder first.
ALL_TESTS = [
    "methods",
    "module/test_config_load.py",
    "module/test_loading.py",
    "checks/test_every_method.py",
    "checks/test_results.py",
    "checks/test_faults.py",
    "checks/test_hostile.py",
    "checks/test_leaks.py",
    "checks/test_allocations.py",
    "checks/test_valgrind.py",
]

# Those of the package on the double; simulated hosts run the build folder's.
PACKAGE_TESTS = ["ryn", "--ignore=tests/ryn/test_core_interpreters.py", "--ignore=tests/ryn/test_simulated.py"]

# What looks at the object file itself, which is built otherwise here
UNFAIR = [
    f"--deselect=tests/module/test_loading.py::{name}"
    for name in ("test_takes_what_was_reviewed", "test_entry_points_are_called_as_before")
]


@dataclass
class Mutant:
    file: str
    old: str
    new: str
    why: str
    tests: str = ""
    python: str = ""  # the interpreter, where it is not Debian's

    def text(self) -> str:
        on = f" (on {self.python})" if self.python else ""
        return f"{self.file}: {self.why}{on}"

    def source(self) -> str:
        source = (ROOT / self.file).read_text()
        found = source.count(self.old)
        if found != 1:
            sys.exit(f"{LIST.name}: {self.text()}: the old text stands {found} times in the file; rewrite the row")
        return source.replace(self.old, self.new)


def sources() -> list[str]:
    """Of the module, and those of host/ that it is built from."""
    patterns = ("host/*.cc", "host/change/properties.cc", "libryn/**/*.cc")
    return sorted(str(path.relative_to(ROOT)) for pattern in patterns for path in ROOT.glob(pattern))


def includes(file: str, seen: set[str]) -> set[str]:
    """The headers of the tree that a file includes, directly or not."""
    for header in INCLUDE.findall((ROOT / file).read_text()):
        if header not in seen and (ROOT / header).exists():
            seen.add(header)
            includes(header, seen)
    return seen


class Builder:
    """The objects of the module as it is, for one interpreter, and from them each mutant."""

    def __init__(self, build: Path, python: str) -> None:
        self.build, self.lock = build, Lock()
        self.interpreter = builds.interpreter(python) if python else Path(sys.executable)
        self.include, self.suffix = builds.facts(self.interpreter)
        self.objects = build / "source-mutants" / (python or "debian")
        self.objects.mkdir(parents=True, exist_ok=True)

    def compile(self, source: str, out: Path, *first: str) -> Path:
        done = subprocess.run(
            [*CPP, *first, f"-I{ROOT}", f"-I{self.include}", "-c", source, "-o", out],
            cwd=ROOT,
            text=True,
            capture_output=True,
        )
        if done.returncode:
            raise RuntimeError(done.stderr)
        return out

    def good(self, source: str) -> Path:
        """The object of a file as it is, made once for each content of it and of its headers."""
        content = b"".join((ROOT / file).read_bytes() for file in [source, *sorted(includes(source, set()))])
        out = self.objects / f"{hashlib.sha1(content).hexdigest()}.o"
        if not out.exists():
            made = out.with_suffix(f".{os.getpid()}")
            self.compile(source, made)
            made.rename(out)
        return out

    def prepare(self) -> None:
        with self.lock:
            for source in sources():
                self.good(source)

    def module(self, mutant: Mutant | None, folder: Path) -> Path:
        """Builds the mutant, or the module as it is, in a folder of its own."""
        overlay = folder / "overlay"
        objects = []
        if mutant:
            (overlay / mutant.file).parent.mkdir(parents=True)
            (overlay / mutant.file).write_text(mutant.source())
        for number, source in enumerate(sources()):
            if mutant and source == mutant.file:
                objects.append(self.compile(str(overlay / source), folder / f"{number}.o"))
            elif mutant and mutant.file in includes(source, set()):
                objects.append(self.compile(source, folder / f"{number}.o", f"-I{overlay}"))
            else:
                objects.append(self.good(source))
        out = folder / f"_libryn{self.suffix}"
        subprocess.run(
            [*CPP, *LINK, *objects, f"-L{self.build}/tests/double", "-lryn", "-ljorPublic", "-o", out], check=True
        )
        return out


def package(build: Path, mutant: Mutant, folder: Path) -> None:
    """Puts the built package into a folder, with the mutant in it: a Python file, or in what is compiled of it."""
    shutil.copytree(build / "ryn", folder / "ryn", ignore=shutil.ignore_patterns("*.p", "__pycache__"))
    if mutant.file.endswith(".py"):
        (folder / mutant.file).write_text(mutant.source())
        return
    overlay = folder / "overlay"
    (overlay / mutant.file).parent.mkdir(parents=True)
    (overlay / mutant.file).write_text(mutant.source())
    for extension in [path.name for path in folder.glob("ryn/*.so")]:
        relink(build, mutant, overlay, f"ryn/{extension}", folder)


def relink(build: Path, mutant: Mutant, overlay: Path, extension: str, folder: Path) -> None:
    """Builds an extension anew by the commands that built it, if the mutant's file is in it."""
    listed = subprocess.run(
        ["ninja", "-C", build, "-t", "commands", extension], text=True, capture_output=True, check=True
    )
    *commands, link = listed.stdout.splitlines()
    linked = link
    for command in filter(re.compile(r" -MD .* -o \S+ -c \S+$").search, commands):
        words = shlex.split(command)
        flags, (out, _, source) = words[: words.index("-MD")], words[-3:]
        file = os.path.relpath(build / source, ROOT)
        if mutant.file != file and mutant.file not in includes(file, set()):
            continue
        made = folder / out.replace("/", "_")
        source = str(overlay / file) if mutant.file == file else source
        flags.insert(next(i for i, word in enumerate(flags) if word.startswith("-I")), f"-I{overlay}")
        done = subprocess.run([*flags, "-w", "-o", made, "-c", source], cwd=build, text=True, capture_output=True)
        if done.returncode:
            raise RuntimeError(done.stderr)
        linked = linked.replace(out, str(made))
    if linked != link:
        subprocess.run(
            linked.replace(f"-o {extension} ", f"-o {folder / extension} "), cwd=build, shell=True, check=True
        )


def environment(build: Path, folder: Path, *more: Path) -> dict[str, str]:
    return {
        **os.environ,
        "LD_LIBRARY_PATH": str(build / "tests/double"),
        "PYTHONDONTWRITEBYTECODE": "1",
        "PYTHONPATH": os.pathsep.join(map(str, [folder, *more])),
        "RYN_BUILD": str(build),
    }


def passes(command: list, env: dict[str, str]) -> tuple[bool, str]:
    """Whether a run of tests passes, and its last words."""
    try:
        done = subprocess.run(
            command, cwd=ROOT, env=env, text=True, errors="replace", capture_output=True, timeout=LONGEST
        )
    except subprocess.TimeoutExpired:
        return False, f"no end after {LONGEST} s"
    return done.returncode == 0, last_words(done)


def last_words(done: subprocess.CompletedProcess[str]) -> str:
    lines = [line for line in (done.stdout + done.stderr).splitlines() if line.strip()]
    failed = [line for line in lines if line.startswith(("FAILED", "ERROR"))]
    return (failed or lines or [f"status {done.returncode}"])[-1][:150]


def verdict(builder: Builder, mutant: Mutant | None) -> tuple[str, str, float]:
    """ "killed", "survived" or "does not compile", by what, and after how many seconds."""
    start = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="source-mutant") as name:
        folder = Path(name)
        of_package = mutant is not None and mutant.file.startswith("ryn/")
        try:
            if mutant and of_package:
                package(builder.build, mutant, folder)
            else:
                builder.module(mutant, folder)
        except RuntimeError as error:
            return "does not compile", str(error).splitlines()[0], time.monotonic() - start
        if mutant and mutant.python:
            return *on_interpreter(builder, folder), time.monotonic() - start
        first = [str(TESTS / test) for test in mutant.tests.split()] if mutant else []
        more = [builder.build, builder.build / "libryn"] if of_package else []
        env = environment(builder.build, folder, *more)
        others = PACKAGE_TESTS if of_package else ALL_TESTS
        for tests in [first, [test if test.startswith("-") else str(TESTS / test) for test in others]]:
            if tests:
                passed, words = passes(
                    [sys.executable, "-m", "pytest", "-qx", "-p", "no:cacheprovider", *UNFAIR, *tests], env
                )
                if not passed:
                    return "killed", words, time.monotonic() - start
    return "survived", "", time.monotonic() - start


def on_interpreter(builder: Builder, folder: Path) -> tuple[str, str]:
    builds.build_helpers(builder.interpreter, builder.build / "tests/double", folder)
    try:
        done = builds.run_checks(builder.interpreter, folder, LONGEST)
    except subprocess.TimeoutExpired:
        return "killed", f"no end after {LONGEST} s"
    return ("killed", last_words(done)) if done.returncode or done.stderr else ("survived", "")


def main() -> int:
    parser = argparse.ArgumentParser(description="Builds each wrong version of the module and runs the tests.")
    parser.add_argument("build", type=Path, help="the build folder, with the tests")
    parser.add_argument("--jobs", type=int, default=2, help="mutants at once (default: %(default)s)")
    parser.add_argument("--only", default="", help="mutants whose line this regular expression finds")
    parser.add_argument("--list", action="store_true", help="list the mutants alone")
    options = parser.parse_args()
    mutants = [Mutant(**row) for row in tomllib.loads(LIST.read_text())["mutant"]]
    mutants = [mutant for mutant in mutants if re.search(options.only, mutant.text())]
    for mutant in mutants:
        mutant.source()
    if options.list:
        print(*(mutant.text() for mutant in mutants), sep="\n")
        return 0

    build = options.build.resolve()
    builders = {python: Builder(build, python) for python in {mutant.python for mutant in mutants}}
    for builder in builders.values():
        builder.prepare()
    survivors, wrong, start = [], 0, time.monotonic()

    def meet(mutant: Mutant) -> tuple[Mutant, tuple[str, str, float]]:
        return mutant, verdict(builders[mutant.python], mutant)

    with ThreadPoolExecutor(options.jobs) as pool:
        for mutant, (how, words, seconds) in pool.map(meet, mutants):
            print(f"{how:9} {seconds:6.1f} s  {mutant.text()}{': ' if words else ''}{words}", flush=True)
            wrong += how == "does not compile"
            if how == "survived":
                survivors.append(mutant)
    killed = len(mutants) - len(survivors) - wrong
    print(
        f"\n{len(mutants)} source mutants, {killed} killed ({100 * killed / max(len(mutants), 1):.1f} %) in "
        f"{time.monotonic() - start:.0f} s with {options.jobs} at once"
    )
    for mutant in survivors:
        print("survived:", mutant.text())
    return 0 if killed >= 0.98 * len(mutants) else 1


if __name__ == "__main__":
    sys.exit(main())
