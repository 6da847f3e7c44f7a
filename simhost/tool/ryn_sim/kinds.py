"""Kinds of values: how one is written in a description, how it is kept in the store, and how it is shown again."""

from __future__ import annotations

import ipaddress
import re
from dataclasses import dataclass, field, replace
from fractions import Fraction
from typing import Any, Callable, Mapping

from . import units, values
from .errors import nearest

LONGEST_NS = 1 << 62  # what the clock can count: 146 years


class Wrong(ValueError):
    """A value is not of its kind. The text says what was expected.

    at: which item of it is wrong; message: the whole of what is to be said, instead of "expected ..., got ...".
    """

    def __init__(self, expected: str = "", at: tuple[int, ...] = (), message: str = ""):
        super().__init__(expected)
        self.at = at
        self.message = message


def _same(value: Any) -> Any:
    return value


@dataclass(frozen=True)
class Kind:
    """One kind of value."""

    expected: str  # completes the message "expected ..."
    parse: Callable[[Any], Any]  # what a description says -> what the store keeps; raises Wrong
    show: Callable[[Any], Any] = _same  # and back
    schema: Mapping[str, Any] = field(default_factory=dict)  # JSON schema of what a description says
    sql: str = "INTEGER"
    low: int | None = None  # limits in the store: of a number, or of a text's or blob's length in bytes
    high: int | None = None
    choices: tuple[str, ...] = ()  # of a text: what it may be, in the order of the enumerators that `cxx` has
    cxx: str = "std::int64_t"  # the field that holds it in the stand-ins
    unit: str = ""  # of the number in the store
    plain: Callable[[Any], Any] | None = None  # the number where `show` makes a text for people, such as 25G or 10s

    def held_as(self, cxx: str) -> Kind:
        """The same, in another field of the stand-ins' rows."""
        return replace(self, cxx=cxx)

    def typed(self, stored: Any) -> Any:
        """What the store keeps as a value of its own type: seconds, bits or packets a second as numbers."""
        return None if stored is None else (self.plain or self.show)(stored)


def _integer(value: Any) -> bool:
    return isinstance(value, int) and not isinstance(value, bool)


def _number(value: Any) -> bool:
    return isinstance(value, (int, float)) and not isinstance(value, bool)


_CXX_INTEGERS = (("std::uint16_t", 0, 2**16 - 1), ("std::uint32_t", 0, 2**32 - 1))


def number(low: int, high: int, what: str = "a number", cxx: str = "", unit: str = "", expected: str = "") -> Kind:
    """A whole number, kept as it is."""
    expected = expected or f"{what} from {low} to {high}"

    def parse(value: Any) -> int:
        if not _integer(value) or not low <= value <= high:
            raise Wrong(expected)
        return int(value)

    fitting = [name for name, least, most in _CXX_INTEGERS if least <= low and high <= most]
    schema = {"type": "integer", "minimum": low, "maximum": high}
    return Kind(expected, parse, schema=schema, low=low, high=high, unit=unit, cxx=cxx or [*fitting, "std::int64_t"][0])


def word64(what: str = "a number from 0 to 18446744073709551615") -> Kind:
    """64 bits, kept as the signed number of the same bits."""

    def parse(value: Any) -> int:
        if not _integer(value) or not 0 <= value < 1 << 64:
            raise Wrong(what)
        return values.signed(value)

    schema = {"type": "integer", "minimum": 0, "maximum": 2**64 - 1}
    return Kind(what, parse, values.unsigned, schema, low=-(2**63), high=2**63 - 1, cxx="std::uint64_t")


def text(low: int = 0, high: int = 2**16, expected: str = "a text", pattern: str = "") -> Kind:
    """A text of so many bytes in UTF-8."""

    def parse(value: Any) -> str:
        if not isinstance(value, str) or "\0" in value or not low <= len(value.encode()) <= high:
            raise Wrong(expected)
        if pattern and not re.fullmatch(pattern, value):
            raise Wrong(expected)
        return value

    schema: dict[str, Any] = {"type": "string"}
    if low:
        schema["minLength"] = low
    if pattern:
        schema["pattern"] = f"^{pattern}$"
    return Kind(expected, parse, schema=schema, sql="TEXT", low=low, high=high, cxx="std::string")


def choice(*names: str, enum: str) -> Kind:
    """One of a few texts, kept as it is. enum: the type that has its number in the stand-ins, made from these texts."""
    expected = "one of " + ", ".join(names)

    def parse(value: Any) -> str:
        if value not in names:
            raise Wrong(expected)
        return str(value)

    return Kind(expected, parse, schema={"enum": list(names)}, sql="TEXT", choices=names, cxx=enum)


def named(table: Mapping[str, int], others: tuple[int, int] | None = None, quoted: bool = False) -> Kind:
    """A name that stands for a number. others: the range of numbers without a name, if they may be given."""
    names = [f'"{name}"' if quoted and " " in name else name for name in table]
    expected = "one of " + ", ".join(names)
    if others:
        expected += f", or a number from {others[0]} to {others[1]}"
    shown = {number: name for name, number in table.items()}

    def parse(value: Any) -> int:
        if isinstance(value, str) and value in table:
            return table[value]
        if others and _integer(value) and others[0] <= value <= others[1]:
            return int(value)
        raise Wrong(expected)

    low, high = others or (min(table.values()), max(table.values()))
    schema: dict[str, Any] = {"enum": list(table)}
    if others:
        schema = {"anyOf": [schema, {"type": "integer", "minimum": low, "maximum": high}]}
    cxx = "std::uint32_t"
    return Kind(expected, parse, lambda stored: shown.get(stored, stored), schema, low=low, high=high, cxx=cxx)


def bits(table: Mapping[str, int], what: str, further: int, positions: bool = False) -> Kind:
    """A list of names, each for a bit of a mask.

    further: the largest number that may stand among them; it is a mask, or with `positions` the position of a bit.
    """
    expected = f"a list of {', '.join(table)}" if len(table) < 8 else f"a list of {what} names"

    def bit(item: Any, at: int) -> int:
        if isinstance(item, str):
            if item not in table:
                raise Wrong(at=(at,), message=f'there is no {what} "{item}"{nearest(item, table)}')
            return table[item]
        if not further or not _integer(item) or not 0 <= item <= further:
            raise Wrong(f"a name of a {what}" + (f", or a number from 0 to {further}" if further else ""), (at,))
        return 1 << int(item) if positions else int(item)

    def parse(value: Any) -> int:
        if not isinstance(value, list):
            raise Wrong(expected)
        mask = 0
        for at, item in enumerate(value):
            mask |= bit(item, at)
        return mask

    def show(mask: int) -> list[Any]:
        rest = mask & ~sum(table.values())
        if positions:
            by_bit = {value: name for name, value in table.items()}
            return [by_bit.get(1 << bit, bit) for bit in range(32) if mask >> bit & 1]
        return [name for name, value in table.items() if mask & value] + ([rest] if rest else [])

    items: dict[str, Any] = {"enum": list(table)}
    if further:
        items = {"anyOf": [items, {"type": "integer", "minimum": 0, "maximum": further}]}
    high = 2**32 - 1 if further else sum(table.values())
    return Kind(expected, parse, show, {"type": "array", "items": items}, low=0, high=high, cxx="std::uint32_t")


def _plain(exact: Fraction) -> int | float:
    return int(exact) if exact.denominator == 1 else float(exact)


_DURATION = "a duration such as 30s, 250ms, 1h30m or 2d (a bare number means seconds)"
_DURATION_SCHEMA = {
    "type": ["integer", "number", "string"],
    "minimum": 0,
    "pattern": "^([0-9]+(\\.[0-9]+)?(us|ms|s|m|h|d))+$",
}
_UNIT_NAMES = {1: "nanoseconds", 10**6: "milliseconds", 10**9: "seconds"}


def duration(unit_ns: int = 10**6, low: int = 0, high: int | None = None, cxx: str = "std::int64_t") -> Kind:
    """A time, kept in a unit of so many nanoseconds, from low to high of them."""
    most = LONGEST_NS // unit_ns if high is None else high
    unit = _UNIT_NAMES[unit_ns]

    def parse(value: Any) -> int:
        try:
            ns = units.nanoseconds(value)
        except (ValueError, TypeError, AttributeError):
            raise Wrong(_DURATION) from None
        if ns % unit_ns:
            raise Wrong(f"whole {unit}")
        if ns // unit_ns < low:
            raise Wrong(f"at least {units.duration_text(low * unit_ns)}")
        if ns // unit_ns > most:
            limit = "146 years" if high is None else units.duration_text(high * unit_ns)
            raise Wrong(f"at most {limit}")
        return ns // unit_ns

    short = {1: "ns", 10**6: "ms", 10**9: "s"}[unit_ns]
    return Kind(
        _DURATION,
        parse,
        lambda stored: units.duration_text(stored * unit_ns),
        _DURATION_SCHEMA,
        low=low,
        high=most,
        cxx=cxx,
        unit=short,
        plain=lambda stored: _plain(Fraction(stored * unit_ns, 10**9)),
    )


def quantity(what: str, low: int, high: int, unit: int = 1) -> Kind:
    """A number such as 40k or 25G, kept in multiples of a unit."""
    expected = f"{what} from {units.quantity_text(low * unit)} to {units.quantity_text(high * unit)}"

    def parse(value: Any) -> int:
        try:
            amount = units.quantity(value)
        except (ValueError, TypeError, AttributeError):
            raise Wrong(expected) from None
        if amount % unit or not low <= amount // unit <= high:
            raise Wrong(expected)
        return amount // unit

    schema = {"type": ["integer", "number", "string"], "minimum": 0, "pattern": "^[0-9]+(\\.[0-9]+)?[kMGT]?$"}
    return Kind(
        expected,
        parse,
        lambda stored: units.quantity_text(stored * unit),
        schema,
        low=low,
        high=high,
        plain=lambda stored: stored * unit,
    )


def scaled(expected: str, low: Fraction | int, high: Fraction | int, scale: int, unit: str) -> Kind:
    """A number with a fraction, kept as a multiple of 1/scale."""

    def parse(value: Any) -> int:
        exact = Fraction(str(value)) if _number(value) else Fraction(-1)
        if not low <= exact <= high:
            raise Wrong(expected)
        if (exact * scale).denominator != 1:
            raise Wrong(f"a multiple of {Fraction(1, scale)}")
        return int(exact * scale)

    schema = {"type": "number", "minimum": _plain(Fraction(low)), "maximum": _plain(Fraction(high))}
    least, most = int(low * scale), int(high * scale)
    return Kind(
        expected, parse, lambda stored: _plain(Fraction(stored, scale)), schema, low=least, high=most, unit=unit
    )


_PPS_MOST = 10**9


def rate() -> Kind:
    """Packets a second, kept in thousandths."""
    expected = "packets a second, such as 250, 40k, 1.5M or 0.5"

    def parse(value: Any) -> int:
        try:
            if isinstance(value, str):
                exact = units.exact(value)
            elif _number(value):
                exact = Fraction(str(value))
            else:
                raise ValueError(value)
        except ValueError:
            raise Wrong(expected) from None
        if exact < 0:
            raise Wrong(expected)
        if exact > _PPS_MOST:
            raise Wrong("at most 1G packets a second")
        if (exact * 1000).denominator != 1:
            raise Wrong("a multiple of 0.001 up to 1G")
        return int(exact * 1000)

    def show(stored: int) -> Any:
        exact = Fraction(stored, 1000)
        return units.quantity_text(int(exact)) if exact.denominator == 1 else float(exact)

    schema = {
        "type": ["integer", "number", "string"],
        "minimum": 0,
        "maximum": _PPS_MOST,
        "pattern": "^[0-9]+(\\.[0-9]+)?[kMG]?$",
    }
    return Kind(
        expected,
        parse,
        show,
        schema,
        low=0,
        high=_PPS_MOST * 1000,
        unit="packets in 1000 s",
        plain=lambda stored: _plain(Fraction(stored, 1000)),
    )


def _parse_truth(value: Any) -> int:
    if not isinstance(value, bool):
        raise Wrong("true or false")
    return int(value)


def _parse_setting(value: Any) -> int:
    if not isinstance(value, int) or not 0 <= value < 1 << 32:
        raise Wrong("true, false, or a number from 0 to 4294967295")
    return int(value)


def _parse_mac(value: Any) -> bytes:
    try:
        return units.mac(value)
    except ValueError:
        raise Wrong("a MAC address such as 02:00:00:0a:0b:fc") from None


def _parse_station(value: Any) -> bytes:
    address = _parse_mac(value)
    if address[0] & 1:
        raise Wrong("the address of one station (a group's has an odd first byte)")
    return address


def _parse_group(value: Any) -> bytes:
    address = _parse_mac(value)
    if not address[0] & 1:
        raise Wrong("a group address (its first byte is odd)")
    return address


def _parse_ip(value: Any) -> bytes:
    try:
        if not isinstance(value, str):
            raise ValueError(value)
        return ipaddress.ip_address(value).packed
    except ValueError:
        raise Wrong("an IPv4 or IPv6 address") from None


_MAC_SCHEMA = {"type": "string", "pattern": "^[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}$"}
_MAC = "a MAC address such as 02:00:00:0a:0b:fc"

TRUTH = Kind("true or false", _parse_truth, bool, {"type": "boolean"}, low=0, high=1, cxx="bool")
SETTING = Kind(
    "true, false, or a number from 0 to 4294967295",
    _parse_setting,
    lambda stored: bool(stored) if stored in (0, 1) else stored,
    {"type": ["boolean", "integer"], "minimum": 0, "maximum": 2**32 - 1},
    low=0,
    high=2**32 - 1,
    cxx="std::uint32_t",
)
U16 = number(0, 2**16 - 1)
U24 = number(0, 2**24 - 1)
U32 = number(0, 2**32 - 1)
PPM = number(0, 10**6, "a share in parts of a million", unit="ppm")
VLAN = number(0, 4095, "a VLAN")
LCORE = number(0, 63, "a core number", cxx="int")
CORE = number(-1, 63, cxx="int", expected="a core number from 0 to 63, or -1 where the datapath is to place it")
PORT = number(0, 127, "a port number", cxx="int")
NODE = number(0, 7, "a NUMA node's number", cxx="int")
FRAME = number(60, 65535, "a frame size in bytes", cxx="std::uint32_t", unit="bytes")
SEED = number(0, 2**63 - 1)
NAME = text(1, 127, "a name of 1 to 127 bytes")
MS = duration()
SHARE = scaled("a share from 0 to 1", 0, 1, 1000, "permille")
MAC = Kind(_MAC, _parse_mac, units.mac_text, _MAC_SCHEMA, sql="BLOB", low=6, high=6, cxx="Mac")
STATION = replace(MAC, parse=_parse_station)
GROUP = replace(MAC, parse=_parse_group)
IP = Kind(
    "an IPv4 or IPv6 address",
    _parse_ip,
    lambda raw: str(ipaddress.ip_address(raw)),
    {"type": "string", "pattern": "^([0-9]{1,3}(\\.[0-9]{1,3}){3}|[0-9A-Fa-f:.]*:[0-9A-Fa-f:.]*)$"},
    sql="BLOB",
    low=4,
    high=16,
    cxx="std::vector<std::uint8_t>",
)
BYTES = Kind("bytes", _same, sql="BLOB", low=0, high=2**24, cxx="std::vector<std::uint8_t>")


def listed(item: Kind, most: int, expected: str) -> Kind:
    """A list of values of one kind; it has a table of its own in the store."""

    def parse(value: Any) -> list[Any]:
        if not isinstance(value, list) or len(value) > most:
            raise Wrong(expected)
        return value  # each item is looked at by itself, so that a message can name it

    return Kind(expected, parse, schema={"type": "array", "maxItems": most, "items": dict(item.schema)})


def part(expected: str, schema: Mapping[str, Any], shape: type) -> Kind:
    """A list or mapping that is read piece by piece."""

    def parse(value: Any) -> Any:
        if not isinstance(value, shape):
            raise Wrong(expected)
        return value

    return Kind(expected, parse, schema=schema)


def free(expected: str, schema: Mapping[str, Any], fits: Callable[[Any], bool]) -> Kind:
    """A value that the compiler looks at by itself."""

    def parse(value: Any) -> Any:
        if not fits(value):
            raise Wrong(expected)
        return value

    return Kind(expected, parse, schema=schema)
