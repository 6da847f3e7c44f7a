"""ryn-sim as its users meet it: as a process of its own, with a state folder of its own."""

from __future__ import annotations

import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = ROOT / "simhost" / "tool" / "ryn-sim"
PROFILES = ROOT / "simhost" / "profiles"

sys.path.insert(0, str(ROOT / "simhost" / "tool"))


class Sim:
    """Runs ryn-sim. A call answers its standard output; a failing one has to be expected with `fails`."""

    def __init__(self, folder: pathlib.Path):
        self.folder = folder
        self.environment = {name: value for name, value in os.environ.items() if not name.startswith("RYN_SIM_")}
        self.environment.update(XDG_STATE_HOME=str(folder / "state"), HOME=str(folder))
        build = os.environ.get("RYN_BUILD")
        if build:
            self.environment["RYN_SIM_LIBS"] = os.path.join(build, "simhost")

    def process(self, *arguments, text: str | None = None, **environment) -> subprocess.CompletedProcess:
        return subprocess.run(
            ["/usr/bin/python3", str(TOOL), *map(str, arguments)],
            input=text,
            capture_output=True,
            text=True,
            env=self.environment | environment,
            timeout=120,
        )

    def __call__(self, *arguments, text: str | None = None, **environment) -> str:
        done = self.process(*arguments, text=text, **environment)
        assert (done.returncode, done.stderr) == (0, ""), (arguments, done)
        return done.stdout

    def fails(self, code: int, *arguments, text: str | None = None, **environment) -> str:
        """The message of a call that must end with this exit code and print nothing else."""
        done = self.process(*arguments, text=text, **environment)
        assert (done.returncode, done.stdout) == (code, ""), (arguments, done)
        assert "Traceback" not in done.stderr, done.stderr
        return done.stderr

    def path(self, host: str = "default") -> pathlib.Path:
        return self.folder / "state" / "ryn-sim" / f"{host}.db"
