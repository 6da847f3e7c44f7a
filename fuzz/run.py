#!/usr/bin/env python3
"""Builds the fuzz targets with clang and runs them one after the other.

    fuzz/run.py                            each target for 10 seconds
    fuzz/run.py --seconds 600 flow_page    one target for ten minutes
    fuzz/run.py --replay                   only the inputs of fuzz/corpus and of seeds.py
    fuzz/run.py --keep                     keep new inputs in fuzz/corpus, the fewest that cover the same

What ends a target is left in build-fuzz/found; build-fuzz/fuzz/ryn_fuzz --target=NAME FILE repeats it.
"""

from __future__ import annotations

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import seeds

ROOT = Path(__file__).resolve().parents[1]
BUILD = ROOT / "build-fuzz"
PROGRAM = BUILD / "fuzz/ryn_fuzz"
CORPUS = ROOT / "fuzz/corpus"
FOUND = BUILD / "found"

SLOWEST_INPUT = 25  # seconds
LARGEST_KEPT = 16384  # bytes


def build() -> None:
    if not (BUILD / "build.ninja").exists():
        subprocess.run(["/usr/bin/meson", "setup", BUILD, ROOT, "-Dfuzz=true", "-Dtests=false"], check=True,
                       env={**os.environ, "CC": "clang-14", "CXX": "clang++-14"})
    subprocess.run(["ninja", "-C", BUILD, "--quiet", "fuzz/ryn_fuzz"], check=True)


def all_targets() -> list[str]:
    return subprocess.run([PROGRAM, "--list"], check=True, text=True, capture_output=True).stdout.split()


def fuzz(target: str, *arguments: object) -> bool:
    """False, after the end of its report, when an input broke the target."""
    command = [PROGRAM, f"--target={target}", "-close_fd_mask=2", "-detect_leaks=0", f"-timeout={SLOWEST_INPUT}",
               "-rss_limit_mb=4096", f"-artifact_prefix={FOUND}/{target}-", *map(str, arguments)]
    done = subprocess.run(command, text=True, capture_output=True, errors="replace")
    report = done.stdout + done.stderr
    if done.returncode != 0:
        print(report[-6000:])
    progress = re.findall(r"^#\d.*", report, re.MULTILINE)
    verdict = "passed" if done.returncode == 0 else "FAILED"
    print(f"{target:17} {verdict}  {progress[-1] if progress else ''}", flush=True)
    return done.returncode == 0


def keep(target: str, grown: Path) -> None:
    """Replaces a target's kept inputs by the fewest and smallest that cover the same as all together."""
    with tempfile.TemporaryDirectory() as fewest:
        if fuzz(target, "-merge=1", f"-max_len={LARGEST_KEPT}", fewest, CORPUS / target, grown):
            shutil.rmtree(CORPUS / target)
            shutil.copytree(fewest, CORPUS / target)


def main() -> int:
    parser = argparse.ArgumentParser(description="Builds the fuzz targets with clang and runs them.")
    parser.add_argument("--seconds", type=int, default=10, help="for each target (default: 10)")
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

    passed = True
    for target in options.targets or known:
        kept = CORPUS / target
        kept.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory() as grown:  # libFuzzer adds what it finds to the first folder
            seeds.write(target, Path(grown))
            passed &= fuzz(target, "-runs=0" if options.replay else f"-max_total_time={options.seconds}", grown, kept)
            if options.keep:
                keep(target, Path(grown))
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
