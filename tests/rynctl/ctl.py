"""Runs the real command on simulated hosts."""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path
from typing import Any, Dict, List

import ryn_sim

ROOT = Path(__file__).parents[2]
BUILD = Path(os.environ.get("RYN_BUILD", ROOT / "build"))
RYNCTL = ROOT / "rynctl/rynctl"
TOOL = ["/usr/bin/python3", str(ROOT / "simhost/tool/ryn-sim")]
PROFILES = ("default", "empty", "large", "overloaded", "asymmetric", "degraded")


def environment(state: Path) -> Dict[str, str]:
    """What a user has, and what `ryn-sim run` adds."""
    return {
        "HOME": str(state.parent),
        "PATH": "/usr/bin:/bin",
        "TERM": "xterm",
        "LANG": "C.UTF-8",
        "LD_LIBRARY_PATH": str(BUILD / "simhost"),
        "PYTHONPATH": f"{BUILD}:{BUILD / 'libryn'}",
        "RYN_SIM_STATE": str(state),
        "RYN_SIM_LIBS": str(BUILD / "simhost"),
    }


def sim(state: Path, *arguments: str) -> str:
    done = subprocess.run([*TOOL, *arguments], env=environment(state), text=True, capture_output=True, timeout=60)
    assert done.returncode == 0, done.stderr
    return done.stdout


def new_host(state: Path, profile: str) -> Path:
    """A host whose clock stands, with its whole store in one file."""
    ryn_sim.make(profile, at=state).close()
    return state


class Ctl:
    def __init__(self, state: Path):
        self.state = state
        self.environment = environment(state)

    def __call__(
        self, *arguments: str, code: int = 0, stdin: str = "", **more: str
    ) -> subprocess.CompletedProcess[str]:
        """Runs it with its output in pipes; anything but the expected exit code fails."""
        done = subprocess.run(
            ["/usr/bin/python3", str(RYNCTL), *arguments],
            env={**self.environment, **more},
            text=True,
            capture_output=True,
            input=stdin,
            timeout=60,
            errors="surrogateescape",
        )
        assert done.returncode == code, (done.returncode, done.stdout[-2000:], done.stderr[-2000:])
        return done

    def data(self, *arguments: str) -> List[Dict[str, Any]]:
        done = self("-j", *arguments)
        assert done.stderr == ""
        rows: List[Dict[str, Any]] = json.loads(done.stdout)["data"]
        return rows

    def refused(self, *arguments: str, code: int = 2) -> str:
        """What it says when it refuses: one line, and nothing on standard output."""
        done = self(*arguments, code=code)
        assert done.stdout == "" and done.stderr.startswith("rynctl: ") and done.stderr.count("\n") == 1, done.stderr
        return done.stderr[len("rynctl: ") : -1]

    def sim(self, *arguments: str) -> str:
        return sim(self.state, *arguments)
