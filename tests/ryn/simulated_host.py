"""A simulated host whose clock stands, and Python on it in a process of its own."""

from __future__ import annotations

import os
import subprocess
import sys
import textwrap
from pathlib import Path

import ryn_sim

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("RYN_BUILD", ROOT / "build"))
PATIENCE_S = 120


class SimulatedHost:
    def __init__(self, folder: Path, profile: str = "default") -> None:
        self.state = folder / "host.db"
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith("RYN_")}
        self.environment.update(
            HOME=str(folder),
            XDG_STATE_HOME=str(folder),
            LD_LIBRARY_PATH=str(BUILD / "simhost"),
            PYTHONPATH=f"{BUILD}:{BUILD / 'libryn'}:{Path(__file__).parent}",
            RYN_SIM_LIBS=str(BUILD / "simhost"),
            RYN_SIM_STATE=str(self.state),
        )
        ryn_sim.make(profile, at=self.state).close()

    def tool(self, *arguments: str) -> str:
        command = ["/usr/bin/python3", str(ROOT / "simhost" / "tool" / "ryn-sim"), *arguments]
        return self._run(command)

    def python(self, code: str, *options: str) -> str:
        """Runs code; answers what it printed. It must end with 0 and print nothing on standard error."""
        return self._run([sys.executable, *options, "-c", textwrap.dedent(code)])

    def script(self, path: Path, *arguments: str) -> str:
        return self._run([sys.executable, str(path), *arguments])

    def _run(self, command: list[str]) -> str:
        done = subprocess.run(
            command, env=self.environment, text=True, capture_output=True, timeout=PATIENCE_S, cwd="/"
        )
        assert (done.returncode, done.stderr) == (0, ""), (command, done.stdout, done.stderr)
        return done.stdout
