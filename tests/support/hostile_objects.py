"""Malicious arguments, which act while they are converted, and a collector hook that empties what is half built.

Run by test_hostile.py in an interpreter of its own, with checked memory: `python -c "import hostile_objects;
hostile_objects.attack()"`.
"""

from __future__ import annotations

import gc
import sys
import weakref
from itertools import product
from typing import Any, Callable

import harness
from branches import branches
from harness import Double, Outcome, run, u64
from method_table import METHODS, flow_stats, fpo_stats

ERRORS = (KeyError, MemoryError, OverflowError, SystemError, TypeError, ValueError, IndexError)


class Index:
    """Acts when it is converted to a number, then returns one, or raises."""

    def __init__(self, harm: Callable[[], Any], value: Any = 7) -> None:
        self.harm, self.value = harm, value

    def __index__(self) -> Any:
        self.harm()
        return self.value


class SameHash:
    """A dict key with the hash of `text` that acts, once armed, when the two are compared."""

    armed = False

    def __init__(self, text: str, harm: Callable[[], Any]) -> None:
        self.text, self.harm = text, harm

    def __hash__(self) -> int:
        return hash(self.text)

    def __eq__(self, other: object) -> bool:
        if self.armed:
            self.harm()
        return False


class Sorting(list):
    """Is sorted when it is converted: by the interpreter's own code, which holds no reference to what it sorts."""

    __index__ = list.sort


class Compared:
    """Does its harm when it is compared."""

    def __init__(self, harm: Callable[[], Any]) -> None:
        self.harm = harm

    def __lt__(self, other: object) -> bool:
        self.harm()
        return False


class Number(int):
    pass


class Text(str):
    pass


class Dict(dict):
    pass


class List(list):
    pass


class Cores(tuple):
    pass


class Several(list):
    def __len__(self) -> int:
        return 3

    def __getitem__(self, index: Any) -> Any:
        raise KeyError(index)


class Policy(dict):
    def __getitem__(self, key: Any) -> Any:
        raise KeyError(key)

    def __missing__(self, key: Any) -> Any:
        raise KeyError(key)


class Pair(tuple):
    def __len__(self) -> int:
        return 1 << 40

    def __getitem__(self, index: Any) -> Any:
        raise KeyError(index)


def raising() -> None:
    raise KeyError("harm")


def harms(ryn: Any) -> list[Callable[[], Any]]:
    return [
        raising,
        gc.collect,
        lambda: ryn.GetFlowStats(0, (1, 2), 0),
        lambda: run(ryn.SetPortTxUplink, 0, 0, {"txType": "All", "txUplinks": [1]}),
        lambda: run(ryn.ListPorts, Index(raising)),
        lambda: [object() for _ in range(1000)],
    ]


def check(outcome: Outcome) -> None:
    assert outcome.error is None or issubclass(outcome.error[0], ERRORS), outcome


def attack_numbers(ryn: Any, double: Double) -> None:
    """Each number of each method, and each core number of a tuple."""
    flow_stats(double)
    fpo_stats(double)
    values = [7, -1, 1 << 40, 1 << 70, -(1 << 70), "no number", None, 1.5, Number(3), True]
    hostile = [Index(harm, value) for harm in harms(ryn) for value in values]
    for method in METHODS:
        for place, unit in enumerate(method.format or ""):
            if unit in "IL":
                for value in [*hostile, 1 << 70, -(1 << 70), Number(1 << 65), 1.5]:
                    check(run(getattr(ryn, method.name), *method.args[:place], value, *method.args[place + 1 :]))
    for value in [*hostile, *values]:
        check(run(ryn.GetFlowStats, 0, (1, value, 2), 0))
        check(run(ryn.GetFPOStats, 0, (value,) * 64))
        check(run(ryn.GetFPOStats, 0, Pair((value, value))))


def attack_texts(ryn: Any) -> None:
    texts = ["", "\udc80", "a\0b", "\u00e9" * 1000, "x" * (1 << 20), "%s%n", Text("dvs-1"), Text("\udcff"), b"dvs-1"]
    for method in METHODS:
        for place, unit in enumerate(method.format or ""):
            if unit == "s":
                for text in texts:
                    check(run(getattr(ryn, method.name), *method.args[:place], text, *method.args[place + 1 :]))


def attack_policies(ryn: Any, double: Double) -> None:
    """A dict and its list, which the conversion of an item empties, replaces and drops."""

    def set_policy(policy: Any) -> None:
        check(run(ryn.SetPortTxUplink, 0, 0, policy))

    def emptying(*containers: Any) -> Callable[[], object]:
        return lambda: [container.clear() for container in containers]

    for harm in harms(ryn):
        for value in (7, 1 << 70, "no number"):
            set_policy({"txType": "All", "txUplinks": [1, Index(harm, value), 2]})
        for text in ("txType", "txUplinks"):
            key = SameHash(text, harm)
            policy: Any = {key: 1, "txType": "All", "txUplinks": [1]}
            key.armed = True
            set_policy(policy)
    for place in range(8):
        uplinks: list = list(range(300, 308))
        policy = {"txType": "All", "txUplinks": uplinks}
        uplinks[place] = Index(emptying(policy, uplinks))
        del uplinks
        set_policy(policy)
    for text in ("txType", "txUplinks"):
        key = SameHash(text, lambda: None)
        policy = {key: 1, "txType": "".join(["A", "ll"]), "txUplinks": [300]}
        key.harm, key.armed = emptying(policy), True
        set_policy(policy)
    growing: list = [1, 2]
    growing[0] = Index(lambda: growing.extend(range(100)))
    set_policy({"txType": "All", "txUplinks": growing})
    several: Any
    for several in (Several(), Several([1, 2]), (1, 2), "text", None, 5, [[]], [None], [1.5], [1 << 70] * 8):
        set_policy({"txType": "All", "txUplinks": several})
    for name in (Text("All"), "\udc80", "All\0", b"All", None, 5, "x" * (1 << 20)):
        set_policy({"txType": name, "txUplinks": []})
    for other in (Policy(txType="All", txUplinks=[1]), Policy(), [], None, 5, "txType"):
        set_policy(other)


def attack_ownership(ryn: Any, double: Double) -> None:
    """A policy that loses its list, the list its items, while one of them is converted: nobody but the method holds
    them then. Of subclasses too, since exact lists, dicts and tuples stay readable in the interpreter's free lists.
    """
    double.recording(True)
    kinds: Any = product((dict, Dict), (list, List), (str, Text))
    for new_dict, new_list, new_text in kinds:
        for place, value in product(range(8), (7, "no number")):
            policy = new_dict({"txType": new_text("".join(["A", "ll"])), "txUplinks": new_list(map(Number, range(8)))})
            held: Any = weakref.ref(policy["txUplinks"]) if new_list is List else lambda: True
            alive = []

            def drop() -> None:
                policy.clear()
                gc.collect()
                alive.append(held() is not None)

            policy["txUplinks"][place] = Index(drop, value)
            double.reset()
            check(run(ryn.SetPortTxUplink, 0, 0, policy))
            assert alive == [True]  # the method holds a reference
            expected = [*range(8)]
            expected[place] = 7 if value == 7 else 0xFFFFFFFF
            assert [call.uplinks for call in double.calls()] == [expected]
            assert held() in (None, True)  # and has dropped it
        for place in range(8):  # the items are released at once too
            policy = new_dict({"txType": new_text("All"), "txUplinks": new_list(map(Number, range(8)))})
            policy["txUplinks"][place] = Index(lambda: (policy["txUplinks"].clear(), policy.clear()), "no number")
            check(run(ryn.SetPortTxUplink, 0, 0, policy))
        for place in range(8):  # and an item that nobody else holds
            uplinks: Any = new_list(map(Number, range(8)))
            uplinks[place] = Sorting([Compared(uplinks.clear), Compared(uplinks.clear)])
            double.reset()
            check(run(ryn.SetPortTxUplink, 0, 0, new_dict({"txType": new_text("All"), "txUplinks": uplinks})))
            assert [call.uplinks for call in double.calls()] == [[*range(place), *[0xFFFFFFFF] * (8 - place)]]
    cores: Any = product((tuple, Cores), (7, "no number", None))
    for new_tuple, value in cores:
        for function, more in ((ryn.GetFlowStats, (0,)), (ryn.GetFPOStats, ())):
            for harm in harms(ryn):
                check(run(function, Number(3), new_tuple([Number(1), Index(harm, value), Number(2)]), *more))
    for method in METHODS:  # arguments that only the call itself holds
        fresh = {int: lambda argument: Number(argument), str: lambda argument: Text(argument)}
        method.script(double)
        check(
            run(
                getattr(ryn, method.name),
                *(fresh.get(type(argument), lambda same: same)(argument) for argument in method.args),
            )
        )


def attack_through_the_collector(ryn: Any, double: Double) -> None:
    """A collector hook, run whenever a container is made, that visits every new container and empties it."""
    emptied = 0

    def look(phase: str, info: dict) -> None:
        gc.disable()  # not again while it runs
        for found in gc.get_objects():
            if type(found) in (list, dict, tuple):
                repr(found)
                list(found)  # an empty slot has no object
        gc.enable()

    def empty(phase: str, info: dict) -> None:
        nonlocal emptied
        gc.disable()
        for found in gc.get_objects():
            if type(found) in (list, dict):
                found.clear()
                emptied += 1
        gc.enable()

    for method in METHODS:
        function = getattr(ryn, method.name)
        for branch in branches(method):
            double.reset()
            branch.script(double)
            double.recording(False)
            good = run(function, *branch.args)
            assert collected_call(function, branch.args, look) == (good.value, good.error and good.error[0])
            value, error = collected_call(function, branch.args, empty)
            assert error in (None, SystemError, IndexError), (method.name, branch.name, error)
    # Since 3.12 the collector does not run while a container is made
    assert emptied > 50 or sys.version_info >= (3, 12)


def collected_call(function: Callable, args: tuple, hook: Callable) -> tuple:
    """The result and the type of the error; nothing else is done while the hook is there."""
    import _probe

    threshold = gc.get_threshold()
    with harness.capture_stderr():
        gc.collect()  # drops the spare containers: the collector runs when one is allocated
        gc.freeze()  # for good: what is not new is not the hook's
        gc.callbacks.append(hook)
        gc.set_threshold(1, 1, 1)
        try:
            has_result, result, error, _ = _probe.call(function, args, -1)
        finally:
            gc.set_threshold(*threshold)
            gc.callbacks.remove(hook)
    return (result if has_result else harness.NULL), (type(error) if error else None)


def attack() -> None:
    double = harness.set_up()
    import _libryn

    gc.enable()  # whoever ran before may have switched it off
    gc.collect()
    gc.freeze()  # what is there now stays: the collections of the harm need not walk it each time
    attack_numbers(_libryn, double)
    attack_texts(_libryn)
    double.answer("Ryn_Get_LCore_ID_Bitmap", area=u64((1 << 64) - 1))
    attack_policies(_libryn, double)
    attack_ownership(_libryn, double)
    attack_through_the_collector(_libryn, double)
    print("unharmed")
