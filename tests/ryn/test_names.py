"""The names of numbers, and that numbers without a name are kept."""

import pickle

import pytest

import ryn


@pytest.mark.parametrize(
    "number, name",
    [
        (0, "UNKNOWN"),
        (1, "VNIC"),
        (2, "UPLINK"),
        (3, "GENERIC"),
        (4, "QOBNIC"),
        (5, "UNKNOWN"),
        (77, "UNKNOWN"),
        (0xFFFFFFFF, "UNKNOWN"),
    ],
)
def test_a_kind_prints_its_name_and_keeps_its_number(number, name):
    kind = ryn.Kind(number)
    assert (str(kind), int(kind), f"{kind:>8}", f"{kind}") == (name, number, f"{name:>8}", name)
    assert pickle.loads(pickle.dumps(kind)) == kind == number


def test_a_kind_is_a_number():
    with pytest.raises(ValueError):
        ryn.Kind("VNIC")


def test_numbers_without_a_name_leave_nothing_behind():
    before = len(ryn.Kind._value2member_map_)
    for number in range(100, 200):
        ryn.Kind(number)
    assert len(ryn.Kind._value2member_map_) == before


@pytest.mark.parametrize(
    "bits, text",
    [(0, ""), (1 << 5, "DROP"), (1 << 3 | 1 << 5, "LRO|DROP"), (1 << 5 | 1 << 31, "DROP|0x80000000"), (1, "0x1")],
)
def test_actions_print_their_names_from_the_lowest_bit_up(bits, text):
    actions = ryn.Actions(bits)
    assert (str(actions), f"{actions}", int(actions)) == (text, text, bits)


def test_the_actions_are_the_bits_that_the_module_words():
    assert {action.name: int(action).bit_length() - 1 for action in ryn.Actions} == {
        "KCP_INPUT_CHILD_PORT": 2,
        "LRO": 3,
        "IPFIX_INGRESS": 4,
        "DROP": 5,
        "DFW_ON_SRC_PORT": 6,
        "SP": 8,
        "VI": 10,
        "VR": 11,
        "PI": 12,
        "PR": 13,
        "GVLAN_INSERT": 16,
        "VDR": 18,
        "VNI": 20,
        "ENCAP": 21,
        "DECAP": 22,
        "GVLAN_REMOVE": 23,
        "IPFIX_EGRESS": 26,
        "DFW_ON_DST_PORT": 27,
        "KCP_OUTPUT_VLAN": 28,
    }


def test_receive_flags():
    assert str(ryn.ReceiveFlags(0b110001)) == "UNICAST|PROMISC|USE_LADRF"
