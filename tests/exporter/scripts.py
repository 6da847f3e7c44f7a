"""Scripted platform libraries (standin/): each answer is a file, its bytes written by offset."""

from __future__ import annotations

import os
import struct
from pathlib import Path

from exporting import BUILD, Environment


class Scripts(Environment):
    def __init__(self, folder: Path) -> None:
        super().__init__(BUILD / "tests" / "exporter" / "standin", RYN_STANDIN=str(folder))
        self.folder = folder
        self.switches()

    def answer(self, name: str, area: bytes = b"", status: int = 0) -> None:
        """What an operation answers from now on: OPERATION, OPERATION-SWITCH or OPERATION-SWITCH-PORT."""
        self._write(name, struct.pack("<I", status) + area)

    def hang(self, name: str) -> None:
        self._write(name, b"hang")

    def forget(self, name: str) -> None:
        (self.folder / name).unlink()

    def calls(self) -> list[str]:
        return [line for line in (self.folder / "calls").read_text().splitlines() if not line.startswith("end ")]

    def ends(self) -> list[str]:
        return (self.folder / "calls").read_text().splitlines()

    def switches(self, *switches: tuple[int, str | bytes, int]) -> None:
        """Number, name and MTU of each"""
        area = bytearray(2568)
        struct.pack_into("<I", area, 0, len(switches))
        for i, (number, name, mtu) in enumerate(switches):
            text = name.encode() if isinstance(name, str) else name
            area[8 + 160 * i : 8 + 160 * i + len(text)] = text
            struct.pack_into("<IIIII", area, 8 + 160 * i + 128, number, 128, 0, 0, mtu)
        self.answer("Ryn_Get_Switch_List", bytes(area))

    def ports(self, switch: int, ports: list[tuple[int, int]]) -> None:
        """Number and kind (1 VNIC, 2 uplink) of each; one queue each way"""
        area = bytearray(11532)
        struct.pack_into("<I", area, 4, len(ports))
        for i, (number, kind) in enumerate(ports):
            struct.pack_into(
                "<IIBB6sHI",
                area,
                12 + 90 * i,
                1000 + number,
                number,
                1,
                1,
                bytes([2, 0, 0, 0, 0, number]),
                number,
                kind,
            )
        self.answer(f"Ryn_Get_Port_List-{switch}", bytes(area))

    def _write(self, name: str, content: bytes) -> None:
        part = self.folder / "part"
        part.write_bytes(content)
        os.replace(part, self.folder / name)
