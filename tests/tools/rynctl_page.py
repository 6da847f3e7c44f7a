"""Writes the ten tasks of docs/rynctl.md with their output on a simulated host whose clock stands, and the picture of
`rynctl top` beside it. `./dev demo --docs` runs this.
"""

from __future__ import annotations

import os
import re
import shlex
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import demo_page
from rich.text import Text

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/rynctl.md"
PICTURE = ROOT / "docs/rynctl-top.svg"
WIDTH = 100
COMMAND = re.compile(r"(?<=^```text\n)\$ (.*)\n(?:.*\n)*?(?=^```$)", re.MULTILINE)


class Shell:
    """A shell on a host of its own, in which `rynctl` is found."""

    def __init__(self, folder: Path):
        self.folder = folder
        build = Path(os.environ.get("RYN_BUILD", ROOT / "build"))
        binaries = folder / "bin"
        binaries.mkdir()
        (binaries / "rynctl").symlink_to(ROOT / "rynctl/rynctl")
        (binaries / "ryn-sim").symlink_to(ROOT / "simhost/tool/ryn-sim")
        self.environment = {
            "HOME": str(folder),
            "PATH": f"{binaries}:/usr/bin:/bin",
            "TERM": "xterm-256color",
            "LANG": "C.UTF-8",
            "COLUMNS": str(WIDTH),
            "LD_LIBRARY_PATH": str(build / "simhost"),
            "RYN_SIM_LIBS": str(build / "simhost"),
            "PYTHONPATH": f"{build}:{build / 'libryn'}",
            "RYN_SIM_STATE": str(folder / "host.db"),
            "NO_COLOR": "1",
            "PYTHONDONTWRITEBYTECODE": "1",
        }
        description = (ROOT / "simhost/profiles/default.yaml").read_text()
        assert "uptime: 1h" in description
        (folder / "hv0.yaml").write_text(description.replace("uptime: 1h", "uptime: 1h, frozen: true"))
        self.run("ryn-sim init hv0.yaml && ryn-sim clock step 20s")

    def run(self, command: str) -> str:
        done = subprocess.run(
            ["bash", "-c", command],
            env=self.environment,
            cwd=self.folder,
            text=True,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=60,
        )
        # The name of this machine is nobody's business
        return done.stdout.replace(os.uname().nodename, "hv0")


def page(text: str) -> str:
    """The page with the output of each command that it shows, run in their order."""
    with tempfile.TemporaryDirectory() as folder:
        shell = Shell(Path(folder))

        def shown(match: re.Match[str]) -> str:
            lines = [line for line in shell.run(match[1]).splitlines() if line != "simulated host hv0"]
            return "\n".join([f"$ {match[1]}", *lines]) + "\n"

        return COMMAND.sub(shown, text)


def top() -> str:
    """A terminal in which `rynctl top` has run for some seconds."""
    with tempfile.TemporaryDirectory() as folder:
        shell = Shell(Path(folder))
        shell.run("ryn-sim clock run")
        socket = str(Path(folder, "tmux"))
        environment = {name: value for name, value in shell.environment.items() if name not in ("NO_COLOR", "COLUMNS")}
        command = [
            "tmux",
            "-S",
            socket,
            "-f",
            "/dev/null",
            "new-session",
            "-d",
            "-x",
            "90",
            "-y",
            "24",
            shlex.join([f"{folder}/bin/rynctl", "top", "--interval", "1"]),
        ]
        subprocess.run(command, env=environment, check=True)
        try:
            time.sleep(4)
            capture = subprocess.run(
                ["tmux", "-S", socket, "capture-pane", "-p", "-e"],
                env=environment,
                text=True,
                check=True,
                stdout=subprocess.PIPE,
            ).stdout
        finally:
            subprocess.run(["tmux", "-S", socket, "kill-server"], env=environment, check=False)
    lines = [Text.from_ansi(line) for line in capture.replace(os.uname().nodename, "hv0").splitlines()]
    return demo_page.picture([line if len(line) else Text(" ") for line in lines], "rynctl top")


def main() -> None:
    PAGE.write_text(page(PAGE.read_text()))
    if "--top" in sys.argv:
        PICTURE.write_text(top())


if __name__ == "__main__":
    main()
