"""Writes the tour of a simulated host into the documents: the whole of it as docs/demo.md, its first lines into the
README, and a picture of a terminal that shows it, docs/demo.svg. `./dev demo --docs` runs this.
"""

from __future__ import annotations

import os
import subprocess
import tempfile
from pathlib import Path

from rich.console import Console
from rich.terminal_theme import DIMMED_MONOKAI
from rich.text import Text

ROOT = Path(__file__).resolve().parents[2]
README = ROOT / "README.md"
PAGE = ROOT / "docs/demo.md"
PICTURE = ROOT / "docs/demo.svg"
BEGIN = "<!-- The tour: ./dev demo --docs writes it. -->\n"
END = "<!-- The tour ends. -->\n"
README_LINES = 15
PICTURE_LINES = 29

# As rich lays a terminal out, but with the reader's own fonts: the picture fetches nothing.
SVG = """\
<svg viewBox="0 0 {width} {height}" xmlns="http://www.w3.org/2000/svg">
<style>
.{unique_id}-matrix {{ font-family: ui-monospace, Menlo, Consolas, "DejaVu Sans Mono", monospace;
  font-size: {char_height}px; line-height: {line_height}px; }}
.{unique_id}-title {{ font-size: 18px; font-family: sans-serif; }}
{styles}
</style>
<defs>
<clipPath id="{unique_id}-clip-terminal">
<rect x="0" y="0" width="{terminal_width}" height="{terminal_height}" />
</clipPath>
{lines}
</defs>
{chrome}
<g transform="translate({terminal_x}, {terminal_y})" clip-path="url(#{unique_id}-clip-terminal)">
{backgrounds}
<g class="{unique_id}-matrix">
{matrix}
</g>
</g>
</svg>
"""


def tour() -> str:
    """What examples/tour.py --still shows on a new host."""
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, "RYN_SIM_STATE": os.path.join(folder, "tour.db")}
        run = ["/usr/bin/python3", "simhost/tool/ryn-sim", "run", "--", "/usr/bin/python3", "examples/tour.py"]
        return subprocess.run(
            [*run, "--still"],
            cwd=ROOT,
            env=environment,
            text=True,
            check=True,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        ).stdout


def with_tour(text: str, output: str) -> str:
    head, begin, rest = text.partition(BEGIN)
    _, end, tail = rest.partition(END)
    assert begin and end, "the marks of the tour are missing"
    return f"{head}{BEGIN}\n```text\n{output}```\n\n{END}{tail}"


def picture(lines: list[Text], title: str) -> str:
    """The lines in a terminal, as SVG."""
    with open(os.devnull, "w") as nowhere:
        console = Console(record=True, width=max(map(len, lines)) + 1, file=nowhere)
        for line in lines:
            console.print(line)
    return console.export_svg(title=title, theme=DIMMED_MONOKAI, code_format=SVG, unique_id="terminal")


def pages() -> dict[Path, str]:
    """Each file that shows the tour, with what it should hold."""
    output = tour()
    lines = output.splitlines()
    return {
        README: with_tour(README.read_text(), "\n".join(lines[:README_LINES]) + "\n"),
        PAGE: "# What the demo shows\n\nThe tour at the end of `./dev demo`, here with the clock stepped instead of "
        "waited "
        f"for. `./dev demo --docs` wrote this\npage.\n\n```text\n{output}```\n",
        PICTURE: picture(
            [Text(line, "bold cyan" if line.startswith("-- ") else "") for line in lines[:PICTURE_LINES]], "./dev demo"
        ),
    }


if __name__ == "__main__":
    for path, text in pages().items():
        path.write_text(text)
