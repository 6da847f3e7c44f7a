"""Timing of contenders against each other, and how figures are shown. Loads nothing of what is measured."""

from __future__ import annotations

import gc
import platform
import random
import statistics
from dataclasses import dataclass
from datetime import datetime, timezone
from itertools import repeat
from pathlib import Path
from time import thread_time_ns
from typing import Any, Callable

SAMPLE_NS = 8_000_000  # a sample takes at least this long,
SAMPLE_CALLS = 6  # and calls at least so often: where the collector walks the young objects is a matter of luck


@dataclass
class Contender:
    name: str
    call: Callable[[], Any]
    calls: int = SAMPLE_CALLS  # in one sample


def run_for(contender: Contender) -> int:
    call = contender.call
    start = thread_time_ns()
    for _ in repeat(None, contender.calls):
        call()
    return thread_time_ns() - start


def calibrate(contender: Contender) -> None:
    run_for(contender)  # warms up
    while (elapsed := run_for(contender)) < SAMPLE_NS:
        contender.calls = max(contender.calls + 1, int(contender.calls * min(10, 1.1 * SAMPLE_NS / max(elapsed, 1000))))


def measure(contenders: list[Contender], rounds: int, chance: random.Random) -> dict[str, list[float]]:
    """Nanoseconds per call of each contender in each round."""
    for contender in contenders:
        calibrate(contender)
    gc.collect()
    gc.freeze()  # a full collection walks what the calls make, and not all that this process has loaded
    times: dict[str, list[float]] = {contender.name: [] for contender in contenders}
    for _ in range(rounds):
        for contender in chance.sample(contenders, len(contenders)):
            gc.collect()
            times[contender.name].append(run_for(contender) / contender.calls)
    return times


def median_ratio(times: dict[str, list[float]], name: str, base: str) -> float:
    return statistics.median(one / other for one, other in zip(times[name], times[base]))


def machine() -> dict[str, str]:
    info = Path("/proc/cpuinfo").read_text().splitlines()
    model = next((line.partition(":")[2].strip() for line in info if line.startswith("model name")), platform.machine())
    cores = sum(line.startswith("processor") for line in info)
    return {
        "processor": f"{model}, {cores} cores seen",
        "system": f"{platform.system()} {platform.release()}",
        "interpreter": f"{platform.python_implementation()} {platform.python_version()}, {platform.python_compiler()}",
        "C library": " ".join(platform.libc_ver()),
        "collector": "on" if gc.isenabled() else "off",
        "date": datetime.now(timezone.utc).strftime("%Y-%m-%d"),
    }


def table(head: list[str], rows: list[list[str]]) -> str:
    lines = [head, [":---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def time_text(nanoseconds: float) -> str:
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.0f} ns"
