"""The first inputs of the fuzz targets, made from the edge cases of each format.

A kept corpus holds the fewest inputs that cover the same code. That drops inputs which matter only by a number, such
as a record that ends just behind its area, so these are made anew for each run.
"""

from __future__ import annotations

import hashlib
import struct
from collections.abc import Iterable, Iterator
from pathlib import Path


def u16(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}H", *values)


def u32(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}I", *values)


def u64(*values: int) -> bytes:
    return struct.pack(f"<{len(values)}Q", *values)


def area(size: int, **fields: bytes) -> bytes:
    """Zeros with bytes at offsets: area(8, at4=b"ab")."""
    out = bytearray(size)
    for name, data in fields.items():
        offset = int(name.removeprefix("at"))
        out[offset : offset + len(data)] = data
    return bytes(out)


def actions(bitmap: int = 0, instances: int = 0, length: int | None = None, flags: int = 8) -> bytes:
    size = max(256 + 2, 274 + 32 * instances if instances else 0)
    return area(
        size,
        at8=u64(0x7F00),
        at24=u64(5),
        at40=u64(1 << 63),
        at56=u32(bitmap),
        at61=bytes([flags]),
        at62=u16(size if length is None else length),
        at64=b"\x09",
        at68=u32(7),
        at72=b"\xff",
        at74=u16(0xFFFF),
        at76=u32(5001),
        at114=u32(3),
        at118=u16(4095),
        at244=b"\1\2\3",
        at256=bytes([instances]),
    )


KEYS = [
    bytes(64),
    b"\xff" * 64,
    area(64, at12=b"\x10\x20", at16=b"\0\x50\1\xbb", at23=b"\x06", at24=b"\n\0\0\1\n\0\0\2"),
    area(64, at12=b"\x02", at23=b"\x3a", at39=b"\1", at40=b"\xfe\x80", at55=b"\1"),
]
BITMAPS = [0, 0xFFFFFFFF, 0xFFFFFFDF, 0x20, 0x40028, 1 << 18, 1 << 20, 1 << 21, 0xE000C283, 1 << 31, 0x1C04]


def flow_actions() -> Iterator[bytes]:
    for bitmap in BITMAPS:
        for size in (0, 20, 60, 512):
            yield u16(size, 240) + actions(bitmap, 3)
    yield u16(512, 0) + actions(1 << 18, 255)


def flow_pages() -> Iterator[bytes]:
    def page(*entries: bytes, count: int | None = None, valid: int | None = None) -> bytes:
        body = b"".join(entries)
        count = len(entries) if count is None else count
        return bytes(8) + u32(77, count, 20 + len(body) if valid is None else valid) + body

    whole = [key + actions(bitmap, 1) for key in KEYS for bitmap in BITMAPS[:3]]
    yield page()
    yield page(*whole, valid=10260)
    yield page(*whole[:2], count=3)
    yield page(KEYS[2] + actions(1 << 18, 60))
    yield page(KEYS[2] + actions(0x28, 0, length=0), count=156, valid=10260)
    yield page(count=0xFFFFFFFF, valid=0xFFFFFFFF)
    # Non-zero bytes between the valid ones and the end of the page
    yield (page(KEYS[2] + actions(1 << 18 | 1 << 21, 3)[:240], valid=20 + 304) + b"\x5a" * 400).ljust(10260, b"\xa5")
    yield page(*whole[:2], valid=20 + 304).ljust(10260, b"\xff")
    yield page(KEYS[3] + actions(1 << 18, 2, length=9800), KEYS[0] + actions(1 << 21, 0, length=1), valid=10260)


def snapshots() -> Iterator[bytes]:
    everything = b"\xff" * 32
    group = struct.pack("<iB", -5, 0xEE) + u64(1, 1, 1 << 63, 0)
    vertex = struct.pack("<iIIII", 2, 7, 0xAB, 1, 1) + u32(9, 10, 11, 0xFFFFFFFF, 1 << 31, 5)
    yield u32(0, 0)
    yield u32(2, 2) + group * 2 + vertex * 2
    yield u32(110, 5) + (struct.pack("<iB", -1 << 31, 0) + everything) * 110
    yield u32(0xFFFFFFFF, 0xFFFFFFFF)
    yield u32(0, 1) + struct.pack("<iIIII", -1 << 31, 1 << 31, 1 << 31, 339, 0) + u32(1 << 31) * 3 * 339
    yield u32(1, 2) + group + vertex + struct.pack("<iIIII", 0, 0, 0, 0xFFFFFFFF, 1)
    yield u32(0, 204) + bytes(204 * 20)


def balancer() -> Iterator[bytes]:
    unit = 1 << 20
    for first, last in ((0, 0), (5, 3), (126, 1)):
        stats = bytearray(9224)
        for port in range(128):
            cores = port % 64, 64 if port % 2 else 63
            struct.pack_into("<IIIIQQQQ", stats, 8 + 48 * port, 1, 2, *cores, 100, 1 << 63, 300, (1 << 64) - 1)
        for core, record in enumerate(
            [
                (50 * unit, 0, 100 * unit, 0, 1000),
                (0, unit, unit, 0, 200),
                (7, 7, 7, 7, 0),
                (unit, 0, 1 << 63, 0, 1 << 21),
                (1, 2, 3, 4, (1 << 64) - 1),
            ]
            * 12
        ):
            struct.pack_into("<QQQQQ", stats, 6152 + 48 * core, *record)
        yield bytes([first, last]) + bytes(stats)


def counted(head: int, at: int, record: bytes, room: int) -> Iterator[bytes]:
    """Tables: a count at `at` in a head of that size, then records."""
    for count in (0, 1, 2, room, room + 1, 0xFFFFFFFF):
        out = bytearray(head)
        out[at : at + 4] = u32(count)
        yield bytes(out) + record * min(count, 2)
    yield bytes(out) + b"\xff" * len(record) * min(room, 40)
    yield bytes(out) + record * min(room, 40)


def made_small(inputs: Iterable[bytes]) -> Iterator[bytes]:
    """For targets whose first byte says whether large counts stand as they are; the last input comes that way too."""
    for data in inputs:
        yield b"\0" + data
    yield b"\xff" + data


def mirrors() -> Iterator[bytes]:
    def session(vlans: int, *counts: int) -> bytes:
        return (
            bytes(4)
            + u16(1, 2, 3, 4, 0x0A, *counts, vlans, 0)
            + u64(1, 1, 3, 1 << 63)
            + b"\xff" * 16
            + u16(*range(vlans)).ljust((2 * vlans + 7) // 8 * 8, b"\0")
        )

    yield u32(1) + u16(0, 0)
    yield u32(1) + u16(2, 0) + session(3, 2, 2, 128) + session(0, 0, 0, 0)
    yield u32(1) + u16(1, 0) + session(984, 3, 1, 65535)
    yield u32(1) + u16(1, 0) + session(985, 0, 0, 0)
    yield u32(1) + u16(28, 0) + session(0, 1, 1, 1) * 28
    yield u32(1) + u16(65535, 0)


def netqs() -> Iterator[bytes]:
    def head(filters: int) -> bytes:
        return u32(3, 5, 0) + u16(1, filters)

    queue = u32(5, 6) + u64(1 << 63)
    mac, geneve = u16(0, 0, 8, 1) + bytes(range(8)) + queue, u16(1, 0, 16, 2) + bytes(range(16)) + queue * 2
    yield head(0)
    yield head(3) + mac + geneve + u16(7, 0, 3, 0) + b"abc"
    yield head(1) + u16(0, 0, 0, 0)
    yield head(9) + (u16(1, 0, 65535, 0) + b"\xff" * 65535)
    yield head(2) + u16(0, 0, 0, 32766) + queue * 4
    yield head(65535)
    for body in (7, 8, 9, 24):  # the queues end just before, with and behind the response
        yield head(1) + u16(0, 0, body, 32766)


def switches() -> Iterator[bytes]:
    dvs = b"\0dvs-1\0id-1\0\1dvs-1:portset\0\1alias-1\0"
    yield b"\0\1" + dvs + b"dvs-1\0dvs-1:portset\0"
    yield b"\1\2" + dvs + b"\1dvs-2\0id-2\0\0\0" + b"dvs-2\0x\0"
    yield b"\2\3" + dvs * 2 + b"\0dvs-3\0id-3\0\1\0\0" + b"anything\0"
    long = b"a" * 199 + b"\0" + b"i" * 79 + b"\0\1" + b"p" * 150 + b"\0\1" + b"g" * 150 + b"\0"
    yield b"\3\1\0" + long + b"p" * 200 + b"\0"
    for size in (63, 64, 127, 128):  # names that fill their field
        full = b"a" * size + b"\0" + b"i" * size + b"\0\1" + b"p" * size + b"\0\1" + b"g" * size + b"\0"
        for modes in (b"\3", b"\7"):  # with and without a NUL
            yield modes + b"\1\0" + full + b"a" * size + b"\0" + b"p" * size + b"\0"


def flow_walks() -> Iterator[bytes]:
    """A byte with the number of pages, then for each a byte (7 mod 8: the call fails) and its length."""

    def walk(*pages: bytes, pages_byte: int | None = None, status: int = 0) -> bytes:
        body = b"".join(bytes([status]) + u16(len(page)) + page for page in pages)
        return bytes([len(pages) if pages_byte is None else pages_byte]) + body

    def page(start: int, entries: int, length: int = 64, valid: int = 10260) -> bytes:
        entry = area(64 + max(length, 64), at126=u16(length))[: 64 + length]
        return bytes(8) + u32(start, entries, valid) + entry * min(entries, (10240 - 64) // (64 + length))

    yield walk()
    yield walk(page(5, 2), page(2, 3), page(9, 1))
    yield walk(page(5, 2), page(9, 1), status=7)
    yield walk(page(1, 1, 300, 20 + 364), page(2, 1, 300, 20 + 363), page(9, 1))
    for start in (0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF):
        yield walk(page(start, 1), page(0, 1), page(0, 1))
    for valid in (147, 148, 149, 10260, 10261, 0xFFFFFFFF):
        yield walk(page(0, 1, 0, valid), page(0, 159, 0, valid), page(0, 160, 0, valid))
    for entries in (0, 1, 64, 159, 160):  # in circles
        yield walk(page(0, entries, 0), pages_byte=0xFF)


def mac_tables() -> Iterator[bytes]:
    rows = b"".join(bytes([2, 0, 0, 0, i >> 1, i]) + u16(i % 3) + u32(i % 5, 0, i) for i in range(12))
    patterns = [
        "02:00:00:00:00:01",
        "02-00-00-00-00-0A",
        "*",
        "02:*",
        "02:00:00:00:01:*",
        "02:00:00:00:00:01*",
        "02:0*",
    ]
    patterns += ["02:00-00:00:00:01", "02:00:00:00:00", "", "020000000001", "02:00:00:00:00:01:", "\udcff"]
    for pattern in patterns:
        text = pattern.encode("utf-8", "surrogateescape") + b"\0"
        for given, part in ((7, bytes([0, 12, 1])), (6, bytes([255, 0, 254])), (1, bytes(3)), (0, bytes([2, 128, 3]))):
            yield text + bytes([given]) + u16(1) + u32(1) + part + rows
        yield text + bytes([1]) + u16(1) + u32(1) + b"\0\1\1"


def flow_filters() -> Iterator[bytes]:
    for family, size in ((0, 4), (1, 16)):
        flow = bytes([family]) + bytes(range(size)) * 2 + u16(80, 443) + b"\6" + u16(100) + u32(0x28) + bytes(range(12))
        asked = bytes([3]) + bytes(range(size)) + bytes([8 * size]) + bytes([7, 9])
        for numbers in (bytes([1, 1, 1, 1]), bytes(4), b"\2" + u16(80) + bytes(3)):
            for actions in (0, 0x20, 0x21):
                yield flow + asked + numbers + u32(actions) + bytes([1, 1])
                yield flow + bytes([1]) + bytes(20 - size) + b"\0" + numbers + u32(actions) + b"\2" + bytes(7)


def fastslabs() -> Iterator[bytes]:
    for value in (b"", b"t", b"tr", b"true", b"true\0", b"poll", b"poller", b"intr\0x", b"no", b"\0"):
        for change in (0, 6, 4 * 36 + 1):
            yield bytes([0, 1, 1, change, len(value)]) + value
    yield b"\3\2\1\3com.talvor.other\0\2tr\1\0\2tr"


def properties() -> Iterator[bytes]:
    for head in (b"\0\0", b"\1\0", b"\0\1"):
        for size in (0, 1, 3, 4, 5, 8, 24, 25):
            yield head + u32(0, 1, 2, 3, 4, 5) + u32(0, 1, 90, 50, 10, 5, 9)[:size]
        yield head + u32(0, 2, 0xFFFFFFFF, 3, 4, 5) + u32(1, 1)


def headers() -> Iterator[bytes]:
    yield from (
        b"",
        b"*/*",
        b"text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
        b"text/plain; q=1.0001, a/b;q=.5;q=",
        b"application/openmetrics-text;version=1.0.0;q=0.9, text/plain;q=0.8",
        b"gzip",
        b"gzip;q=0, identity",
        b"*;q=0.5, gzip;q=0.001",
        b"x-gzip;q=1,,;q=2",
    )
    for host in (b"192.0.2.7", b"[192.0.2.7]", b"localhost", b"LocalHost", b"hv0", b"hv0."):
        yield from (host, host + b":9100", host + b":", host + b":x:1")


def labels() -> Iterator[bytes]:
    yield from (
        b"",
        b"vmnic0",
        b'a"b\\c\nd',
        b"\0",
        b"\xff\xfe",
        b"\xc3\xa9",
        b"\xc3",
        b"\xed\xa0\x80",
        b"\xf4\x90\x80\x80",
        b"\xf0\x9f\x98\x80",
        b"\xc0\x80",
        b"\\" * 3,
    )


def requests() -> Iterator[bytes]:
    for line in (b"GET /metrics", b"HEAD /metrics", b"GET /", b"GET /healthy", b"POST /metrics", b"GET /%zz?a=%00"):
        yield line + b" HTTP/1.1\r\nHost: localhost\r\nAccept-Encoding: gzip\r\n\r\n"
    get = b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n"
    yield get * 2
    yield get + b"Accept: application/openmetrics-text\r\nAccept: text/plain;q=0.1\r\n\r\n"
    yield get + b"Host: elsewhere\r\n\r\n"
    yield get + b"Content-Length: 18446744073709551616\r\n\r\n"
    yield get + b"Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n"
    yield get + b"Authorization: Basic Og==\r\n\r\n"
    yield get + b"X: " + b"a" * 9000 + b"\r\n\r\n"
    yield b"GET /metrics\r\n\r\n"
    yield b"\x16\x03\x01\x02\x00"


SEEDS: dict[str, Iterable[bytes]] = {
    "alias": switches(),
    "balancer_figures": balancer(),
    "bounded_actions": (
        u16(512) + actions(bitmap, 2)[:size] for bitmap in BITMAPS for size in (0, 60, 118, 246, 258, 300)
    ),
    "device_affinity": (
        answer
        for size in (31, 32)
        for answer in counted(4, 0, (b"lunic0".ljust(size, b"1") + b"\0")[:32] + u32(0xA5A5A5A5), 32)
    ),
    "exporter_headers": headers(),
    "exporter_labels": labels(),
    "exporter_request": requests(),
    "fastslabs": fastslabs(),
    "flow_actions": flow_actions(),
    "flow_filter": flow_filters(),
    "flow_key": KEYS,
    "flow_page": flow_pages(),
    "flow_statistics": (bytes([size]) + actions(flags=flags)[:62] for size in (0, 1, 15, 50, 128) for flags in (0, 8)),
    "flow_stats": counted(8, 0, u32(1, 2) + u64(1 << 32, 4, 5, 6, 7), 32),
    "fpo_stats": counted(8, 0, u32(1, 2) + u64(1 << 32, 4, 5, 6, 7, 8), 32),
    "flow_walk": flow_walks(),
    "mac_table": mac_tables(),
    "mirror_conf": made_small(mirrors()),
    "mirror_sessions": mirrors(),
    "netq": made_small(netqs()),
    "netq_filters": made_small(netqs()),
    "port_conf": [
        area(1272, at16=u32(addresses), at20=u32(0x3F), at24=u64(1 << 63), at48=u32(ranges))
        for addresses, ranges in ((0, 0), (1, 1), (32, 256), (33, 257), (0xFFFFFFFF, 0xFFFFFFFF))
    ],
    "port_flags": (bytes([size]) + u32(flags) for size in (0, 1, 9, 255) for flags in (0, 0x11, 0x3F, 0xFFFFFFC0)),
    "port_list": counted(
        12, 4, u32(67108864, 5) + b"\2\41" + b"\2\0\0\n\v\f" + u16(3) + u32(2) + bytes(4) + bytes(range(64)), 128
    ),
    "port_macs": made_small(counted(16, 0, b"\2\0\0\0\0\1" + u16(4095) + u32(5, 0, 1 << 31), 16384)),
    "port_stats": [u32(length) + bytes([kind]) + u64(*range(32)) for length in (0, 128, 0xFFFFFFFF) for kind in (0, 1)],
    "properties": properties(),
    "snapshot": snapshots(),
    "snapshot_records": snapshots(),
    "snapshot_text": (u16(size) + snapshot for size in (0, 30, 16384) for snapshot in snapshots()),
    "switch_directory": switches(),
    "switch_list": (
        answer
        for size in (127, 128)
        for answer in counted(
            8, 0, (b"dvs-1".ljust(size, b"1") + b"\0")[:128] + u32(0xA5A5A5A5, 2, 3, 4, 1500, 6) + u64(1 << 63), 16
        )
    ),
    "switch_macs": made_small(counted(16, 0, b"\2\0\0\0\0\1" + u16(4095) + u32(5, 0, 1 << 31), 65536)),
    "tx_uplink": (bytes([kind, count]) + u16(*range(8)) for kind in (0, 3, 255) for count in (0, 1, 8, 9, 255)),
    "uplink_stats": [
        u32(length) + bytes([kind]) + u64(*range(24)) + b"private text"
        for length in (0, 5, 12, 50)
        for kind in (0, 1, 2, 4, 12)
    ],
}


def write(target: str, folder: Path) -> None:
    for data in SEEDS[target]:
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)
