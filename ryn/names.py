"""Names of the numbers that the platform answers with. Numbers without a name are kept."""

from __future__ import annotations

from enum import IntEnum, IntFlag
from typing import Optional, Tuple, Type


class Kind(IntEnum):
    """What a port is for. A kind that is not listed here is UNKNOWN with its number.

    >>> str(Kind(2)), str(Kind(77)), int(Kind(77))
    ('UPLINK', 'UNKNOWN', 77)
    """

    UNKNOWN = 0
    VNIC = 1
    UPLINK = 2
    GENERIC = 3
    QOBNIC = 4

    @classmethod
    def _missing_(cls, value: object) -> Kind:
        if not isinstance(value, int):
            raise ValueError(f"{value!r} is not a number of a kind")
        member = int.__new__(cls, value)
        member._name_ = "UNKNOWN"
        member._value_ = value
        return member

    # By its number: some interpreters pickle a member by its name.
    def __reduce_ex__(self, protocol: object) -> Tuple[Type[Kind], Tuple[int]]:
        return Kind, (int(self),)

    def __str__(self) -> str:
        return self.name

    # Formats as its name on all interpreters; some would take the number.
    def __format__(self, spec: str) -> str:
        return format(self.name, spec)


class _Flags(IntFlag):
    def __str__(self) -> str:
        """The names of the bits that are set, from the lowest up: LRO|DROP; bits without a name as one number."""
        names = [member.name for member in type(self) if member & self]
        rest = int(self) & ~sum(type(self))
        if rest:
            names.append(f"{rest:#x}")
        return "|".join(map(str, names))

    def __format__(self, spec: str) -> str:
        return format(str(self), spec)


class Actions(_Flags):
    """What is done with the packets of a flow. Bits without a name are kept.

    >>> actions = Actions(0x80000028)
    >>> str(actions), Actions.DROP in actions
    ('LRO|DROP|0x80000000', True)
    """

    KCP_INPUT_CHILD_PORT = 1 << 2
    LRO = 1 << 3
    IPFIX_INGRESS = 1 << 4
    DROP = 1 << 5
    DFW_ON_SRC_PORT = 1 << 6
    SP = 1 << 8
    VI = 1 << 10
    VR = 1 << 11
    PI = 1 << 12
    PR = 1 << 13
    GVLAN_INSERT = 1 << 16
    VDR = 1 << 18
    VNI = 1 << 20
    ENCAP = 1 << 21
    DECAP = 1 << 22
    GVLAN_REMOVE = 1 << 23
    IPFIX_EGRESS = 1 << 26
    DFW_ON_DST_PORT = 1 << 27
    KCP_OUTPUT_VLAN = 1 << 28


class ReceiveFlags(_Flags):
    """The frames that a port lets in: the bits of `PortConfig.flags`."""

    UNICAST = 1 << 0
    MULTICAST = 1 << 1
    ALLMULTI = 1 << 2
    BROADCAST = 1 << 3
    PROMISC = 1 << 4
    USE_LADRF = 1 << 5


MOST_DIGITS = 640  # an interpreter may refuse to read longer numbers


def decimal(text: str) -> Optional[int]:
    """The number that a text of ASCII digits stands for; None for any other text.

    >>> decimal("007"), decimal("-7"), decimal("")
    (7, None, None)
    """
    return int(text) if text.isascii() and text.isdecimal() and len(text) <= MOST_DIGITS else None


PROTOCOLS = {"icmp": 1, "tcp": 6, "udp": 17, "icmp6": 58}
ALGORITHMS = ("none", "cpu", "count")
TEAMING_TYPES = ("None", "Single", "LAG", "SrcMAC", "All", "NoTeaming")
