"""Property values as texts (text:dvs-1, hex:00ff, u32:0,1), and what is chosen where a description is silent."""

from __future__ import annotations

import hashlib
import struct
from typing import Any


def to_bytes(text: Any) -> bytes:
    """The bytes that a text stands for; what stands for none is a ValueError."""
    if not isinstance(text, str):
        raise ValueError(text)
    kind, _, rest = text.partition(":")
    if kind == "text":
        return rest.encode() + b"\0"
    if kind == "hex":
        return bytes.fromhex(rest)
    if kind == "u32":
        try:
            return b"".join(struct.pack("<I", int(word)) for word in rest.split(","))
        except struct.error:
            raise ValueError(text) from None
    raise ValueError(text)


def to_text(raw: bytes) -> str:
    """The plainest text that stands for these bytes."""
    if len(raw) > 1 and raw[-1] == 0:
        try:
            text = raw[:-1].decode()
            if text.isprintable():
                return "text:" + text
        except UnicodeDecodeError:
            pass
    if raw and len(raw) % 4 == 0 and len(raw) <= 64:
        return "u32:" + ",".join(str(word) for (word,) in struct.iter_unpack("<I", raw))
    return "hex:" + raw.hex()


def signed(number: int) -> int:
    """The signed number of the same 64 bits, as the store keeps it."""
    return number - (1 << 64) if number >= 1 << 63 else number


def unsigned(number: int) -> int:
    """The unsigned number of the same 64 bits."""
    return number + (1 << 64) if number < 0 else number


# What is chosen where a description leaves it open. It follows from what an export always names, so that an export may
# leave it out as well.


def switch_id(host: str, alias: str) -> str:
    """An identifier for a switch."""
    digest = hashlib.sha256(f"{host}/{alias}".encode()).hexdigest()
    return f"{digest[:8]}-{digest[8:12]}-{digest[12:16]}-{digest[16:28]}"


def dvport(sw: int, port: int) -> int:
    """A distributed number for a port."""
    return (sw + 1) * 1000 + port


def port_mac(seed: int, sw: int, port: int, is_uplink: bool) -> bytes:
    """A port's address."""
    return bytes((2, 1 if is_uplink else 0, seed >> 8 & 255, seed & 255, sw, port))


def port_ip(sw: int, port: int) -> bytes:
    """The address of the machine behind a port."""
    return bytes((10, sw, 0, port + 1))


def remote_ip(position: int) -> bytes:
    """An address beyond the uplinks, for the conversation at this position (documentation's own ranges)."""
    return bytes((203, 0, 113, position % 254 + 1))


def transport(protocol: int, position: int) -> tuple[int, int]:
    """The ports of the conversation at this position; type and code for ICMP."""
    if protocol == 1:
        return 8, 0
    if protocol == 58:
        return 128, 0
    if protocol in (6, 17):
        return 49152 + position * 131 % 16000, 443 if protocol == 6 else 4500
    return 0, 0
