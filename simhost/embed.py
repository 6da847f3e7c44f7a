"""Turns text files into constants of a C++ source file: embed.py OUTPUT NAME=FILE ..."""

import sys
from pathlib import Path


def main(output: str, *constants: str) -> None:
    lines = ['#include "simhost/host/store.h"', "", "namespace simhost {"]
    for constant in constants:
        name, _, path = constant.partition("=")
        data = Path(path).read_bytes() + b"\0"
        lines += ["", f"const char {name}[] = {{"]
        lines += ["    " + ", ".join(map(str, data[at : at + 24])) + "," for at in range(0, len(data), 24)]
        lines += ["};"]
    lines += ["", "}  // namespace simhost", ""]
    Path(output).write_text("\n".join(lines))


main(*sys.argv[1:])
