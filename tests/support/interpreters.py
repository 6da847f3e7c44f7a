"""The other interpreters of this machine, for tests that go through each: those of pyenv, from the oldest supported on.

    @interpreters.each
    def test_it(interpreter: Path): ...

is skipped, visibly, where there are none.
"""

from __future__ import annotations

import re
from pathlib import Path

import pytest

OLDEST = (3, 8)


def found() -> list[Path]:
    """The programs, oldest version first."""
    versions = {}
    for program in Path.home().glob(".pyenv/versions/*/bin/python"):
        version = re.match(r"(\d+)\.(\d+)\.(\d+)", program.parts[-3])
        if version and tuple(map(int, version.groups())) >= OLDEST:
            versions[tuple(map(int, version.groups()))] = program
    return [versions[version] for version in sorted(versions)]


each = pytest.mark.parametrize(
    "interpreter",
    [pytest.param(program, id=program.parts[-3]) for program in found()]
    or [pytest.param(None, id="none", marks=pytest.mark.skip("there is no other interpreter in ~/.pyenv"))],
)
