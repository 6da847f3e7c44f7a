"""Puts the tour's output into the README, between two marks. ./dev demo --readme runs it."""

from __future__ import annotations

import os
import pathlib
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
README = ROOT / "README.md"
BEGIN = "<!-- The tour: ./dev demo --readme writes it. -->\n"
END = "<!-- The tour ends. -->\n"


def tour() -> str:
    """What examples/tour.py --still shows on a new host."""
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, "RYN_SIM_STATE": os.path.join(folder, "tour.db")}
        run = ["/usr/bin/python3", "simhost/tool/ryn-sim", "run", "--", "/usr/bin/python3", "examples/tour.py"]
        return subprocess.run([*run, "--still"], cwd=ROOT, env=environment, text=True, check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout


def with_tour(text: str, output: str) -> str:
    head, _, rest = text.partition(BEGIN)
    _, _, tail = rest.partition(END)
    return f"{head}{BEGIN}\n```text\n{output}```\n\n{END}{tail}"


if __name__ == "__main__":
    README.write_text(with_tour(README.read_text(), tour()))
