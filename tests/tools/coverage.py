"""What of the module the tests reach: `./dev coverage` builds the module with clang's counters, runs the tests, and
asks this file for the report. Ends with 1 when something is not reached.

It first builds the module for an interpreter of each other side of an `#if` too, and runs the checks of
on_interpreter.py there: lines that Debian's interpreter does not compile are counted by what they reach of them.

Counted are regions (stretches of code that run together), branches (each condition both true and false) and conditions
(each one alone turned the outcome of its decision: MC/DC), by their place in the source: what is compiled several
times, a template or an inline function, counts where it stands once.
"""

from __future__ import annotations

import argparse
import json
import os
import shutil
import subprocess
import sys
from collections import defaultdict
from pathlib import Path
from typing import Iterator, NamedTuple

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/support"))
import builds  # noqa: E402

OTHER_SIDES = ["3.8", "3.12"]  # of the conditions on PY_VERSION_HEX in libryn/, beside Debian's 3.11
FOLDERS = ["host", "libryn/base", "libryn/dvs", "libryn/ports", "libryn/flowcache", "libryn/uplinks", "libryn/loadbal"]
KINDS = ["regions", "branches", "conditions"]
CODE_REGION = 0  # llvm-cov's number for a region that is neither an expansion nor skipped

BACKEND = (
    'bool IsSimulated() { return Exports("libryn.so", "ryn_sim_version") && '
    'Exports("libjorPublic.so", "jor_sim_version"); }'
)

# Places that no test reaches: (file, the text of their line) -> the reason. At most ten, each read again at a change.
REVIEWED: dict[tuple[str, str], str] = {
    ("libryn/dvs/property.cc", "switch (FormatOf(value, length)) {"): "each value has a case of its own",
    ("libryn/uplinks/netq.cc", "return filters.Complete() || ReportInvalid();"): "what reports is always false",
    ("libryn/base/values.h", "explicit consteval Key(const char* text) : text_(text) {}"): "at compile time alone",
    ("host/read/backend.cc", "if (!handle)"): "the libraries are loaded before anybody asks",
    ("host/read/backend.cc", "return false;"): "as above",
    ("host/read/backend.cc", BACKEND): "true on a simulated host alone, where the tests of ryn look",
}


class Place(NamedTuple):
    file: str
    line: int
    column: int
    end_line: int
    end_column: int
    kind: str
    part: str  # which way of a branch, which condition of a decision

    def source(self) -> str:
        return (ROOT / self.file).read_text().splitlines()[self.line - 1].strip()

    def text(self) -> str:
        what = {
            "regions": "never runs",
            "branches": f"never {self.part}",
            "conditions": f"{self.part} never turns the outcome alone",
        }[self.kind]
        return f"{self.file}:{self.line}:{self.column}: {what}: {self.source()}"


def places(export: dict) -> Iterator[tuple[Place, bool]]:
    """Every place of every compiled function of the module, and whether it was reached there."""
    for function in export["functions"]:
        names = [Path(name).resolve() for name in function["filenames"]]
        files = [str(name.relative_to(ROOT)) if ROOT in name.parents else "" for name in names]

        def place(record: list, file: str, kind: str, part: str = "") -> Place:
            line, column, end_line, end_column = record[:4]
            return Place(file, line, column, end_line, end_column, kind, part)

        for region in function["regions"]:
            count, file, kind = region[4], files[region[5]], region[7]
            if kind == CODE_REGION:
                yield place(region, file, "regions"), count > 0
        for branch in function["branches"]:
            for part, count in zip(["true", "false"], branch[4:6]):
                yield place(branch, files[branch[6]], "branches", part), count > 0
        for decision in function["mcdc_records"]:
            for number, turned in enumerate(decision[-1], 1):
                yield place(decision, files[0], "conditions", f"condition {number}"), turned


def run_on(version: str, build: Path) -> Path:
    """Runs the checks on an interpreter; returns the module that was built for it."""
    interpreter, platform = builds.interpreter(version), build / "tests/double"
    folder = build / "other-sides" / version
    shutil.rmtree(folder, ignore_errors=True)
    os.environ |= {"CC": "clang-19", "CXX": "clang++-19"}
    module = builds.build_module(interpreter, platform, folder, "-Doptimization=1", "-Dcoverage=true")
    builds.build_helpers(interpreter, platform, folder)
    os.environ["LLVM_PROFILE_FILE"] = str(folder / "profile/%m.profraw")
    done = builds.run_checks(interpreter, folder, 1800)
    if done.returncode or done.stderr:
        sys.exit(f"{interpreter}: the checks fail:\n{done.stdout}{done.stderr}")
    return module


def counters(folder: Path, *objects: str | Path) -> dict:
    """What the processes that wrote to folder/profile reached of the module and of other objects."""
    profile = folder / "module.profdata"
    subprocess.run(["llvm-profdata-19", "merge", "-o", profile, *folder.glob("profile/*.profraw")], check=True)
    command = ["llvm-cov-19", "export", f"-instr-profile={profile}", *objects]
    return json.loads(subprocess.run(command, check=True, text=True, capture_output=True).stdout)["data"][0]


def main() -> int:
    parser = argparse.ArgumentParser(description="Reports what of the module the tests reached.")
    parser.add_argument("build", type=Path, help="the build folder, made with -Dcoverage=true")
    build = parser.parse_args().build.resolve()
    (module,) = build.glob("libryn/_libryn*.so")
    host = build / "tests/native/host/host_tests"  # what of host/ the module does not use
    exports = [counters(build, module, "-object", host)]
    for version in OTHER_SIDES:
        try:
            other = run_on(version, build)
        except FileNotFoundError as error:
            print(f"{error}: what it alone compiles is not counted")
        else:
            exports.append(counters(other.parent, other))

    reached: dict[Place, bool] = defaultdict(bool)
    lines: set[tuple[str, int]] = set()  # of the interpreters before: macros of others have conditions of their own
    for export in exports:
        for place, was_reached in places(export):
            counted = place.file.startswith(tuple(f"{folder}/" for folder in FOLDERS))
            if counted and (place.file, place.line) not in lines:
                reached[place] |= was_reached
        lines = {(place.file, place.line) for place in reached}

    print(f"{'':<12}" + "".join(f"{kind:>16}" for kind in KINDS))
    for folder in [*FOLDERS, ""]:
        row = f"{folder or 'all':<12}"
        for kind in KINDS:
            here = [was for place, was in reached.items() if place.file.startswith(folder) and place.kind == kind]
            row += f"{f'{sum(here)} of {len(here)}':>16}"
        print(row)

    missed = sorted(place for place, was_reached in reached.items() if not was_reached)
    for place in missed:
        reason = REVIEWED.get((place.file, place.source()))
        print(place.text() + (f" (reviewed: {reason})" if reason else ""))
    places_left = {(place.file, place.source()) for place in missed}
    for file, source in REVIEWED.keys() - places_left:
        print(f"{file}: reached after all, take it from the list of reviewed places: {source}")
    return 0 if places_left == REVIEWED.keys() else 1


if __name__ == "__main__":
    sys.exit(main())
