"""Flow-cache entries by offset, and a plain model of their text in Python's % formatting."""

from __future__ import annotations

import random
import socket
import struct
from typing import Any, Iterator, Sequence

from harness import Bytes

KEY, ACTIONS = 64, 256 + 18 + 32 * 255 + 4  # bytes; actions with the longest possible instance list
MIN_ENTRY = 304  # bytes that an entry of a page must have left

# Offset and width of each field of an actions record
FIELDS = {
    "cg": (8, 8),
    "packets": (24, 8),
    "bytes": (40, 8),
    "bitmap": (56, 4),
    "flags": (61, 1),
    "len": (62, 2),
    "dp": (64, 1),
    "inval": (68, 4),
    "pi": (72, 1),
    "vi": (74, 2),
    "vni": (76, 4),
    "child_port": (114, 4),
    "output_vlan": (118, 2),
    "encap_vni": (244, 3),
    "vdr_count": (256, 1),
}

PLAIN = {
    3: "LRO; ",
    4: "IPFIX Ingress; ",
    5: "DROP; ",
    6: "DFW on srcPort; ",
    8: "SP; ",
    11: "VR; ",
    13: "PR; ",
    16: "GVLAN Insert; ",
    22: "DECAP; ",
    23: "GVLAN Remove; ",
    26: "IPFIX Egress; ",
    27: "DFW on dstPort; ",
}
WITH_NUMBER = {
    2: ("KCPInputChildPort", "child_port"),
    10: ("VI", "vi"),
    12: ("PI", "pi"),
    20: ("VNI", "vni"),
    28: ("KCPOutputVLAN", "output_vlan"),
}
SILENT = [0, 1, 7, 9, 14, 15, 17, 19, 24, 25, 29, 30, 31]  # bits without a text of their own


def set_fields(record: bytearray, at: int = 0, instances: Sequence[int] = (), **fields: int) -> bytearray:
    """Writes fields of an actions record at `at`; the instance count follows `instances` unless it is given."""
    if instances:
        fields.setdefault("vdr_count", len(instances))
    for name, value in fields.items():
        offset, width = FIELDS[name]
        record[at + offset : at + offset + width] = value.to_bytes(width, "big" if name == "encap_vni" else "little")
    for i, value in enumerate(instances):
        struct.pack_into("<I", record, at + 274 + 32 * i, value)
    return record


def actions(size: int = ACTIONS, fill: int = 0, **fields) -> bytes:
    return bytes(set_fields(bytearray([fill]) * size, **fields))


def field(record: bytes, name: str) -> int:
    """Bytes past the record count as 0."""
    offset, width = FIELDS[name]
    return int.from_bytes(
        record[offset : offset + width].ljust(width, b"\0"), "big" if name == "encap_vni" else "little"
    )


def instance(record: bytes, i: int) -> int:
    return int.from_bytes(record[274 + 32 * i : 278 + 32 * i].ljust(4, b"\0"), "little")


def pointer(value: int) -> str:
    return "0x%x" % value if value else "(nil)"


def pieces(record: bytes) -> Iterator[str | None]:
    """The writes that make the line, one after the other; None stands where a full area ends the rendering with 1."""
    bitmap = field(record, "bitmap")
    dp = "%d" % field(record, "dp") if bitmap >> 7 & 1 else "-"
    yield "bmap:%s inval(s):%d cg:%s dp:%s len:%d; " % (
        pointer(bitmap),
        field(record, "inval"),
        pointer(field(record, "cg")),
        dp,
        field(record, "len"),
    )
    for bit in range(32):
        if not bitmap >> bit & 1:
            continue
        yield None
        if bit in PLAIN:
            yield PLAIN[bit]
        elif bit in WITH_NUMBER:
            label, name = WITH_NUMBER[bit]
            yield "%s: %d; " % (label, field(record, name))
        elif bit == 21:
            yield "VNI: %d; " % field(record, "vni")
            yield "ENCAP VNI: %d; " % field(record, "encap_vni")
        elif bit == 18:
            yield "VDR inst: %d; " % field(record, "vdr_count")
            for i in range(field(record, "vdr_count")):
                yield None
                yield "INST %d: 0x%x; " % (i + 1, instance(record, i))
        if bit == 5:
            return


def actions_line(record: bytes, size: int = 1 << 20) -> tuple[str, int]:
    """The text that an area of `size` bytes gets, and the result."""
    text = ""
    for piece in pieces(record):
        if piece is None:
            if len(text) >= size:
                return text[: max(size - 1, 0)], 1
        else:
            text += piece
    return text[: max(size - 1, 0)], 0


def stats_text(record: bytes) -> str:
    if not field(record, "flags") & 0x08:
        return "Not Applicable"
    return "pktsSinceLastFlush:%d bytesSinceLastFlush:%d" % (field(record, "packets"), field(record, "bytes"))


def key(fill: int = 0, **fields: int | bytes) -> bytes:
    """A flow key; `ports` are the 4 bytes as stored."""
    offsets = {
        "mac1": 0,
        "mac2": 6,
        "word12": 12,
        "word14": 14,
        "ports": 16,
        "low20": 20,
        "high22": 22,
        "protocol": 23,
        "address1": 24,
        "second_ipv4": 28,
        "address2": 40,
    }
    area = Bytes(bytes([fill]) * KEY)
    for name, value in fields.items():
        if isinstance(value, int):
            value = value.to_bytes(1 if name in ("high22", "protocol") else 2, "little")
        offset = offsets[name]
        area[offset : offset + len(value)] = value
    return bytes(area)


def key_line(key: bytes) -> str:
    macs = ["%02x:%02x:%02x:%02x:%02x:%02x" % tuple(key[at : at + 6]) for at in (0, 6)]
    vlan = key[13] * 16 + (key[12] >> 4)
    number14 = key[14] + (key[15] & 0x7F) * 256
    line = "%s  %s" % tuple(macs) + "  %-4d  %-7d" % (vlan, number14)
    if key[12] & 0x02:
        addresses = [socket.inet_ntop(socket.AF_INET6, key[at : at + 16]) for at in (24, 40)]
    else:
        addresses = ["%d.%d.%d.%d" % tuple(key[at : at + 4]) for at in (24, 28)]
    line += "  %-45s  %-45s" % tuple(addresses)
    line += "  %-5d  %-7d" % (key[23], key[20] + key[21] * 256 + key[22] * 65536)
    ports = struct.unpack_from("<2H" if key[23] in (1, 58) else ">2H", key, 16)
    return line + "  %-12d  %-12d" % ports


def random_number(rng: random.Random, width: int) -> int:
    """Of `width` bytes: as often an extreme as any other."""
    top = (1 << 8 * width) - 1
    return rng.choice([0, 1, top, top >> 1, (top >> 1) + 1, rng.randint(0, top), rng.randint(0, top)])


def random_actions(rng: random.Random, size: int = ACTIONS, max_instances: int = 255) -> bytes:
    record = bytearray(rng.randbytes(size))
    fields: dict[str, Any] = {name: random_number(rng, width) for name, (_, width) in FIELDS.items()}
    fields["bitmap"] = rng.choice(
        [rng.getrandbits(32), rng.getrandbits(32) & rng.getrandbits(32), 1 << rng.randint(0, 31)]
    )
    if rng.random() < 0.7:
        fields["bitmap"] &= ~0x20  # else hardly a line would get past DROP
    fields["vdr_count"] = rng.choice([0, 1, 2, max_instances, rng.randint(0, max_instances)])
    return bytes(set_fields(record, **fields))


def random_key(rng: random.Random) -> bytes:
    record = bytearray(rng.choice([rng.randbytes(KEY), bytes(KEY), b"\xff" * KEY]))
    if rng.random() < 0.5:
        for _ in range(rng.randint(1, 30)):
            record[rng.randrange(KEY)] = rng.choice([0, 1, 0x7F, 0x80, 0xFF, rng.randrange(256)])
    record[23] = rng.choice([1, 6, 17, 58, 57, 59, 0, 2, 255, rng.randrange(256)])
    if rng.random() < 0.5:
        record[12] ^= 0x02
    return bytes(record)
