"""The settings of a switch: where each is kept, what the datapath says, and how one is proven to be in force."""

from __future__ import annotations

import contextlib
import operator
import time
from typing import TYPE_CHECKING, Any, Callable, Dict, Optional, Tuple

from ryn import properties
from ryn.errors import NotApplied, NotFound, PlatformError
from ryn.names import ALGORITHMS
from ryn.records import Options, Setting

if TYPE_CHECKING:
    from ryn.switch import Switch

POLL_SECONDS = 0.02
WORD = 0xFFFFFFFF


def word(name: str, value: int, lowest: int = 0, highest: int = WORD) -> int:
    """The value, if it is an int in the range, or stands for one as NumPy's do. TypeError and ValueError otherwise."""
    try:
        number = int(operator.index(value))
    except TypeError:
        raise TypeError(f"{name} is a number, not {value!r}") from None
    if not lowest <= number <= highest:
        raise ValueError(f"{name} {number} is not within {lowest} to {highest}")
    return number


def settle(name: str, read: Callable[[], Any], wanted: Any, seconds: float) -> None:
    """Reads a setting until it is as wanted. NotApplied where it is not after so many seconds."""
    end = time.monotonic() + seconds
    while True:
        value = read()
        if value == wanted:
            return
        left = end - time.monotonic()
        if left <= 0:
            raise NotApplied(name, wanted, value, seconds)
        time.sleep(min(left, POLL_SECONDS))


def stored(switch: Switch, kept: properties.Property) -> Optional[Tuple[int, ...]]:
    """What the host keeps for the switch, None where it keeps nothing."""
    identifier = switch.identifier()
    value = switch.platform.host_property(identifier, kept.key)
    return kept.decode(value, "DVSQOB_HostPropGet", (identifier, kept.key))


def store(switch: Switch, kept: properties.Property, *numbers: int) -> None:
    switch.platform.set_host_property(switch.identifier(), kept.key, kept.encode(*numbers))


def algorithm_name(metric: int) -> str:
    return ALGORITHMS[metric] if metric < len(ALGORITHMS) else "invalid"


def balancer_record(switch: Switch) -> Tuple[int, ...]:
    """Metric and options: what the host keeps, else what the datapath runs with."""
    kept = stored(switch, properties.BALANCER)
    return switch.platform.running_options(switch.name) if kept is None else kept


def _algorithm(record: Tuple[int, ...]) -> str:
    return algorithm_name(record[0])


def _options(record: Tuple[int, ...]) -> Options:
    return Options(*record[1:])


# Settings that the host keeps as a property: its layout, what the datapath runs with, and the value of either.
_KEPT: Dict[
    str,
    Tuple[
        properties.Property,
        Callable[[Switch], Tuple[int, ...]],
        Callable[[Tuple[int, ...]], Any],
    ],
] = {
    "burst_size": (
        properties.BURST_SIZE,
        lambda switch: (switch.platform.running_burst_size(switch.name),),
        lambda record: record[0],
    ),
    "numa_teaming": (
        properties.NUMA_TEAMING,
        lambda switch: (switch.platform.running_numa_teaming(switch.name),),
        lambda record: bool(record[0]),
    ),
    "algorithm": (
        properties.BALANCER,
        lambda switch: switch.platform.running_options(switch.name),
        _algorithm,
    ),
    "options": (
        properties.BALANCER,
        lambda switch: switch.platform.running_options(switch.name),
        _options,
    ),
}


def kept_value(switch: Switch, name: str) -> Any:
    """The value of a setting that the host keeps; where it keeps none, what the datapath runs with."""
    kept, running, value = _KEPT[name]
    record = stored(switch, kept)
    return value(running(switch) if record is None else record)


def fpo_value(switch: Switch) -> int:
    record = stored(switch, properties.FPO)
    return properties.FPO_DEFAULT if record is None else record[0]


def all_settings(switch: Switch) -> Dict[str, Setting]:
    """Every setting of the switch that can be read, by its attribute's name."""
    switch.identifier()  # refuses a switch that has no settings at all
    if switch.number is not None:
        return {name: one_setting(switch, name) for name in [*_KEPT, "fpo", "lro", "panic_on_tx_hang"]}
    settings = {}
    for name in [*_KEPT, "fpo"]:
        with contextlib.suppress(NotFound):  # the host does not keep it either
            settings[name] = one_setting(switch, name)
    return settings


def one_setting(switch: Switch, name: str) -> Setting:
    """A setting of the switch by its attribute's name."""
    if name in _KEPT:
        return _kept_setting(switch, name)
    if name == "fpo":
        return _fpo_setting(switch)
    value = getattr(switch, name)
    return Setting(name, value, "datapath", None, value)


def _kept_setting(switch: Switch, name: str) -> Setting:
    kept, running, value = _KEPT[name]
    record = stored(switch, kept)
    if record is None:
        now = value(running(switch))
        return Setting(name, now, "datapath", None, now)
    try:
        now = value(running(switch))
    except PlatformError:  # The datapath does not serve the switch; what is kept stands all the same.
        now = None
    return Setting(name, value(record), "property", value(record), now)


def _fpo_setting(switch: Switch) -> Setting:
    record = stored(switch, properties.FPO)
    if record is None:
        return Setting("fpo", properties.FPO_DEFAULT, "default", None, None)
    return Setting("fpo", record[0], "property", record[0], None)
