"""A host's fast-path virtual switch: its switches, ports, uplinks, flows, MAC tables and load balancer.

    import ryn

    host = ryn.Host()
    for switch in host.switches():
        for port in switch.ports():
            print(port, port.kind, port.counters().total.tx_packets)

Importing this needs no platform library; making a Host does. docs/ryn.md is the guide.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

try:
    import ryn._records  # noqa: F401
except ModuleNotFoundError as _error:
    import sys

    raise ImportError(
        f"ryn in {__path__[0]} is not built for this interpreter, {sys.executable}; where it was built, the build"
        " folder belongs on the path (PYTHONPATH=build:build/libryn), and not the sources' folder before it"
    ) from _error

from ryn._records import (
    BalancerCore,
    BalancerEdge,
    BalancerGroup,
    BalancerPort,
    BalancerVertex,
    Counters,
    CounterTable,
    Device,
    DvsRecord,
    Flow,
    FlowFilter,
    FlowStats,
    FpoStats,
    MacAddress,
    MacEntry,
    MacTable,
    Mirror,
    NetQ,
    NetQFilter,
    NetQQueue,
    Offload,
    PortConfig,
    PortCounters,
    Rates,
    SwitchRecord,
    Teaming,
    UplinkCounters,
    Weights,
)
from ryn.balancer import Balancer
from ryn.errors import (
    Ambiguous,
    BadParameter,
    Error,
    Gone,
    InvalidResponse,
    NotApplied,
    NotFound,
    PlatformError,
    PlatformNotFound,
)
from ryn.errors import TimeoutError as TimeoutError  # noqa: F401, not in __all__: it would hide the builtin
from ryn.flows import Flows
from ryn.host import Host
from ryn.names import Actions, Kind, ReceiveFlags
from ryn.port import Port
from ryn.rates import PortKey, Reading, Tick
from ryn.records import BalancerStats, Edge, Options, RingSize, Setting, Snapshot
from ryn.switch import Switch
from ryn.uplink import Uplink

if TYPE_CHECKING:
    import _libryn as raw  # noqa: F401

__all__ = [
    "Actions",
    "Ambiguous",
    "BadParameter",
    "Balancer",
    "BalancerCore",
    "BalancerEdge",
    "BalancerGroup",
    "BalancerPort",
    "BalancerStats",
    "BalancerVertex",
    "CounterTable",
    "Counters",
    "Device",
    "DvsRecord",
    "Edge",
    "Error",
    "Flow",
    "FlowFilter",
    "FlowStats",
    "Flows",
    "FpoStats",
    "Gone",
    "Host",
    "InvalidResponse",
    "Kind",
    "MacAddress",
    "MacEntry",
    "MacTable",
    "Mirror",
    "NetQ",
    "NetQFilter",
    "NetQQueue",
    "NotApplied",
    "NotFound",
    "Offload",
    "Options",
    "PlatformError",
    "PlatformNotFound",
    "Port",
    "PortConfig",
    "PortCounters",
    "PortKey",
    "Rates",
    "Reading",
    "ReceiveFlags",
    "RingSize",
    "Setting",
    "Snapshot",
    "Switch",
    "SwitchRecord",
    "Teaming",
    "Tick",
    "Uplink",
    "UplinkCounters",
    "Weights",
]


def __getattr__(name: str) -> Any:
    """`ryn.raw` is the module `_libryn`, imported when it is first asked for."""
    if name != "raw":
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    import importlib

    from ryn.host import platform_not_found

    try:
        module = importlib.import_module("_libryn")
    except ModuleNotFoundError:
        raise
    except ImportError as error:
        raise platform_not_found(error) from error
    globals()["raw"] = module
    return module
