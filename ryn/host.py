"""A host: its switches, and what belongs to all of them."""

from __future__ import annotations

import importlib
import os
import re
import time
from typing import TYPE_CHECKING, Any, Dict, Iterable, Iterator, List, Optional, Sequence, Set, Tuple, Union, cast

from ryn._records import Device, MacAddress, MacEntry, Weights
from ryn.errors import Ambiguous, NotFound, PlatformNotFound
from ryn.flows import Flows, flow_filter, table_cores
from ryn.names import decimal
from ryn.port import Port
from ryn.rates import Reading, Tick
from ryn.settable import Settable
from ryn.settings import settle, word
from ryn.switch import Switch, portset_name

if TYPE_CHECKING:
    from ryn._core import Platform


class Host:
    """This host, through its platform libraries, which are loaded when the first Host is made.

    The configuration of the distributed switches is read anew. `timeout` is how many seconds an operation of the
    platform may take before TimeoutError is raised; by default as long as it takes. `settle` is how many seconds a
    setting is read back after it was changed, before NotApplied is raised.

    PlatformNotFound where a library is missing, PlatformError where the configuration cannot be read, ValueError for
    negative seconds. A Host may be used by several threads; the platform does one operation at a time.

    >>> host = Host()
    >>> host.backend
    'simulated'
    >>> host.switches()
    [<ryn.Switch 0 dvs-1>, <ryn.Switch 1 dvs-2>, <ryn.Switch None dvs-3>]
    >>> port = host.port("dvs-1/3")
    >>> print(port, port.kind, port.mac)
    dvs-1/3 VNIC 02:00:00:07:00:03
    """

    def __init__(self, timeout: Optional[float] = None, settle: float = 1.0):
        if not settle >= 0:
            raise ValueError(f"settle is a number of seconds from 0 on, not {settle!r}")
        if timeout is not None and not timeout > 0:
            raise ValueError(f"timeout is a number of seconds above 0, not {timeout!r}")
        core = _core()
        self.settle = settle
        self.platform: Platform = core.Platform(timeout)
        self.backend: str = core.backend()
        self.reload()

    def reload(self) -> None:
        """Reads the switch configuration anew, for the whole process. Where that fails the former one stays."""
        self.platform.reload()

    # Switches and ports

    def switches(self) -> List[Switch]:
        """All switches: those of the datapath in its order, then those that only the configuration knows."""
        configured = self.platform.configured_switches()
        names = [portset_name(record) for record in configured]
        switches: List[Switch] = []
        taken: Set[int] = set()
        for record in self.platform.switches():
            matches = [i for i, name in enumerate(names) if name == record.name]
            taken.update(matches)
            # Two of the configuration may claim one of the datapath; each can be told by its alias.
            switches += [Switch(self, record, configured[i]) for i in matches]
            if not matches:
                switches.append(Switch(self, record, None))
        rest = (record for i, record in enumerate(configured) if i not in taken)
        return switches + [Switch(self, None, record) for record in rest]

    def _datapath_switches(self) -> List[Switch]:
        """Those of the datapath, each once."""
        switches: Dict[int, Switch] = {}
        for switch in self.switches():
            if switch.number is not None:
                switches.setdefault(switch.number, switch)
        return list(switches.values())

    def switch(self, which: Union[int, str]) -> Switch:
        """A switch by its number, or by a text: an alias, else a name, else a number in digits.

        NotFound where there is none; Ambiguous where two are meant, and both are named; TypeError for what is neither
        an int nor a text.
        """
        if not isinstance(which, (int, str)):
            raise TypeError(f"a switch is a number or a text, not {which!r}")
        switches = self.switches()
        if isinstance(which, int):
            steps = [[s for s in switches if s.number == which]]
        else:
            number = decimal(which)
            steps = [
                [s for s in switches if s.alias == which],
                [s for s in switches if s.name == which],
                [s for s in switches if s.number is not None and s.number == number],
            ]
        for matches in steps:
            if len(matches) > 1:
                names = " and ".join(map(_full_name, matches))
                raise Ambiguous(f"switch {which!r} is more than one: {names}")
            if matches:
                return matches[0]
        raise NotFound(f"there is no switch {which!r}")

    def port(self, which: str) -> Port:
        """A port by the text SWITCH/NUMBER, such as "dvs-1/3". NotFound where there is none, ValueError for a text of
        another form."""
        if not isinstance(which, str):
            raise TypeError(f"a port is a text SWITCH/NUMBER, not {which!r}")
        switch, slash, digits = which.rpartition("/")
        number = decimal(digits)
        if not slash or number is None:
            raise ValueError(f"a port is SWITCH/NUMBER, not {which!r}")
        return self.switch(switch).port(number)

    @property
    def cores(self) -> Tuple[int, ...]:
        """The numbers of the datapath's cores; () where there is no switch."""
        found: Set[int] = set()
        for record in self.platform.switches():
            found.update(self.platform.cores(record.number))
        return tuple(sorted(found))

    # Counters

    def counters(self) -> Reading[Port]:
        """The counters of every port of every switch. A port that goes meanwhile is left out."""
        switches = [(switch.datapath_number(), switch) for switch in self._datapath_switches()]
        ports, table = self.platform.all_counters(switches, Port)
        return Reading(ports, table)

    def watch(self, interval: float = 2.0) -> Iterator[Tick[Port]]:
        """The rates of all ports between one reading and the next, every `interval` seconds, without an end.

        ValueError for an interval that is not above 0.
        """
        if not interval > 0:
            raise ValueError(f"an interval is a number of seconds above 0, not {interval!r}")
        return self._watch(interval)

    def _watch(self, interval: float) -> Iterator[Tick[Port]]:
        earlier = self.counters()
        due = time.monotonic()
        while True:
            # From one due time to the next, so that what the readings take does not add up.
            due = max(due + interval, time.monotonic())
            time.sleep(max(0.0, due - time.monotonic()))
            later = self.counters()
            yield later.rates(earlier)
            earlier = later

    # Flows and MAC addresses of all switches

    def flows(self, *, cores: Optional[Iterable[int]] = None, offloaded: bool = False, **wanted: Any) -> Flows:
        """The flows of all switches; the filters are those of `Switch.flows`."""
        chosen = None if cores is None else table_cores(cores)
        return Flows(self._datapath_switches(), flow_filter(**wanted), chosen, bool(offloaded))

    @property
    def flow_timeout(self) -> int:
        """The seconds after which an unused flow is forgotten, on the whole host."""
        return self.platform.flow_timeout()

    @flow_timeout.setter
    def flow_timeout(self, seconds: int) -> None:
        seconds = word("flow_timeout", seconds)
        self.platform.set_flow_timeout(seconds)
        settle("flow_timeout", lambda: self.flow_timeout, seconds, self.settle)

    def find_mac(self, mac: Union[str, bytes, MacAddress]) -> List[Tuple[Switch, MacEntry]]:
        """Where a MAC address is known: pairs of switch and row. A text may end in "*" after whole bytes."""
        return [(switch, row) for switch in self._datapath_switches() for row in switch.macs().find(mac)]

    # Devices, balancer weights, buffer pools

    def devices(self) -> List[Device]:
        """The host's network devices, each with its affinity (assumed: a NUMA node)."""
        return self.platform.devices()

    def set_affinity(self, device: str, affinity: int) -> None:
        """Sets the affinity of a device, a number of 32 bits."""
        if not isinstance(device, str):
            raise TypeError(f"a device is a name, not {device!r}")
        affinity = word("affinity", affinity)
        self.platform.set_affinity(device, affinity)
        settle(f"affinity of {device}", lambda: self._affinity(device), affinity, self.settle)

    def _affinity(self, device: str) -> Optional[int]:
        return next((d.affinity for d in self.devices() if d.name == device), None)

    def _get_weights(self) -> Weights:
        """The eight weights by which the balancers of all switches judge a move.

        Set to eight numbers of 32 bits; None leaves one as it is.
        """
        return self.platform.weights()

    def _set_weights(self, weights: Sequence[Optional[int]]) -> None:
        wanted = tuple(weights)
        if len(wanted) != len(Weights._fields):
            raise ValueError(f"there are {len(Weights._fields)} weights, not {len(wanted)}")
        new = tuple(None if weight is None else word(name, weight) for name, weight in zip(Weights._fields, wanted))
        if None in new:
            new = tuple(old if weight is None else weight for old, weight in zip(self.balancer_weights, new))
        self.platform.set_weights(cast(Tuple[int, ...], new))
        settle("balancer_weights", lambda: tuple(self.balancer_weights), new, self.settle)

    balancer_weights = Settable(_get_weights, _set_weights)

    def reset_balancer_weights(self) -> None:
        """Gives the weights their default values."""
        self.platform.reset_weights()

    def init_fastslabs(self) -> bool:
        """Sets up the pools of packet buffers; False, with nothing done, where the configuration has no switch that
        the datapath serves."""
        return self.platform.init_fastslabs()

    def __repr__(self) -> str:
        return f"<ryn.Host {self.backend}>"


def _full_name(switch: Switch) -> str:
    known = f"switch {switch.number}" if switch.number is not None else "a switch of the configuration"
    alias = "" if switch.alias is None else f", alias {switch.alias!r}"
    identifier = "" if switch.id is None else f", id {switch.id!r}"
    return f"{known} (name {switch.name!r}{alias}{identifier})"


def _core() -> Any:
    """The extension that calls the platform; PlatformNotFound where it finds no platform."""
    try:
        return importlib.import_module("ryn._core")
    except ModuleNotFoundError:
        raise
    except ImportError as error:
        raise platform_not_found(error) from error


def platform_not_found(error: ImportError) -> PlatformNotFound:
    """What to say where an extension could not be loaded."""
    match = re.search(r"lib(?:ryn|jorPublic)\.so", str(error))
    library = match[0] if match else None
    searched = [folder for folder in os.environ.get("LD_LIBRARY_PATH", "").split(":") if folder]
    where = "LD_LIBRARY_PATH (" + (":".join(searched) or "not set") + ") and the system's folders"
    return PlatformNotFound(
        f"{library or 'a library of the platform'} cannot be loaded: {error}\n"
        f"Looked for in {where}. Where there is no such host, run the script on a simulated one:"
        " ryn-sim run -- python3 SCRIPT",
        library,
        searched,
    )
