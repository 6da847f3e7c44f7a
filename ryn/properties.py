"""The properties in which a host keeps settings: their keys, and the bytes of their values."""

from __future__ import annotations

import struct
from typing import Any, Optional, Tuple

from ryn.errors import InvalidResponse


class Property:
    """A property of fixed size: little-endian numbers, mostly after a version word that is always 0."""

    def __init__(self, key: str, layout: str, versioned: bool = True):
        self.key = key
        self._versioned = versioned
        self._struct = struct.Struct("<I" + layout if versioned else "<" + layout)

    def encode(self, *numbers: int) -> bytes:
        return self._struct.pack(*((0,) if self._versioned else ()), *numbers)

    def decode(self, value: Optional[bytes], operation: str, arguments: Tuple[Any, ...]) -> Optional[Tuple[int, ...]]:
        """The numbers of a value, None where there is none. InvalidResponse where it is malformed; `operation` and
        `arguments` are the call that it came from."""
        if value is None:
            return None
        if self._versioned:
            version = int.from_bytes(value[:4], "little")
            if version != 0:
                raise InvalidResponse(operation, arguments, f"unknown version {version}")
        if len(value) != self._struct.size:
            reason = f"a value of {len(value)} bytes instead of {self._struct.size}"
            raise InvalidResponse(operation, arguments, reason)
        numbers = self._struct.unpack(value)
        return numbers[1:] if self._versioned else numbers


BALANCER = Property("com.talvor.kiv.ryn.loadbal", "5I")  # metric, high, low, pause, sensitivity
NUMA_TEAMING = Property("com.talvor.kiv.ryn.teaming", "B")
BURST_SIZE = Property("com.talvor.kiv.ryn.burstsize", "I")
FPO = Property("com.talvor.kiv.ryn.fpo", "I", versioned=False)
UPLINK_RING = Property("com.talvor.extraconfig.opqueDvs.ryn.uplinkRing", "2I", versioned=False)

FPO_DEFAULT = 1
UPLINK_RING_DEFAULT = (2048, 1024)
RING_ALIGNMENT = 32
