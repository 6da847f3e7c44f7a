"""The memory of the process as the C library counts it."""

from __future__ import annotations

import ctypes


class _MallInfo2(ctypes.Structure):
    _fields_ = [
        (name, ctypes.c_size_t)
        for name in (
            "arena",
            "ordblks",
            "smblks",
            "hblks",
            "hblkhd",
            "usmblks",
            "fsmblks",
            "uordblks",
            "fordblks",
            "keepcost",
        )
    ]


_mallinfo2 = ctypes.CDLL(None).mallinfo2
_mallinfo2.restype = _MallInfo2


def native_bytes() -> int:
    """What the C library has allocated; 0 under a sanitizer, whose allocator does not tell."""
    info = _mallinfo2()
    return info.uordblks + info.hblkhd
