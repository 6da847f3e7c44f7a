"""The exported builders of mirror sessions and network-queue results, called as native code would call them."""

import ctypes
import random
import struct

import pytest
from harness import UNDER_ASAN, Bytes, capture_stderr, lost_blocks, python

NO_DATA = 0


class Builders:
    """The four functions over the bytes of ordinary objects."""

    def __init__(self, native):
        def function(name, *argtypes):
            found = native[name]
            found.argtypes, found.restype = argtypes, ctypes.py_object
            return found

        u16, u32, pointer = ctypes.c_uint16, ctypes.c_uint32, ctypes.c_void_p
        self._port_list = function("PyRYN_CreatePortList", u16, pointer)
        self._vlan_list = function("PyRYN_CreateVlanList", u16, pointer)
        self._session = function("PyRYN_CreateMirrorSession", pointer, ctypes.POINTER(u32), u32)
        self._netq = function("PyRYN_PortNetQInfo", pointer, u32)
        self._libc = ctypes.CDLL(None)
        self._libc.malloc.argtypes, self._libc.malloc.restype = [ctypes.c_size_t], ctypes.c_void_p

    def port_list(self, count, bitmap):
        assert len(bitmap) == 16
        return self._port_list(count, bytes(bitmap))

    def vlan_list(self, count, data):
        return self._vlan_list(count, data)

    def session(self, conf, offset, header=0):
        """The session and the offset afterwards."""
        position = ctypes.c_uint32(offset)
        return self._session(bytes(conf), ctypes.byref(position), header), position.value

    def netq(self, area, length=524288):
        """The block is the function's to free."""
        assert len(area) == 524288
        block = self._libc.malloc(len(area))
        ctypes.memmove(block, bytes(area), len(area))
        return self._netq(block, length)


@pytest.fixture
def builders(native):
    return Builders(native)


@pytest.fixture(autouse=True)
def silence():
    """None of the calls here says anything, unless it asks for standard error itself."""
    with capture_stderr() as texts:
        yield
    assert texts == [""]


# ---- Port lists ------------------------------------------------------------------------------------------------------


def bitmap(ports):
    return sum(1 << port for port in ports).to_bytes(16, "little")


@pytest.mark.parametrize("port", range(128))
def test_each_port(builders, port):
    assert builders.port_list(1, bitmap([port])) == [port]


def test_ports_ascend(builders):
    assert builders.port_list(6, bitmap([127, 64, 63, 5, 1, 0])) == [0, 1, 5, 63, 64, 127]
    assert builders.port_list(128, b"\xff" * 16) == list(range(128))


@pytest.mark.parametrize("count", [0, 1, 2, 63, 64, 65, 127, 128])
def test_count_ends_the_list_though_more_bits_are_set(builders, count):
    assert builders.port_list(count, b"\xff" * 16) == list(range(count))


@pytest.mark.parametrize("count", [3, 4, 128, 129, 0x7FFF, 0x8000, 0xFFFF])
def test_places_left_over_hold_none(builders, count):
    assert builders.port_list(count, bitmap([1, 70, 127])) == [1, 70, 127] + [None] * (count - 3)
    assert builders.port_list(count, bytes(16)) == [None] * count


def test_random_bitmaps(builders):
    chance = random.Random(62)
    for _ in range(500):
        ports = sorted(chance.sample(range(128), chance.randrange(129)))
        count = chance.choice([len(ports), chance.randrange(200)])
        assert builders.port_list(count, bitmap(ports)) == (ports + [None] * 200)[:count]


def test_bitmap_need_not_be_aligned(builders):
    data = ctypes.create_string_buffer(b"\xff" * 3 + bitmap([0, 64, 127]) + b"\xff" * 3)
    assert builders._port_list(3, ctypes.addressof(data) + 3) == [0, 64, 127]


def test_count_of_zero_reads_no_bitmap(builders):
    assert builders._port_list(0, NO_DATA) == []


# ---- VLAN lists ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "vlans", [[], [0], [1, 4094, 4095], [0x7FFF, 0x8000, 0xFFFF], [*range(0xFFFF, 0, -1)]], ids=len
)
def test_vlans_in_order(builders, vlans):
    assert builders.vlan_list(len(vlans), struct.pack(f"<{len(vlans)}H", *vlans)) == vlans


def test_vlans_need_not_be_aligned(builders):
    data = ctypes.create_string_buffer(b"\xff" + struct.pack("<3H", 1, 0xFFFF, 3))
    assert builders._vlan_list(3, ctypes.addressof(data) + 1) == [1, 0xFFFF, 3]


def test_no_vlans_read_nothing(builders):
    assert builders._vlan_list(0, NO_DATA) == []


# ---- Mirror sessions -------------------------------------------------------------------------------------------------

KEYS = [
    "noInput",
    "noOutput",
    "vlanEncap",
    "OrigVlan",
    "index",
    "encapVlanID",
    "samplingRate",
    "snapLen",
    "srcInPorts",
    "srcOutPorts",
    "dstPorts",
    "vlans",
]


def session(vlans, index=1):
    area = Bytes(72 + (2 * len(vlans) + 7) // 8 * 8)
    area.u16(4, index, 1002, 1003, 1004, 0x0005, 1, 0, 2, len(vlans)).raw(24, bitmap([7])).raw(56, bitmap([64, 127]))
    return bytes(area.raw(72, struct.pack(f"<{len(vlans)}H", *vlans)))


def as_dict(vlans, index=1):
    return {
        "noInput": 1,
        "noOutput": 0,
        "vlanEncap": 1,
        "OrigVlan": 0,
        "index": index,
        "encapVlanID": 1002,
        "samplingRate": 1004,
        "snapLen": 1003,
        "srcInPorts": [7],
        "srcOutPorts": [],
        "dstPorts": [64, 127],
        "vlans": vlans,
    }


@pytest.mark.parametrize(
    "vlans, step", [(0, 72), (1, 80), (3, 80), (4, 80), (5, 88), (8, 88), (9, 96), (1000, 2072), (0xFFFF, 72 + 131072)]
)
@pytest.mark.parametrize("offset", [0, 1, 8, 4000])
def test_session_moves_the_offset_to_the_next(builders, vlans, step, offset):
    """Wherever the record lies, and however long it is: the caller is trusted."""
    vlans = [i & 0xFFF for i in range(vlans)]
    found, after = builders.session(b"\xff" * offset + session(vlans), offset)
    assert found == as_dict(vlans)
    assert list(found) == KEYS
    assert after == offset + step


def test_sessions_one_after_another(builders):
    conf, offset = bytes(8) + b"".join(session([7] * i, i) for i in range(20)), 8
    for i in range(20):
        found, offset = builders.session(conf, offset)
        assert found == as_dict([7] * i, i)
    assert offset == len(conf)


@pytest.mark.parametrize("header", [0, 1, 0x80000000, 0xFFFFFFFF])
def test_header_word_is_not_used(builders, header):
    assert builders.session(session([5]), 0, header) == (as_dict([5]), 80)


# ---- Network queues --------------------------------------------------------------------------------------------------


def netq(count=1):
    area = Bytes(524288).u32(0, 0xFFFFFFFF, 0x80000000).u16(12, 0xFFFF, count)
    area.u16(16, 0, 0, 6, 1).raw(24, bytes.fromhex("02112201020a")).u32(30, 500, 501).u64(38, 1 << 63)
    return area


NETQ = {
    "isUplink": 0xFFFF,
    "swID": 0xFFFFFFFF,
    "rynPortID": 0x80000000,
    "filters": [{"rxf": "macOnly:02:11:22:01:02:0a", "qInfo": [{"rynPortID": 500, "qid": 501, "fid": -(1 << 63)}]}],
}


@pytest.mark.parametrize("length", [0, 1, 16, 524288, 0xFFFFFFFF])
def test_netq_response_whose_length_is_not_used(builders, length):
    found = builders.netq(netq(), length)
    assert found == NETQ
    assert list(found) == ["isUplink", "swID", "rynPortID", "filters"]


TO_THE_LAST_BYTE = """
import ctypes, struct
import _libryn

PAGE = 4096
libc = ctypes.CDLL(None)
libc.malloc.argtypes, libc.malloc.restype = [ctypes.c_size_t], ctypes.c_void_p
libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
function = ctypes.PyDLL(_libryn.__file__)["PyRYN_PortNetQInfo"]
function.argtypes, function.restype = [ctypes.c_void_p, ctypes.c_uint32], ctypes.py_object

def info(response):
    # So large that the allocator takes it from the system and gives it back whole. The response ends with a page,
    # and the page behind it must not be touched.
    block = libc.malloc(64 << 20)
    room = -block % PAGE
    if room < 16 + 8 + len(response):
        room += PAGE
    skipped = struct.pack("<HHHH", 9, 0, room - 16 - 8 - len(response), 0)
    area = (struct.pack("<IIIHH", 3, 5, 0, 1, 2) + skipped).ljust(room - len(response)) + response
    ctypes.memmove(block, area, room)
    assert libc.mprotect(block + room, PAGE, 0) == 0
    return function(block, 524288)["filters"][1]["rxf"]

mac = bytes.fromhex("02112201020a")
for kind, body in ((0, mac), (1, mac + mac + struct.pack("<I", 5001)), (7, b"")):
    print(info(struct.pack("<HHHH", kind, 0, len(body), 0) + body))
"""


def test_netq_response_is_read_no_further_than_it_reaches(ryn):
    if UNDER_ASAN:
        pytest.skip("the sanitizer's allocator keeps what is freed")
    done = python(TO_THE_LAST_BYTE)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == [
        "macOnly:02:11:22:01:02:0a",
        "geneve:outer:02:11:22:01:02:0a:inner:02:11:22:01:02:0a:vni:5001",
        "UnknownFilter",
    ]


class MallInfo2(ctypes.Structure):
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


@pytest.mark.parametrize("count, text", [(1, ""), (0, ""), (0xFFFF, "Invalid response returned.\n")])
def test_netq_response_is_freed_on_every_path(builders, count, text):
    mallinfo2 = ctypes.CDLL(None).mallinfo2
    mallinfo2.restype = MallInfo2
    area = netq(count)

    def in_use():
        info = mallinfo2()
        return info.uordblks + info.hblkhd

    with capture_stderr() as texts:
        builders.netq(area)
        before = in_use()
        for _ in range(20):
            builders.netq(area)
        grown = in_use() - before
    assert grown < 524288
    assert texts == [text * 21]


# ---- References ------------------------------------------------------------------------------------------------------


def test_results_are_new_references_and_leak_nothing(builders):
    conf, area = session([4000] * 5), netq()

    def work():
        builders.port_list(200, b"\x55" * 16)
        builders.vlan_list(1000, b"\x55" * 2000)
        builders.session(conf, 0)
        builders.netq(area)

    assert lost_blocks(work, 100) == 0
