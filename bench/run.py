"""What the methods cost, against everything else that a script could do.

CPU time by time.thread_time_ns in one process: in each of many rounds every contender of a case runs once, in shuffled
order, and its time is set in relation to the others' of the same round; the figures shown are medians over the rounds.
The platform double answers from memory and records nothing, the collector is on, and the interpreter's arenas stay
mapped. Before anything is timed, every contender's result is compared with the module's.

    ./dev bench                            # tables on standard output
    ./dev bench --json bench.json          # the same as JSON
    ./dev bench --docs                     # writes the tables and the plot into docs/
    ./dev bench --case ListPorts --rounds 51
"""

from __future__ import annotations

import argparse
import gc
import importlib
import json
import marshal
import pickle
import random
import statistics
import sys
from functools import partial
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests/support"), str(ROOT / "bench")]

import harness  # noqa: E402

DOUBLE = harness.set_up()

import _libryn  # noqa: E402
import cases  # noqa: E402
from measuring import Contender, calibrate, machine, measure, median_ratio, run_for, table, time_text  # noqa: E402

MODULE = "module"
PEERS = {
    "_literal": "literal",
    "_pybind": "pybind11",
    "pure": "pure Python",
    "with_cffi": "cffi",
    "structures": "ctypes",
}
FLOORS = ["marshal", "pickle"]
BURSTS = 8  # parts of a sample, made in turn with those of the call that it is compared with


def floors(value: Any) -> list[Contender]:
    """The ways in which the interpreter itself loads an equal value from bytes."""
    found = [
        Contender(f"marshal {version}", partial(marshal.loads, marshal.dumps(value, version))) for version in (2, 4)
    ]
    found += [
        Contender(f"pickle {protocol}", partial(pickle.loads, pickle.dumps(value, protocol))) for protocol in (4, 5)
    ]
    return found


def peers(case: cases.Case) -> list[Contender]:
    return [
        Contender(title, partial(getattr(importlib.import_module(name), case.method), *case.args))
        for name, title in PEERS.items()
    ]


def set_the_stage(case: cases.Case) -> None:
    DOUBLE.reset()
    DOUBLE.recording(False)
    case.script(DOUBLE)


def run_case(case: cases.Case, rounds: int, chance: random.Random) -> dict[str, Any]:
    set_the_stage(case)
    module = Contender(MODULE, partial(getattr(_libryn, case.method), *case.args))
    value = module.call()
    contenders = [module, *peers(case)]
    if isinstance(value, (list, dict, tuple, str)):
        contenders += floors(value)
    else:
        import _floor

        contenders += [
            Contender("empty call", partial(_floor.nothing, 3, 1)),
            Contender("call with two numbers", partial(_floor.two_numbers, 3, 1)),
        ]
    for contender in contenders:
        result = contender.call()
        if contender.name not in ("empty call", "call with two numbers"):
            assert result == value and type(result) is type(value), f"{case.method}: {contender.name} differs"
        del result
    del value
    times = measure(contenders, rounds, chance)

    medians = {name: statistics.median(each) for name, each in times.items()}
    found: dict[str, Any] = {"method": case.method, "title": case.title, "target": case.target, "ns": medians}
    for floor in FLOORS:  # the best of its versions stands for it
        versions = [name for name in medians if name.startswith(floor)]
        if versions:
            best = min(versions, key=medians.__getitem__)
            medians[floor] = medians[best]
            found[f"best {floor}"] = best
            times[floor] = times[best]
            for name in versions:
                del medians[name]
    found["module to each"] = {name: median_ratio(times, MODULE, name) for name in medians if name != MODULE}
    return found


def run_growth(rounds: int, chance: random.Random) -> dict[str, Any]:
    """Nanoseconds that each row adds to MAC tables of growing size: a table's time less that of an empty one in the
    same round, by the number of rows."""
    sizes = [1 << power for power in range(17)]
    stages = {size: cases.mac_table(size) for size in (0, *sizes)}
    pairs: list[tuple[int, Contender, Contender]] = []  # a size, and a call of it and of an empty table
    for size in sizes:
        set_the_stage(stages[size])
        value: Any = _libryn.ListSwitchMACTable(3)
        for contender in (Contender(MODULE, partial(_libryn.ListSwitchMACTable, 3)), *peers(stages[size])):
            assert contender.call() == value
            pairs.append((size, contender, Contender(contender.name, contender.call)))
        full, none = (marshal.dumps(each, 4) for each in (value, {**value, "MacTableList": []}))
        pairs.append(
            (
                size,
                Contender("marshal", partial(marshal.loads, full)),
                Contender("marshal", partial(marshal.loads, none)),
            )
        )
        del value
    for size, contender, empty in pairs:
        for stage, each in ((size, contender), (0, empty)):
            set_the_stage(stages[stage])
            calibrate(each)
            each.calls = -(-each.calls // BURSTS)

    times: dict[tuple[str, int], list[tuple[float, float]]] = {}
    for _ in range(rounds):  # through all sizes, so that a bad moment of the machine meets each of them in one round
        for size, contender, empty in chance.sample(pairs, len(pairs)):
            samples = [0.0, 0.0]
            for _ in range(BURSTS):
                for i, (stage, each) in enumerate(((size, contender), (0, empty))):
                    set_the_stage(stages[stage])
                    gc.collect()
                    samples[i] += run_for(each) / each.calls / BURSTS
            times.setdefault((contender.name, size), []).append((samples[0], samples[1]))
    per_row: dict[str, list[float]] = {}
    for (name, size), both in sorted(times.items()):
        per_row.setdefault(name, []).append(statistics.median((time - base) / size for time, base in both))
    whole = [statistics.median(time for time, _ in times[MODULE, size]) for size in sizes]
    nothing = statistics.median(base for size in sizes for _, base in times[MODULE, size])
    DOUBLE.reset()
    per_row = {name: per_row[name] for name in (MODULE, *PEERS.values(), "marshal")}
    return {"rows": sizes, "ns per row": per_row, "ns per call": whole, "ns of an empty table": nothing}


def memory_per_row() -> dict[str, float]:
    import tracemalloc

    set_the_stage(cases.mac_table(65536))
    _libryn.ListSwitchMACTable(3)
    tracemalloc.start()
    table: Any = _libryn.ListSwitchMACTable(3)
    size = tracemalloc.get_traced_memory()[0]
    tracemalloc.stop()
    rows = table["MacTableList"]
    keys = {id(key) for row in rows for key in row}
    return {"bytes": size / len(rows), "distinct keys": len(keys)}


def render(result: dict[str, Any]) -> str:
    others = [*PEERS.values(), *FLOORS]
    with_floors = [case for case in result["cases"] if "marshal" in case["ns"]]
    calls = [case for case in result["cases"] if "empty call" in case["ns"]]
    parts = [
        "Time of one call:",
        table(
            ["case", MODULE, *others],
            [
                [
                    case["title"],
                    *(time_text(case["ns"][name]) if name in case["ns"] else "" for name in [MODULE, *others]),
                ]
                for case in result["cases"]
            ],
        ),
    ]
    if with_floors:
        parts += [
            "Time of the module relative to each contender (below 1, the module is faster):",
            table(
                ["case", *others, "at most, to marshal"],
                [
                    [
                        case["title"],
                        *(f"{case['module to each'][name]:.2f}" for name in others),
                        f"{case['target']:.2f}" if case["target"] else "",
                    ]
                    for case in with_floors
                ],
            ),
        ]
    if calls:
        names = [*PEERS.values(), "empty call", "call with two numbers"]
        parts += [
            "The same for calls that carry next to nothing:",
            table(
                ["case", *names],
                [[case["title"], *(f"{case['module to each'][name]:.2f}" for name in names)] for case in calls],
            ),
        ]
    if "growth" in result:
        growth = result["growth"]
        per_row = growth["ns per row"]
        parts += [
            "What a row adds to a MAC table: the time of the call less that of an empty table, by the number of "
            "rows. The last column is the whole call:",
            table(
                ["rows", *per_row, f"{MODULE}, the call"],
                [
                    [
                        f"{rows:,}",
                        *(f"{each[i]:.0f} ns" for each in per_row.values()),
                        time_text(growth["ns per call"][i]),
                    ]
                    for i, rows in enumerate(growth["rows"])
                ],
            ),
            f"The module's most expensive row takes {max(per_row[MODULE]) / min(per_row[MODULE]):.2f} times what its "
            f"cheapest does; from 16 rows on {max(per_row[MODULE][4:]) / min(per_row[MODULE]):.2f} times. An empty "
            f"table takes {time_text(growth['ns of an empty table'])}, most of it for the zeroed area of 1,310,736 "
            "bytes.",
            "![What a row adds](performance-growth.svg)",
        ]
    if "memory" in result:
        memory = result["memory"]
        parts += [
            f"Memory of a row of the MAC table: {memory['bytes']:.0f} bytes; distinct key objects in all 65,536 "
            f"rows: {memory['distinct keys']}."
        ]
    parts += [
        "Measured on: "
        + "; ".join(f"{name} {value}" for name, value in result["machine"].items())
        + f"; {result['rounds']} rounds."
    ]
    return "\n\n".join(parts) + "\n"


def plot(growth: dict[str, Any], file: Path) -> None:
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "libryn"
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(8, 4.5), layout="constrained")
    for name, values in growth["ns per row"].items():
        axes.plot(
            growth["rows"], values, marker="o", markersize=3, label=name, linewidth=2.5 if name == MODULE else 1.2
        )
    axes.set(xscale="log", yscale="log", xlabel="rows of the MAC table", ylabel="CPU time that a row adds, ns")
    axes.set_xscale("log", base=2)
    axes.grid(True, which="major", alpha=0.3)
    axes.yaxis.set_major_formatter("{x:.0f}")
    axes.yaxis.set_minor_formatter("{x:.0f}")
    axes.legend(bbox_to_anchor=(1.02, 1), loc="upper left")
    figure.savefig(file, metadata={"Date": None})


def write_docs(result: dict[str, Any]) -> None:
    page = ROOT / "docs" / "performance.md"
    begin, end = "<!-- written by ./dev bench --docs: begin -->\n", "<!-- end -->\n"
    before, _, rest = page.read_text().partition(begin)
    page.write_text(before + begin + "\n" + render(result) + "\n" + end + rest.partition(end)[2])
    plot(result["growth"], ROOT / "docs" / "performance-growth.svg")


def main() -> None:
    parser = argparse.ArgumentParser(description="What the methods cost, against what else a script could do.")
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--case", action="append", help="a method's name; may be given several times")
    parser.add_argument("--json", type=Path, help="also write the result into this file")
    parser.add_argument("--docs", action="store_true", help="write the tables and the plot into docs/")
    options = parser.parse_args()

    import _floor

    _floor.keep_arenas()
    chance = random.Random(options.seed)
    chosen = [case for case in cases.CASES if not options.case or case.method in options.case]
    result: dict[str, Any] = {"machine": machine(), "rounds": options.rounds, "cases": []}
    for case in chosen:
        print(f"{case.title} ...", file=sys.stderr)
        result["cases"].append(run_case(case, options.rounds, chance))
    if not options.case:
        print("growth ...", file=sys.stderr)
        result["growth"] = run_growth(max(15, options.rounds), chance)
        result["memory"] = memory_per_row()
    print(render(result))
    if options.json:
        options.json.write_text(json.dumps(result, indent=1) + "\n")
    if options.docs:
        write_docs(result)


if __name__ == "__main__":
    main()
