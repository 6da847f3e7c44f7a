"""What holds for every result of every method, on every interpreter. The calls come from the tables of branches and of
responses.
"""

from __future__ import annotations

import gc
import sys
from array import array
from functools import partial
from typing import Any, Callable, Dict, Iterator, List, Tuple

from branches import branches
from harness import NULL, Double, Outcome, run
from hostile_answers import RESPONSES
from method_table import METHODS

EXACT_TYPES = {dict, list, tuple, str, int, bool, type(None)}
MUTABLE = (dict, list)
MOST_WALKED = 3000  # values of a result; large tables have rows of one kind


def outcomes(ryn: Any, double: Double, largest: bool) -> Iterator[Tuple[str, Callable[[], Any], Callable, tuple]]:
    """All branches, and all largest answers: the name, what scripts the answers, the function and its arguments."""
    for method in METHODS:
        for branch in branches(method):
            yield f"{method.name}, {branch.name}", partial(branch.script, double), getattr(
                ryn, method.name
            ), branch.args
    for response in RESPONSES if largest else []:
        for number, fill in enumerate(response.largest()):

            def script() -> None:
                response.prepare(double)
                double.answer(response.op, area=fill)

            yield f"{response.id}, {number}", script, getattr(ryn, response.method), response.args


def walk(value: Any) -> Iterator[Any]:
    """The value and all that it holds, keys included; of very large results the beginning and the end."""
    todo = [value]
    seen = 0
    while todo and seen < MOST_WALKED:
        found = todo.pop()
        seen += 1
        yield found
        if type(found) is dict:
            for key, item in found.items():
                todo += [key, item]
        elif isinstance(found, (list, tuple)):
            items = list(found)
            todo += items[: MOST_WALKED // 2] + items[-MOST_WALKED // 2 :] if len(items) > MOST_WALKED else items


def rebuilt(value: Any) -> Any:
    """An equal value as the interpreter makes it."""
    if type(value) is dict:
        return {key: rebuilt(item) for key, item in value.items()}
    if type(value) is list:
        return [rebuilt(item) for item in value]
    if type(value) is tuple:
        return tuple([rebuilt(item) for item in value])
    return value


def check_text(text: str, where: str) -> None:
    """As the interpreter would make it: marked as ASCII where it is, as narrow as it can be, and hashed alike."""
    copy = "".join(list(text))
    assert text.isascii() == all(ord(character) < 128 for character in text), (where, text)
    assert (hash(text), text) == (hash(copy), copy), where
    assert sys.getsizeof(text) in (sys.getsizeof(copy), sys.getsizeof(copy) + len(text.encode()) + 1), (where, text)


def check_tracking(value: Any, where: str) -> None:
    """The collector tracks each container as it tracks an equal one."""
    equal = rebuilt(value)
    gc.collect()
    assert repr(equal) == repr(value), where  # the order of keys too

    def tracked(of: Any) -> List[Tuple[type, bool]]:
        return [(type(found), gc.is_tracked(found)) for found in walk(of)]

    assert tracked(value) == tracked(equal), where


def containers(value: Any) -> Dict[int, Any]:
    found = {}
    for container in walk(value):
        if isinstance(container, MUTABLE):
            assert id(container) not in found, "a container that stands in two places"
            found[id(container)] = container
    return found


def check(ryn: Any, double: Double, largest: bool = True) -> int:
    """Returns how many results were looked at."""
    count = 0
    gc.collect()
    gc.freeze()  # what is there now stays: the collections of check_tracking need not walk it each time
    gc.disable()
    for where, script, function, args in outcomes(ryn, double, largest):

        def outcome() -> Outcome:
            double.reset()
            double.recording(False)
            script()
            return run(function, *args)

        first, second = outcome(), outcome()
        assert first == second, where
        if first.value is NULL:
            continue
        for value in walk(first.value):
            assert type(value) in EXACT_TYPES, (where, type(value))
            if type(value) is str:
                check_text(value, where)
        check_tracking(first.value, where)
        # Nothing that a caller could change is in two places, or in two results
        assert containers(first.value).keys().isdisjoint(containers(second.value)), where
        check_references(function, args, first.value, where)
        count += 1
    gc.enable()
    return count


CALLS = 20
CALLS_OF_LARGE = 5  # of what returns thousands of values


def check_references(function: Callable, args: tuple, value: Any, where: str) -> None:
    """Calls whose results are dropped leave the references of what is shared as they were.

    Shared are keys, fixed texts, singletons and small ints. The leaks that are prescribed hold texts and ints too.
    """
    if function.__name__ in ("GetUplinkStats", "GetPortTxUplink", "GetPortStats"):
        return
    shared: List[Any] = [None, True, False, *range(-5, 257), (), ""]
    values = list(walk(value))
    shared += {id(text): text for text in values if type(text) is str}.values()
    before, after = (array("q", bytes(8 * len(shared))) for _ in range(2))  # a list would hold ints of its own
    calls = CALLS if len(values) < MOST_WALKED else CALLS_OF_LARGE
    for place in range(len(shared)):
        before[place] = sys.getrefcount(shared[place])
    for _ in range(calls):
        run(function, *args)
    for place in range(len(shared)):
        after[place] = sys.getrefcount(shared[place])
    changed = [
        (shared[place], after[place] - before[place])
        for place in range(len(shared))
        if abs(after[place] - before[place]) >= calls
    ]
    assert changed == [], where
