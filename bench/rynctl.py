"""What it takes to start rynctl: `rynctl -j switch list` against a bare interpreter that imports `_libryn` and json.

CPU time of the processes, in shuffled rounds; the median of the rounds' ratios. `./dev bench` runs it.
"""

from __future__ import annotations

import argparse
import os
import random
import resource
import statistics
import subprocess
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
ROUNDS = 25
LIMIT = 2.5
PYTHON = "/usr/bin/python3"
COMMANDS = {
    "bare interpreter": [PYTHON, "-c", "import _libryn, json"],
    "rynctl": [PYTHON, str(ROOT / "rynctl/rynctl"), "-j", "switch", "list"],
}


def cpu_time(command: list[str], environment: dict[str, str]) -> float:
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, env=environment, check=True, stdout=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=Path, help="a build folder")
    build = parser.parse_args().build.resolve()
    with tempfile.TemporaryDirectory() as folder:
        environment = {
            "HOME": folder,
            "PATH": "/usr/bin:/bin",
            "LD_LIBRARY_PATH": str(build / "simhost"),
            "PYTHONPATH": f"{build}:{build / 'libryn'}",
            "RYN_SIM_STATE": os.path.join(folder, "host.db"),
        }
        for command in COMMANDS.values():  # makes the host and the caches of compiled modules
            cpu_time(command, environment)
        times: dict[str, list[float]] = {name: [] for name in COMMANDS}
        for _ in range(ROUNDS):
            for name in random.sample(list(COMMANDS), len(COMMANDS)):
                times[name].append(cpu_time(COMMANDS[name], environment))
    ratio = statistics.median(ours / bare for bare, ours in zip(*times.values()))
    for name, samples in times.items():
        print(f"{name:17} {statistics.median(samples) * 1000:6.1f} ms")
    print(f"ratio             {ratio:6.2f}     at most {LIMIT}")
    return 0 if ratio <= LIMIT else 1


if __name__ == "__main__":
    raise SystemExit(main())
