#!/usr/bin/env python3
"""Builds the fuzz targets with clang and runs them, as many at a time as there are processors.

    fuzz/run.py                            each target for 10 seconds
    fuzz/run.py --seconds 600 flow_page    one target for ten minutes
    fuzz/run.py --jobs 1                   one target after the other
    fuzz/run.py --replay                   only the inputs of fuzz/corpus and of seeds.py
    fuzz/run.py --keep                     keep new inputs in fuzz/corpus, the fewest that cover the same

What ends a target is left in build-fuzz/found; build-fuzz/fuzz/ryn_fuzz --target=NAME FILE repeats it, and
build-fuzz/fuzz/exporter_fuzz for the exporter's targets. The figures of the last run stand in build-fuzz/figures.md.
"""

from __future__ import annotations

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from concurrent.futures import ThreadPoolExecutor, as_completed
from dataclasses import dataclass, field
from pathlib import Path

import seeds

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build-fuzz"
PROGRAMS = ["fuzz/ryn_fuzz", "fuzz/exporter_fuzz"]
CORPUS = ROOT / "fuzz/corpus"
FOUND = BUILD / "found"

SLOWEST_INPUT = 25  # seconds
LARGEST_KEPT = 16384  # bytes
PROGRESS = 30  # seconds between two lines on what is going on


def build() -> None:
    if not (BUILD / "build.ninja").exists():
        subprocess.run(
            ["/usr/bin/meson", "setup", BUILD, ROOT, "-Dfuzz=true", "-Dtests=false"],
            check=True,
            stdout=subprocess.DEVNULL,
            env={**os.environ, "CC": "clang-14", "CXX": "clang++-14"},
        )
    subprocess.run(["ninja", "-C", BUILD, "--quiet", *PROGRAMS], check=True)


def all_targets() -> dict[str, Path]:
    """Each target, and the program that holds it."""
    found: dict[str, Path] = {}
    for program in PROGRAMS:
        listed = subprocess.run([BUILD / program, "--list"], check=True, text=True, capture_output=True)
        found.update(dict.fromkeys(listed.stdout.split(), BUILD / program))
    return found


@dataclass
class Run:
    """One target at work: what it last said of itself, and what it came to."""

    target: str
    program: Path
    report: list[str] = field(default_factory=list)
    start: float = field(default_factory=time.monotonic)
    passed: bool | None = None  # None while it is at work

    def execute(self, *arguments: object) -> Run:
        command = [
            str(self.program),
            f"--target={self.target}",
            "-close_fd_mask=2",
            "-detect_leaks=0",
            "-print_final_stats=1",
            f"-timeout={SLOWEST_INPUT}",
            "-rss_limit_mb=4096",
            f"-artifact_prefix={FOUND}/{self.target}-",
            *map(str, arguments),
        ]
        self.start = time.monotonic()
        with subprocess.Popen(
            command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace"
        ) as process:
            assert process.stdout
            self.report.extend(process.stdout)
        self.passed = process.returncode == 0
        return self

    @property
    def seconds(self) -> float:
        return time.monotonic() - self.start

    def figure(self, pattern: str) -> int:
        """The last number that the report gives behind that, or 0."""
        for line in reversed(self.report):
            if found := re.search(pattern + r"\s*(\d+)", line):
                return int(found[1])
        return 0

    @property
    def executions(self) -> int:
        return self.figure("stat::number_of_executed_units:") or self.figure("^#")

    @property
    def edges(self) -> int:
        return self.figure(r"\bcov:")

    @property
    def features(self) -> int:
        return self.figure(r"\bft:")

    def __str__(self) -> str:
        return f"{self.executions:>10} executions {self.edges:>5} edges {self.features:>6} features"


def run_target(run: Run, options: argparse.Namespace) -> float:
    """Returns how many seconds it took."""
    kept = CORPUS / run.target
    kept.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as grown:  # libFuzzer adds what it finds to the first folder
        seeds.write(run.target, Path(grown))
        run.execute("-runs=0" if options.replay else f"-max_total_time={options.seconds}", grown, kept)
        seconds = run.seconds
        if options.keep and run.passed:
            keep(run, Path(grown))
    return seconds


def keep(run: Run, grown: Path) -> None:
    """Replaces a target's kept inputs by the fewest and smallest that cover the same as all together."""
    with tempfile.TemporaryDirectory() as fewest:
        kept = CORPUS / run.target
        merged = Run(run.target, run.program).execute("-merge=1", f"-max_len={LARGEST_KEPT}", fewest, kept, grown)
        if not merged.passed:
            raise SystemExit("".join(merged.report[-40:]))
        shutil.rmtree(kept)
        shutil.copytree(fewest, kept)


def tell_progress(runs: list[Run], done: threading.Event) -> None:
    while not done.wait(PROGRESS):
        for run in runs:
            if run.passed is None and run.report:
                print(f"{run.target:17} {run.seconds:5.0f} s {run}", flush=True)


def main() -> int:
    parser = argparse.ArgumentParser(description="Builds the fuzz targets with clang and runs them.")
    parser.add_argument("--seconds", type=int, default=10, help="for each target (default: 10)")
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)), help="targets at a time")
    parser.add_argument("--replay", action="store_true", help="only the inputs that are there")
    parser.add_argument("--keep", action="store_true", help="keep new inputs that cover more")
    parser.add_argument("targets", nargs="*", metavar="TARGET", help="default: all")
    options = parser.parse_args()

    build()
    FOUND.mkdir(exist_ok=True)
    known = all_targets()
    unknown = sorted(set(options.targets) - set(known))
    if unknown:
        parser.error(f"no such target: {', '.join(unknown)}; there are {', '.join(known)}")

    runs = [Run(target, known[target]) for target in options.targets or known]
    seconds: dict[str, float] = {}
    done = threading.Event()
    threading.Thread(target=tell_progress, args=(runs, done), daemon=True).start()
    with ThreadPoolExecutor(options.jobs) as pool:
        futures = {pool.submit(run_target, run, options): run for run in runs}
        for number, future in enumerate(as_completed(futures), 1):
            run = futures[future]
            seconds[run.target] = future.result()
            if not run.passed:
                print("".join(run.report)[-6000:])
            print(
                f"[{number}/{len(runs)}] {run.target:17} {'passed' if run.passed else 'FAILED'} "
                f"{seconds[run.target]:4.0f} s {run}",
                flush=True,
            )
    done.set()

    failed = [run.target for run in runs if not run.passed]
    total = sum(seconds.values()), sum(run.executions for run in runs)
    print(
        f"{len(runs) - len(failed)} of {len(runs)} targets passed: {total[1]} executions in {total[0]:.0f} seconds of "
        f"fuzzing" + (f"; failed: {', '.join(failed)}" if failed else "")
    )
    rows = [
        f"| `{run.target}` | {seconds[run.target]:.0f} | {run.executions:,} | {run.edges} | {run.features} "
        f"| {'none' if run.passed else 'FAILED'} |"
        for run in runs
    ]
    (BUILD / "figures.md").write_text(
        "\n".join(
            [
                "| Target | Seconds | Executions | Edges | Features | Findings |",
                "|---|---|---|---|---|---|",
                *rows,
                f"| all | {total[0]:.0f} | {total[1]:,} | | | {len(failed) or 'none'} |",
                "",
            ]
        )
    )
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
