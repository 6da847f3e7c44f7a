"""NICs."""

from __future__ import annotations

from .. import names
from ..kinds import NODE, PPM, TRUTH, U32, named, quantity, text, word64
from .base import REQUIRED, Entity, M, Table

_FPO_ABOUT = "what it says of its offload: GetFPOUplinkStatus shows it"
NIC = Entity(
    "nic",
    "a NIC: a mapping with numa",
    (
        M("", "nic.name", text(1, 31, "a name of 1 to 31 bytes"), REQUIRED),
        M("numa", "nic.node", NODE, REQUIRED, "the NUMA node it is plugged into", shown="numa"),
        M("affinity", "nic.affinity", U32, None, "the node whose cores serve it", "`numa`", shown="affinity"),
        M(
            "link",
            "nic.link_mbps",
            quantity("bits a second, a multiple of 1M,", 1, 10**6, 10**6),
            "25G",
            "bits a second",
            shown="link",
        ),
        M("driver_text", "nic.driver_text", TRUTH, True, "its driver has private statistics"),
        M(
            "crc_ppm",
            "nic.crc_ppm",
            PPM.held_as("std::uint64_t"),
            0,
            "frames received damaged, of a million",
            shown="crc_ppm",
        ),
        M(
            "drop_ppm",
            "nic.drop_ppm",
            PPM.held_as("std::uint64_t"),
            0,
            "frames dropped in each direction, of a million",
            shown="drop_ppm",
        ),
        M("fpo", "nic.fpo_level", named(names.FPO_LEVELS, quoted=True), "none", "offload level", shown="fpo"),
        *(
            M(
                f"fpo_limits.{limit}",
                f"nic.fpo_{limit}",
                word64() if limit == "actions" else U32,
                0,
                _FPO_ABOUT,
                "by level",
            )
            for limit in names.FPO_LIMITS
        ),
    ),
)

ENTITIES = (NIC,)
TABLES = (Table("nic", "A network card.", ("name",), row="NicRow"),)
