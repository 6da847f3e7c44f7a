"""Conversations: who sends what to whom."""

from __future__ import annotations

from .. import names
from ..kinds import (
    FRAME,
    IP,
    MAC,
    MS,
    NAME,
    PORT,
    SHARE,
    U16,
    U24,
    VLAN,
    Kind,
    bits,
    choice,
    duration,
    named,
    number,
    rate,
    scaled,
)
from .base import REQUIRED, Entity, M, Table


def _protocol() -> Kind:
    return named(names.PROTOCOLS, (0, 255)).held_as("std::uint8_t")


_ACTIONS = {name: 1 << bit for name, bit in names.ACTIONS.items()}
CONVERSATION = Entity(
    "conversation",
    "a conversation: a mapping with from, to, pps",
    (
        M("", "conversation.id", number(1, 2**31 - 1, cxx="int"), REQUIRED),
        M("", "conversation.sw", number(0, 15, cxx="int"), REQUIRED),
        M(
            "from",
            "",
            NAME,
            REQUIRED,
            "a port's name, `SWITCH/NUMBER`, or a pattern: then one conversation for each port it fits",
        ),
        M(
            "to",
            "",
            NAME,
            REQUIRED,
            "a port of the same switch, or `uplink`: leaves by the uplink that the sender's policy picks",
        ),
        M("", "conversation.src_port", PORT, REQUIRED),
        M(
            "",
            "conversation.dst_port",
            PORT,
            REQUIRED,
            "NULL: leaves the host by the uplink its policy picks",
            null=True,
        ),
        M(
            "pps",
            "conversation.milli_pps",
            rate(),
            REQUIRED,
            "mean packets a second of each sender, at most 1G",
            shown="pps",
        ),
        M("size", "conversation.size", FRAME, 512, "bytes of a frame", field="frame_size", shown="size"),
        M(
            "reply",
            "conversation.reply_permille",
            scaled("a share from 0 to 10", 0, 10, 1000, "permille"),
            0,
            "packets back for each packet",
            shown="reply",
        ),
        M("reply_size", "conversation.reply_size", FRAME, 66, "bytes of a frame back"),
        M(
            "delivery",
            "conversation.delivery",
            choice(*names.DELIVERIES, enum="Delivery"),
            "unicast",
            "`unicast`, `multicast`, `broadcast`",
        ),
        M(
            "proto",
            "conversation.protocol",
            _protocol(),
            "tcp",
            "`tcp`, `udp`, `icmp`, `icmp6` or a number. Conversations between the same ends should differ in"
            " `dport`, else some of their flows have the same key",
            shown="proto",
        ),
        M("sport", "conversation.src_l4", U16, 0, "source port; ICMP: its type", "made up", field="source_l4"),
        M(
            "dport",
            "conversation.dst_l4",
            U16,
            0,
            "destination port; ICMP: its code",
            "tcp: 443",
            field="destination_l4",
            shown="dport",
        ),
        M("src_ip", "conversation.src_ip", IP, None, "source address", "made up", field="source_ip"),
        M("dst_ip", "conversation.dst_ip", IP, None, "destination address", "made up", field="destination_ip"),
        M(
            "dst_mac",
            "conversation.dst_mac",
            MAC,
            None,
            "the next hop's address",
            "the other port's, or made up",
            null=True,
        ),
        M("vlan", "conversation.vlan", VLAN, 0, "the VLAN of its packets", "the port's"),
        M("vni", "conversation.vni", U24, 0, "the overlay network of its packets; 0: none", "the port's"),
        M(
            "flows",
            "conversation.flows",
            number(1, 65536, "a number of flows", "std::uint32_t"),
            1,
            "lasting flows",
            shown="flows",
        ),
        M(
            "churn_ppm",
            "conversation.churn_ppm",
            number(0, 100000, "short flows in a million packets,", "std::uint32_t", "ppm"),
            0,
            "packets, of a million, that open a short flow (at most 16384 live at a time, from source port 32768 on)",
        ),
        M(
            "slow",
            "conversation.slow_permille",
            SHARE.held_as("std::uint32_t"),
            0.001,
            "the share that always takes the slow path",
        ),
        M(
            "pattern.swing",
            "conversation.swing_permille",
            SHARE,
            0,
            "share of the mean by which the rate swings, as a triangle",
        ),
        M(
            "pattern.period",
            "conversation.period_ms",
            duration(low=1000, high=604800000),
            "1d",
            "how long a swing takes, to 7d",
        ),
        M("pattern.daily", "", SHARE, None, "the same as `pattern.swing` alone"),
        M("pattern.phase", "conversation.phase_ms", MS, "0s", "so much later in its swing and bursts"),
        M(
            "pattern.burst.every",
            "conversation.burst_every_ms",
            MS,
            "0s",
            "between the starts of two bursts",
            together=True,
        ),
        M("pattern.burst.for", "conversation.burst_for_ms", MS, "0s", "how long each lasts", together=True),
        M(
            "pattern.burst.times",
            "conversation.burst_permille",
            scaled("a factor from 1 to 100", 1, 100, 1000, "permille"),
            1,
            "the rate meanwhile, in usual rates",
            together=True,
        ),
        M("start", "conversation.start_ms", MS, "0s", "in host time"),
        M("stop", "conversation.stop_ms", MS, None, "in host time", "never", null=True),
        M(
            "actions",
            "conversation.actions",
            bits(_ACTIONS, "action", 31, positions=True),
            [],
            "further actions of its flows, named as in the flow table's text (`DP` for the valid dp value), or bits",
        ),
        M("vdr", "conversation.vdr", number(0, 12, "a number of routers", "std::uint32_t"), 0, "routers on its way"),
    ),
)

ENTITIES = (CONVERSATION,)
TABLES = (
    Table(
        "conversation",
        "Who sends what to whom, and how much of it. Packets are an exact function of host time: with the mean rate r,"
        " r * (1 + swing * wave(t)) + r * (burst - 1) while a burst lasts, where wave is a triangle of the given period"
        " between -1 and 1. A share of the packets is answered by the other side.",
        ("id",),
        (
            "FOREIGN KEY (sw, src_port) REFERENCES port",
            "FOREIGN KEY (sw, dst_port) REFERENCES port",
            "CHECK (length(dst_ip) = length(src_ip))",
            "CHECK (burst_for_ms <= burst_every_ms)",
            "CHECK (stop_ms IS NULL OR stop_ms >= start_ms)",
        ),
        row="ConversationRow",
    ),
)
