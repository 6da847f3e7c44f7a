"""ryn-sim as its users meet it, with a state folder of its own."""

from __future__ import annotations

import contextlib
import gc
import io
import os
import pathlib
import subprocess
import sys
from unittest import mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = ROOT / "simhost" / "tool" / "ryn-sim"
PROFILES = ROOT / "simhost" / "profiles"

sys.path.insert(0, str(ROOT / "simhost" / "tool"))

from ryn_sim import cli  # noqa: E402


class Sim:
    """Runs ryn-sim. A call answers its standard output; a failing one has to be expected with `fails`.

    Commands are done in this process, which is quicker; process() runs one as users do.
    """

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

    def outcome(self, *arguments: object, text: str | None = None, **environment: str) -> tuple[int, str, str]:
        """Exit code, standard output and standard error of a command, done in this process unless it runs a program."""
        words = [str(argument) for argument in arguments]
        if "run" in words:
            done = self.process(*words, text=text, **environment)
            return done.returncode, done.stdout, done.stderr
        output, errors = io.StringIO(), io.StringIO()
        with (
            mock.patch.dict(os.environ, self.environment | environment, clear=True),
            mock.patch.object(sys, "stdin", io.StringIO(text or "")),
            contextlib.redirect_stdout(output),
            contextlib.redirect_stderr(errors),
        ):
            try:
                code = cli.main(words)
            except SystemExit as done:
                code = int(done.code or 0)
        gc.collect()  # closes the stores that a command has left open, as the end of its process does
        return code, output.getvalue(), errors.getvalue()

    def __call__(self, *arguments: object, text: str | None = None, **environment: str) -> str:
        """A command's standard output; it must do what it shall."""
        code, output, errors = self.outcome(*arguments, text=text, **environment)
        assert (code, errors) == (0, ""), (arguments, output, errors)
        return output

    def fails(self, code: int, *arguments: object, text: str | None = None, **environment: str) -> str:
        """The message of a command that must end with this exit code and print nothing else."""
        found, output, errors = self.outcome(*arguments, text=text, **environment)
        assert (found, output) == (code, ""), (arguments, output, errors)
        assert "Traceback" not in errors, errors
        return errors

    def path(self, host: str = "default") -> pathlib.Path:
        return self.folder / "state" / "ryn-sim" / f"{host}.db"
