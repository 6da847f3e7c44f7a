"""What the tool asks of the simulated host itself: a library beside the stand-ins, for one store at a time."""

from __future__ import annotations

import ctypes
import json
import os
import threading
from contextlib import contextmanager
from typing import Any, Iterator

from . import paths
from .errors import Failed

_turn = threading.Lock()  # the library finds its store in the environment


class Library:
    """The functions of libryn_sim.so on one store."""

    def __init__(self, path: str):
        self._path = path
        file = os.path.join(paths.libraries(), "libryn_sim.so")
        try:
            self._loaded = ctypes.CDLL(file)
            self._loaded.ryn_sim_apply.argtypes = [ctypes.c_char_p]
            self._loaded.ryn_sim_apply.restype = ctypes.c_uint32
            self._loaded.ryn_sim_catch_up.restype = ctypes.c_int64
            self._loaded.ryn_sim_rates.restype = ctypes.c_void_p
            self._loaded.ryn_sim_free.argtypes = [ctypes.c_void_p]
            self._loaded.ryn_sim_set_clock.argtypes = [ctypes.c_int32, ctypes.c_int64, ctypes.c_int64]
            self._loaded.ryn_sim_set_clock.restype = ctypes.c_int64
        except (OSError, AttributeError) as error:
            raise Failed(f"{file} cannot be used: {error}") from None

    @contextmanager
    def _at_store(self) -> Iterator[None]:
        with _turn:
            before = os.environ.get("RYN_SIM_STATE")
            os.environ["RYN_SIM_STATE"] = self._path
            try:
                yield
            finally:
                if before is None:
                    del os.environ["RYN_SIM_STATE"]
                else:
                    os.environ["RYN_SIM_STATE"] = before

    def apply(self, sql: str) -> int:
        """Runs statements in one transaction, counting up to now by the old settings. Answers a status, 0 if done."""
        with self._at_store():
            return int(self._loaded.ryn_sim_apply(sql.encode()))

    def catch_up(self) -> int:
        """Replays what is due; answers the host time in milliseconds."""
        with self._at_store():
            return self._checked(self._loaded.ryn_sim_catch_up())

    def set_clock(self, running: bool | None, speed_permille: int, ahead_ns: int) -> int:
        """Lets the clock run or stand (None: as it does), at a speed (0: as it is), so much ahead of now."""
        with self._at_store():
            return self._checked(
                self._loaded.ryn_sim_set_clock(-1 if running is None else running, speed_permille, ahead_ns)
            )

    def rates(self) -> dict[str, Any]:
        """Figures of the present second: packets offered, delivered and lost, by conversation, core and link."""
        with self._at_store():
            text = self._loaded.ryn_sim_rates()
            if not text:
                raise Failed(f"{self._path}: the host cannot be read")
            try:
                found: dict[str, Any] = json.loads(ctypes.string_at(text))
                return found
            finally:
                self._loaded.ryn_sim_free(text)

    def _checked(self, ms: int) -> int:
        if ms < 0:
            raise Failed(f"{self._path}: the host cannot be read")
        return ms
