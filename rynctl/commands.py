"""The commands: one row each, from which parsing, help, completion and the man page are made."""

from __future__ import annotations

from typing import Dict, NamedTuple, Optional, Tuple


class Argument(NamedTuple):
    name: str  # as it is shown: SWITCH, [SWITCH], VALUE...
    text: str
    names: str = ""  # what completion offers: switches, ports, or a word list

    @property
    def key(self) -> str:
        return self.name.strip("[].").lower()

    @property
    def nargs(self) -> Optional[str]:
        if self.name.endswith("..."):
            return "*" if self.name.startswith("[") else "+"
        return "?" if self.name.startswith("[") else None


class Option(NamedTuple):
    flag: str
    metavar: str  # "" for one without a value
    text: str
    choices: Tuple[str, ...] = ()
    repeat: bool = False

    @property
    def key(self) -> str:
        return self.flag.lstrip("-").replace("-", "_")


class Command(NamedTuple):
    words: Tuple[str, ...]
    arguments: Tuple[Argument, ...]
    text: str
    run: str  # MODULE:FUNCTION, imported when the command is used
    kind: str  # "list" and "show" read rows, "change" changes, "other"
    options: Tuple[Option, ...] = ()
    methods: Tuple[str, ...] = ()  # the methods of _libryn that it takes the place of

    @property
    def name(self) -> str:
        return " ".join(self.words)

    @property
    def table(self) -> str:
        return ".".join(self.words)


# Options of all commands, and of those of a kind.
COMMON = (
    Option("--output", "FORMAT", "table, json, jsonl or csv", ("table", "json", "jsonl", "csv")),
    Option("--json", "", "the same as --output json"),
    Option("--columns", "LIST", "these columns, in this order: name,mtu"),
    Option("--color", "WHEN", "auto, always or never; goes before NO_COLOR", ("auto", "always", "never")),
    Option("--timeout", "SECONDS", "give up when the platform does not answer for so long"),
    Option("--host", "USER@HOST", "run the command there, through ssh"),
)
SHORT = {"--output": "-o", "--json": "-j"}
ROWS = (
    Option("--sort", "KEY", "sort by a column; --sort=-KEY from the greatest down"),
    Option("--filter", "EXPRESSION", "only rows where 'KEY OP VALUE' holds (= != < <= > >= ~)", (), True),
    Option("--limit", "N", "at most so many rows"),
)
WATCH = (
    Option("--watch", "", "repeat until interrupted"),
    Option("--interval", "SECONDS", "between two repetitions (2)"),
    Option("--count", "N", "end after so many repetitions"),
)
CHANGE = (
    Option("--dry-run", "", "say what would be changed, and change nothing"),
    Option("--yes", "", "do not ask, even where it is dangerous"),
)
OPTIONS = {"list": COMMON + ROWS + WATCH, "show": COMMON + ROWS, "change": COMMON + CHANGE, "other": COMMON}

_S = Argument("SWITCH", "a switch: its name, alias or number", "switches")
_SS = Argument("[SWITCH]", "a switch: its name, alias or number; without it all", "switches")
_P = Argument("PORT", "a port: SWITCH/NUMBER", "ports")
_SP = Argument("SWITCH|PORT", "a switch, or a port as SWITCH/NUMBER", "ports")
_SPP = Argument("[SWITCH|PORT]", "a switch, or a port as SWITCH/NUMBER; without it all", "ports")
_MAC = Argument("MAC", "a MAC address: 02:00:00:aa:bb:cc")
_KEY = Argument("[KEY]", "one setting; without it all that can be read")
_VLAN = (Option("--vlan", "N", "VLAN, 0 to 4095 (0)"),)
_FLOWS = (
    Option("--src", "ADDRESS", "source address or network"),
    Option("--dst", "ADDRESS", "destination address or network"),
    Option("--sport", "N", "source port"),
    Option("--dport", "N", "destination port"),
    Option("--protocol", "P", "IP protocol: a number or tcp, udp, icmp, icmp6"),
    Option("--action", "NAME", "an action: DROP"),
    Option("--core", "N", "the flows of this core, 0 to 31", (), True),
    Option("--offloaded", "", "only flows that a NIC handles (assumed)"),
)


def _set(key: str, text: str) -> Tuple[Argument, Argument]:
    return Argument("KEY", text, key), Argument("VALUE...", "the new value")


def _list(
    words: str,
    arguments: Tuple[Argument, ...],
    text: str,
    run: str,
    *methods: str,
    options: Tuple[Option, ...] = (),
    kind: str = "list",
) -> Command:
    return Command(tuple(words.split()), arguments, text, f"rynctl.rows:{run}", kind, options, methods)


def _change(
    words: str, arguments: Tuple[Argument, ...], text: str, run: str, *methods: str, options: Tuple[Option, ...] = ()
) -> Command:
    return Command(tuple(words.split()), arguments, text, f"rynctl.changes:{run}", "change", options, methods)


def _other(words: str, arguments: Tuple[Argument, ...], text: str, run: str, *options: Option) -> Command:
    return Command(tuple(words.split()), arguments, text, run, "other", options)


_COMMANDS = (
    _list("switch list", (_SS,), "list switches", "switches", "ListSwitches"),
    _list("switch show", (_S,), "show a switch with its ports and cores", "switch_show", kind="show"),
    _list(
        "switch get",
        (_S, _KEY),
        "show settings of a switch",
        "switch_get",
        "GetSwitchBurstSize",
        "GetSwitchNUMATeam",
        "GetSwitchLRO",
        "GetPanicOnTxHang",
        kind="show",
    ),
    _change(
        "switch set",
        (_S, *_set("burst_size numa_teaming lro panic_on_tx_hang uplink_mac_learn", "the setting")),
        "change a setting of a switch",
        "switch_set",
        "SetSwitchBurstSize",
        "SetSwitchNUMATeam",
        "SetSwitchLRO",
        "SetPanicOnTxHang",
        "SetUplinkMACLearn",
    ),
    _list("port list", (_SS,), "list ports", "ports", "ListPorts"),
    _list(
        "port show",
        (_P,),
        "show a port with its configuration",
        "port_show",
        "GetPortConf",
        "GetPortTxUplink",
        kind="show",
    ),
    _list(
        "port stats",
        (_SPP,),
        "show counters of ports, of both paths together and of each",
        "port_stats",
        "GetPortStats",
    ),
    _list("port get", (_P, _KEY), "show settings of a port", "port_get", "GetPortLRO", "GetPortTxUplink", kind="show"),
    _change(
        "port set",
        (_P, *_set("lro teaming", "the setting: lro, or teaming TYPE UPLINK...")),
        "change a setting of a port",
        "port_set",
        "SetPortLRO",
        "SetPortTxUplink",
    ),
    _change("port reset", (_P,), "reset a port; its counters may start anew", "port_reset", "ResetPort"),
    _change(
        "port migrate",
        (
            _P,
            Argument("A", "the core to send on (assumed)"),
            Argument("B", "the core to receive on (assumed)"),
            Argument("C", "1 to pin the port there (assumed)"),
        ),
        "move a port between cores",
        "port_migrate",
        "MigratePort",
    ),
    _change(
        "port unpin",
        (_P, Argument("N", "a number that is handed over as it is")),
        "let the balancer move a port again",
        "port_unpin",
        "UnpinPort",
    ),
    _list("uplink list", (_SS,), "list uplinks", "uplinks"),
    _list("uplink show", (_P,), "show an uplink", "uplink_show", "GetFPOUplinkStatus", kind="show"),
    _list("uplink stats", (_SPP,), "show the 24 counters of uplinks", "uplink_stats", "GetUplinkStats"),
    _list(
        "uplink queues", (_P,), "show the counters of each queue of an uplink", "uplink_queues", "GetUplinkQueueStats"
    ),
    _list("uplink dump", (_P,), "show the driver's own statistics", "uplink_dump", "GetUplinkStats"),
    _list("uplink get", (_P, _KEY), "show settings of an uplink", "uplink_get", "GetUplinkRingSize", kind="show"),
    _change(
        "uplink set",
        (_P, *_set("ring_size", "the setting: ring_size TX RX")),
        "change a setting of an uplink",
        "uplink_set",
        "SetUplinkRingSize",
    ),
    _list(
        "mac list",
        (_SP,),
        "list the MAC addresses of a switch or a port",
        "macs",
        "ListSwitchMACTable",
        "ListPortMACTable",
    ),
    _change("mac add", (_P, _MAC), "add a MAC address to a port", "mac_add", "AddMACEntry", options=_VLAN),
    _change("mac del", (_P, _MAC), "delete a MAC address from a port", "mac_del", "DelMACEntry", options=_VLAN),
    _change(
        "mac clear",
        (_SP,),
        "forget the MAC addresses of a switch or a port",
        "mac_clear",
        "ClearSwitchMACTable",
        "ClearPortMACTable",
    ),
    _list("flow list", (_SS,), "list flows", "flows", "DumpFlowTable", options=_FLOWS + _VLAN),
    _list("flow dump", (_S,), "list the flows of a switch", "flows", "DumpFlowTable", options=_FLOWS + _VLAN),
    _list("flow stats", (_SS,), "show hits and misses of the flow cache by core", "flow_stats", "GetFlowStats"),
    _change("flow clear", (_S,), "empty the flow cache of a switch", "flow_clear", "ClearSwitchFlowTable"),
    _change("flow enable", (_S,), "turn the flow cache of a switch on", "flow_enable", "EnableSwitchFlowCache"),
    _change("flow disable", (_S,), "turn the flow cache of a switch off", "flow_disable", "EnableSwitchFlowCache"),
    _list("mirror list", (_SS,), "list mirror sessions", "mirrors", "GetMirrorConf"),
    _list("mirror show", (_S,), "show the mirror sessions of a switch", "mirrors", kind="show"),
    _list("netq list", (_P,), "list the receive filters of a port", "netq", "GetPortNetQInfo"),
    _list("netq show", (_P,), "show the receive filters of a port", "netq", kind="show"),
    _list("lb list", (_SS,), "list the balancer's options by switch", "lb", "GetLBParams", "GetLBAlgorithm"),
    _list("lb show", (_S,), "show the balancer's options on a switch", "lb", kind="show"),
    _list("lb stats", (_SS,), "show the balancer's figures of ports", "lb_stats", "DumpLBPortStats"),
    _list("lb dump", (_S,), "show the balancer's last snapshot", "lb_dump", "DumpLBSnapshot"),
    _list(
        "lb get",
        (_S, _KEY),
        "show settings of the balancer on a switch",
        "lb_get",
        "GetLBParams",
        "GetLBAlgorithm",
        kind="show",
    ),
    _change(
        "lb set",
        (_S, *_set("algorithm high low pause sensitivity", "the setting")),
        "change a setting of the balancer on a switch",
        "lb_set",
        "SetLBParams",
        "SetLBAlgorithm",
    ),
    _list("fpo list", (_SS,), "list what uplinks can take over of flow processing", "fpo", "GetFPOUplinkStatus"),
    _list("fpo show", (_S,), "the same of one switch", "fpo", kind="show"),
    _list("fpo stats", (_SS,), "show what NICs took over, by core", "fpo_stats", "GetFPOStats"),
    _list(
        "fpo get", (_S, _KEY), "show whether offload is enabled on a switch", "fpo_get", "GetFPOEnabled", kind="show"
    ),
    _change("fpo enable", (_S,), "turn flow processing offload on", "fpo_enable", "EnableFPO"),
    _change("fpo disable", (_S,), "turn flow processing offload off", "fpo_disable", "EnableFPO"),
    _list("core list", (_SS,), "list cores with the balancer's last figures", "cores", "ListLCoreIDs"),
    _list("core show", (Argument("CORE", "number of a core"),), "show a core", "core_show", kind="show"),
    _list("device list", (), "list NICs", "devices", "ListDevAffinity"),
    _list("device show", (Argument("DEVICE", "name of a NIC", "devices"),), "show a NIC", "device_show", kind="show"),
    _list(
        "device get",
        (Argument("DEVICE", "name of a NIC", "devices"), _KEY),
        "show settings of a NIC",
        "device_get",
        "ListDevAffinity",
        kind="show",
    ),
    _change(
        "device set",
        (Argument("DEVICE", "name of a NIC", "devices"), *_set("affinity", "the setting")),
        "change a setting of a NIC",
        "device_set",
        "SetDevAffinity",
    ),
    _list("host list", (), "show the host", "host", kind="list"),
    _list("host show", (), "show the host", "host", kind="show"),
    _list("host get", (_KEY,), "show settings of the host", "host_get", "GetFlowTimeout", "GetLBWeights", kind="show"),
    _change(
        "host set",
        (
            Argument(
                "KEY",
                "the setting: flow_timeout, weights.NAME or fastslabs",
                "flow_timeout fastslabs weights.vm_affinity",
            ),
            Argument("[VALUE]...", "the new value"),
        ),
        "change a setting of the host",
        "host_set",
        "SetFlowTimeout",
        "SetLBWeights",
        "InitMbufFastslabs",
    ),
    _change(
        "host reset",
        (Argument("WHAT", "weights", "weights"),),
        "give the balancer's weights their defaults",
        "host_reset",
        "ResetLBWeights",
    ),
    Command(
        ("top",),
        (Argument("[WHAT]", "ports, cores or flows (ports)", "ports cores flows"),),
        "show the busiest ports, cores or flows, live",
        "rynctl.top:run",
        "other",
        ROWS + (WATCH[1], WATCH[2]),
    ),
    Command(
        ("find",),
        (Argument("WHAT", "a MAC or IP address, a switch, a port or a device"),),
        "say where something is: switch, port, uplinks, cores, flows",
        "rynctl.find:rows",
        "show",
    ),
    _other(
        "diff",
        (Argument("BEFORE", "a saved output of -j"), Argument("AFTER", "a later one")),
        "compare two saved outputs",
        "rynctl.diff:run",
        *ROWS,
    ),
    _other("doctor", (), "check interpreter, module, libraries and configuration", "rynctl.doctor:run"),
    _other(
        "raw",
        (
            Argument("METHOD", "a method of _libryn"),
            Argument("[ARGUMENT]...", "Python literals; anything else is a text"),
        ),
        "call a method of _libryn as it is",
        "rynctl.raw:run",
    ),
    _other(
        "completion",
        (Argument("SHELL", "bash or zsh", "bash zsh"),),
        "print a completion script",
        "rynctl.completion:run",
    ),
)

COMMANDS: Dict[Tuple[str, ...], Command] = {command.words: command for command in _COMMANDS}
OBJECTS: Tuple[str, ...] = tuple(dict.fromkeys(words[0] for words in COMMANDS if len(words) == 2))
SINGLES: Tuple[str, ...] = tuple(words[0] for words in COMMANDS if len(words) == 1)


def verbs(name: str) -> Tuple[str, ...]:
    return tuple(words[1] for words in COMMANDS if len(words) == 2 and words[0] == name)


def options(command: Command) -> Tuple[Option, ...]:
    return OPTIONS[command.kind] + command.options


def options_with_values() -> Dict[str, bool]:
    """Every option of any command, and whether it takes a value: needed before the command is known."""
    found: Dict[str, bool] = {}
    for command in COMMANDS.values():
        for option in options(command):
            found[option.flag] = bool(option.metavar)
            if option.flag in SHORT:
                found[SHORT[option.flag]] = bool(option.metavar)
    return found
