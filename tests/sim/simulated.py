"""Simulated hosts for tests: a fresh host in a file of its own, and processes that use it."""

from __future__ import annotations

import contextlib
import json
import os
import select
import signal
import sqlite3
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).parents[2]
BUILD = Path(os.environ.get("RYN_BUILD", ROOT / "build"))
NOT_FOUND, BAD_PARAMETER, NO_STORE = 0x0BAD0003, 0x0BAD0007, 0x0BAD0001

sys.path.insert(0, str(ROOT / "simhost" / "tool"))

import ryn_sim  # noqa: E402

# The default profile's switches and ports, as the tests use them
SWITCHES = ("dvs-1", "dvs-2")
START_MS = 3_600_000
PATIENCE_S = 120


def environment(**more: str) -> dict[str, str]:
    """An environment in which _libryn finds the stand-ins."""
    values = {**os.environ, "LD_LIBRARY_PATH": str(BUILD / "simhost"), "PYTHONPATH": str(BUILD / "libryn")}
    for name in ("RYN_SIM_STATE", "RYN_SIM_HOST"):
        values.pop(name, None)
    return {**values, **more}


class Process:
    """A process that uses simulated hosts. `process.call(host, "GetPortStats", 0, 2)` answers what the method did."""

    def __init__(self, state: Path) -> None:
        # The configuration of the distributed switches is loaded with the module, so from the host named here.
        self.stderr = ""
        self._child = subprocess.Popen(
            [sys.executable, str(Path(__file__).with_name("worker.py"))],
            text=True,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            env=environment(RYN_SIM_STATE=str(state)),
        )
        assert self._child.stdin and self._child.stdout
        self._requests, self._answers = self._child.stdin, self._child.stdout

    @property
    def pid(self) -> int:
        return self._child.pid

    def send(self, state: Path, calls: list) -> None:
        self._requests.write(json.dumps({"state": str(state), "calls": calls}) + "\n")
        self._requests.flush()

    def receive(self) -> list:
        if not select.select([self._answers], [], [], PATIENCE_S)[0]:
            raise RuntimeError(f"no answer within {PATIENCE_S} seconds")
        line = self._answers.readline()
        if not line:
            raise RuntimeError(f"the process ended with {self._child.wait()}")
        answer = json.loads(line)
        self.stderr = answer["stderr"]
        return answer["values"]

    def calls(self, state: Path, calls: list) -> list:
        """Several calls at once; fails if one of them had something to say on standard error."""
        self.send(state, calls)
        values = self.receive()
        assert self.stderr == "", self.stderr
        return values

    def kill(self) -> None:
        self._child.send_signal(signal.SIGKILL)
        self._child.wait()

    def close(self) -> None:
        with contextlib.suppress(BrokenPipeError):
            self._requests.close()
        self._answers.close()
        self._child.wait()


class Host:
    """A simulated host in a file. Its clock stands still until step() or run() moves it."""

    def __init__(self, state: Path, process: Process, other: Process) -> None:
        self.state, self.process, self.other = state, process, other

    def __getattr__(self, method: str):
        """host.GetPortStats(0, 2) calls the method in the first process."""
        return lambda *arguments: self.process.calls(self.state, [[method, *arguments]])[0]

    def many(self, calls: list) -> list:
        return self.process.calls(self.state, calls)

    def elsewhere(self, method: str, *arguments):
        """Calls the method in the second process."""
        return self.other.calls(self.state, [[method, *arguments]])[0]

    def complaint(self, method: str, *arguments) -> str:
        """What a call that fails says on standard error."""
        self.process.send(self.state, [[method, *arguments]])
        self.process.receive()
        return self.process.stderr

    def apply(self, sql: str) -> None:
        assert self.process.calls(self.state, [["apply", sql]]) == [0]

    def step(self, seconds: float) -> None:
        self.apply(f"UPDATE clock SET base_host_ns = base_host_ns + {round(seconds * 1e9)}")

    def run(self, speed: int = 1) -> None:
        self.apply(f"UPDATE clock SET mode = 'run', base_wall_ns = 0, speed_permille = {speed * 1000}")

    def rows(self, sql: str) -> list[tuple]:
        with contextlib.closing(sqlite3.connect(f"file:{self.state}?mode=ro", uri=True)) as store:
            return store.execute(sql).fetchall()

    def copy(self, to: Path) -> "Host":
        with contextlib.closing(sqlite3.connect(self.state)) as store, contextlib.closing(sqlite3.connect(to)) as copy:
            store.backup(copy)
            copy.execute("PRAGMA journal_mode = WAL")
        return Host(to, self.process, self.other)


def make_template(path: Path, process: Process) -> Path:
    """Makes a default host whose clock stands at START_MS, in one file without a log beside it."""
    assert process.calls(path, [["apply", "UPDATE clock SET mode = 'freeze', base_wall_ns = 0"]]) == [0]
    with contextlib.closing(sqlite3.connect(path)) as store:
        store.execute(f"UPDATE clock SET base_host_ns = {START_MS} * 1000000")
        # As if nobody had looked yet
        store.execute("DELETE FROM base")
        store.execute("UPDATE host SET segment_ms = 0")
        store.execute(f"UPDATE balancer SET tick_ms = {START_MS} - period_ms, state = x''")
        store.execute("DELETE FROM move")
        store.commit()
        store.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    return path


def make(path: Path, description: str) -> Path:
    """Makes a host from a description, in YAML, or from a profile; its clock stands."""
    ryn_sim.make(description, at=path).close()
    return path
