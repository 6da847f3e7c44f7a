"""The outcome of a method when one of its calls fails, from the tables of failures of each method.

A trace is the list of the calls that a method makes of the interpreter and the allocator: (function, text), the text
being that of a str constant that is made at its first use. `expected(method, trace, n, base)` is the outcome when call
`n` of it fails with MemoryError("injected"); `base` is the outcome when none does.
"""

from __future__ import annotations

from typing import Any, Callable, List, Optional, Tuple

from harness import ANY, BUFFER, DICT_ITEM, LIST_ITEM, NULL, Outcome
from method_table import UPLINK_COUNTERS, WEIGHT_NAMES, Method

Trace = List[Tuple[str, Optional[str]]]
Rule = Callable[[Trace, int, Outcome], Outcome]

INJECTED = (MemoryError, "injected")
CREATIONS = {"PyDict_New", "PyList_New", "PyLong_FromLong", "PyUnicode_FromStringAndSize", "PyUnicode_New"}
CONVERSIONS = {"PyLong_AsLong", "PyNumber_Index"}  # of an item of the caller's; the second before Python 3.10 only
# Constants that are values; all others are keys, and a key that is not there fails its store.
VALUES = {"UNKNOWN", "VNIC", "UPLINK", "GENERIC", "QOBNIC", "UnknownFilter", *WEIGHT_NAMES}


def functions(trace: Trace) -> list[str]:
    return [function for function, _ in trace]


def item(trace: Trace, n: int) -> Outcome:
    """A failure while containers are filled key by key, item by item."""
    function, text = trace[n]
    if function in CREATIONS or text in VALUES:
        return Outcome(None, error=BUFFER)
    if function == "PyList_SetItem":
        return Outcome(None, error=LIST_ITEM)
    assert function in ("PyDict_SetItem", "PyUnicode_InternFromString"), function
    return Outcome(None, error=DICT_ITEM)


def whole_item(trace: Trace, n: int) -> Outcome:
    """A failure while an item is built in one go, or stored."""
    return Outcome(None, error=LIST_ITEM if trace[n][0] == "PyList_SetItem" else BUFFER)


def key_by_key(no_container: str) -> Rule:
    def rule(trace: Trace, n: int, base: Outcome) -> Outcome:
        first = next(i for i, (function, _) in enumerate(trace) if function in ("PyDict_New", "PyList_New"))
        return Outcome(None, no_container, INJECTED) if n == first else item(trace, n)

    return rule


def list_of_whole_items(no_container: str) -> Rule:
    def rule(trace: Trace, n: int, base: Outcome) -> Outcome:
        if trace[n][0] in CONVERSIONS:  # an item of the caller's tuple: the method goes on
            return Outcome(base.value, base.stderr, INJECTED)
        if trace[n][0] == "PyList_New":
            return Outcome(None, no_container, INJECTED)
        return whole_item(trace, n)

    return rule


def dict_with_whole_items(no_container: str) -> Rule:
    """A dict filled key by key, the last of which is a list of items that are built in one go."""

    def rule(trace: Trace, n: int, base: Outcome) -> Outcome:
        names = functions(trace)
        if n == names.index("PyDict_New"):
            return Outcome(None, no_container, INJECTED)
        list_stored = names.index("PyDict_SetItem", names.index("PyList_New"))
        return item(trace, n) if n <= list_stored else whole_item(trace, n)

    return rule


def one_value(trace: Trace, n: int, base: Outcome) -> Outcome:
    return Outcome(NULL, error=INJECTED)


def port_tx_uplink(trace: Trace, n: int, base: Outcome) -> Outcome:
    return Outcome(None if trace[n][0] == "PyList_New" else NULL, error=INJECTED)


def set_port_tx_uplink(trace: Trace, n: int, base: Outcome) -> Outcome:
    function, text = trace[n]
    if function == "PyUnicode_AsUTF8AndSize" or text == "txType":
        return Outcome(None, "Missing txType.\n", INJECTED)
    if text == "txUplinks":
        return Outcome(None, "Missing txUplinks.\n", INJECTED)
    if function == "PyDict_GetItemWithError":
        first = n == functions(trace).index(function)
        return Outcome(None, "Missing txType.\n" if first else "Missing txUplinks.\n", INJECTED)
    if function == "PyList_Size":
        return Outcome(None, "Too many uplinks.\n", INJECTED)
    if function == "PyList_GetItem":
        return Outcome(base.value, base.stderr, ANY)  # an item that is gone converts like one that is not an int
    assert function in CONVERSIONS, function
    return Outcome(base.value, base.stderr, INJECTED)


def uplink_list(trace: Trace, n: int) -> Outcome:
    message = {
        "PyList_New": "Failed to allocate uplink stats.\n",
        "PyList_SetItem": "Failed to set uplink stats counter.\n",
    }
    assert trace[n][1] is None or trace[n][1] in UPLINK_COUNTERS
    return Outcome(None, message.get(trace[n][0], "Failed to allocate uplink stats counter.\n"), INJECTED)


def uplink_stats(trace: Trace, n: int, base: Outcome) -> Outcome:
    if trace[n][0] == "Py_BuildValue":
        return Outcome(NULL, error=INJECTED)
    built = uplink_list(trace, n)
    return Outcome({**base.value, "uplinkStats": None}, built.stderr, built.error)


def without_constants(trace: Trace, n: int) -> int:
    """The number that call n has, or the next one, when the constants are not counted."""
    return sum(function != "PyUnicode_InternFromString" for function, _ in trace[:n])


def lb_params(trace: Trace, n: int, base: Outcome) -> Outcome:
    """What could not be created or stored is None in its place."""
    place = without_constants(trace, n) - 2  # behind the parser and the outer tuple
    if place == -1:
        return Outcome(NULL, error=INJECTED)
    params: list[Any] = list(base.value)
    index, step = divmod(place, 5)  # the pair; its name stored; its value, stored; the pair stored
    name, value = params[index]
    params[index] = None if step in (0, 4) else (None, value) if step == 1 else (name, None)
    return Outcome(tuple(params), error=INJECTED)


def lcore_ids(trace: Trace, n: int, base: Outcome) -> Outcome:
    if trace[n][0] == "PyTuple_New":
        return Outcome(NULL, base.stderr, INJECTED)
    ids = list(base.value)
    ids[(n - 2) // 2] = None
    return Outcome(tuple(ids), base.stderr, INJECTED)


def lb_port_stats(trace: Trace, n: int, base: Outcome) -> Outcome:
    return Outcome(None, error=INJECTED)


def mirror_conf(trace: Trace, n: int, base: Outcome) -> Outcome:
    """A session that fails is None, and the next one is read from the same place; a list that fails is None."""
    names = functions(trace)
    if n == names.index("PyList_New"):
        return Outcome(None, "Failed to allocate memory.\n", INJECTED)
    session = names[: n + 1].count("PyDict_New") - 1
    start = [i for i, name in enumerate(names) if name == "PyDict_New"][session]
    keys = list(base.value[session])
    stored = names[start:n].count("PyDict_SetItem")
    if stored == len(keys):
        assert names[n] == "PyList_SetItem"
        return Outcome(None, error=LIST_ITEM)

    failed = [*base.value[:session], None, *base.value[session:-1]]
    if n == start:
        return Outcome(failed, "Failed to allocate memory.\n", INJECTED)
    key = keys[stored]
    in_a_list = isinstance(base.value[session][key], list) and names[n] not in (
        "PyDict_SetItem",
        "PyUnicode_InternFromString",
    )
    if not in_a_list:
        return Outcome(failed, error=item(trace, n).error)
    without_list = [*base.value]
    without_list[session] = {**base.value[session], key: None}
    if names[n] == "PyList_New":
        message = "Failed to allocate memory.\n" if key == "vlans" else "Failed to allocate memory\n"
        return Outcome(without_list, message, INJECTED)
    return Outcome(without_list, error=item(trace, n).error)


# By the way in which the description says that a result is built
RULES: dict[str, Callable[[str], Rule]] = {
    "keys": key_by_key,
    "items": list_of_whole_items,
    "dict": dict_with_whole_items,
    "value": lambda prints: one_value,
}
# Of the methods that build theirs in a way of their own
OWN_RULES: dict[str, Rule] = {
    "GetMirrorConf": mirror_conf,
    "GetPortTxUplink": port_tx_uplink,
    "SetPortTxUplink": set_port_tx_uplink,
    "GetUplinkStats": uplink_stats,
    "GetUplinkQueueStats": lambda trace, n, base: uplink_list(trace, n),
    "GetLBParams": lb_params,
    "ListLCoreIDs": lcore_ids,
    "DumpLBPortStats": lb_port_stats,
}


def rule_of(method: Method) -> Rule:
    memory = method.row.memory
    if memory is None:
        raise LookupError(
            f"{method.name} allocates something: its row in libryn/reference/methods.py lacks an OutOfMemory"
        )
    if memory.kind != "own":
        return RULES[memory.kind](memory.prints)
    if method.name not in OWN_RULES:
        raise LookupError(
            f"{method.name} builds its result in a way of its own: add its rule to OWN_RULES in"
            " tests/support/fault_rules.py"
        )
    return OWN_RULES[method.name]


def expected(method: Method, trace: Trace, n: int, base: Outcome) -> Outcome:
    function = trace[n][0]
    if function == "PyArg_ParseTuple":
        return Outcome(method.invalid_value, method.invalid or "", INJECTED)
    if function in ("calloc", "malloc"):
        return Outcome(None, "Failed to allocate memory.\n")
    return rule_of(method)(trace, n, base)
