"""The load balancer of a switch, which places the switch's ports on cores."""

from __future__ import annotations

from typing import TYPE_CHECKING, Optional, Sequence, cast

from ryn import properties
from ryn.names import ALGORITHMS
from ryn.records import BalancerStats, Options, Snapshot
from ryn.settable import Settable
from ryn.settings import balancer_record, kept_value, settle, store, word

if TYPE_CHECKING:
    from ryn.switch import Switch


class Balancer:
    """`switch.balancer`.

    >>> import ryn
    >>> balancer = ryn.Host().switch("dvs-1").balancer
    >>> balancer.algorithm, balancer.options
    ('cpu', Options(high=60, low=40, pause=10, sensitivity=5))
    >>> balancer.options = (70, 30, None, None)
    >>> balancer.options
    Options(high=70, low=30, pause=10, sensitivity=5)
    """

    __slots__ = ("switch",)

    def __init__(self, switch: Switch):
        self.switch = switch

    @property
    def algorithm(self) -> str:
        """What is balanced: "none", "cpu" (usage of cores) or "count" (number of ports); "invalid" where a number
        without a name is kept.

        Setting it keeps it together with the options of that moment. ValueError for another name.
        """
        return cast(str, kept_value(self.switch, "algorithm"))

    @algorithm.setter
    def algorithm(self, name: str) -> None:
        if not isinstance(name, str):
            raise TypeError(f"an algorithm is a name, not {name!r}")
        if name not in ALGORITHMS:
            raise ValueError(f"there is no algorithm {name!r}; there are {', '.join(ALGORITHMS)}")
        record = balancer_record(self.switch)
        store(self.switch, properties.BALANCER, ALGORITHMS.index(name), *record[1:])
        settle("algorithm", lambda: self.algorithm, name, self.switch.host.settle)

    def _get_options(self) -> Options:
        """The four thresholds: (high, low, pause, sensitivity).

        Set to four numbers of 32 bits; None leaves one as it is. ValueError where low would be above high.
        """
        return cast(Options, kept_value(self.switch, "options"))

    def _set_options(self, wanted: Sequence[Optional[int]]) -> None:
        wanted = tuple(wanted)
        if len(wanted) != len(Options._fields):
            raise ValueError(f"the options are four numbers, not {len(wanted)}")
        changes = [None if value is None else word(name, value) for name, value in zip(Options._fields, wanted)]
        metric, *now = balancer_record(self.switch)
        new = Options(*(old if value is None else value for old, value in zip(now, changes)))
        if new.low > new.high:
            raise ValueError(f"the low threshold {new.low} is above the high one, {new.high}")
        store(self.switch, properties.BALANCER, metric, *new)
        settle("options", lambda: self.options, new, self.switch.host.settle)

    options = Settable(_get_options, _set_options)

    def snapshot(self) -> Snapshot:
        """The topology that the balancer saw last: groups of ports, vertices and edges.

        Records that reach past the platform's answer of 4096 bytes are left out.
        """
        groups, vertices = self.switch.platform.balancer_snapshot(self.switch.datapath_number())
        return Snapshot(tuple(groups), tuple(vertices))

    def port_stats(self) -> BalancerStats:
        """The balancer's last figures of ports 0 to 127 and cores 0 to 63: usage in percent of a core's time, load in
        units of 100,000."""
        ports, cores = self.switch.platform.balancer_port_stats(self.switch.datapath_number())
        return BalancerStats(tuple(ports), tuple(cores))

    def __repr__(self) -> str:
        return f"<ryn.Balancer of {self.switch}>"
