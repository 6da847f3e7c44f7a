"""The instructions of a call stay within its budget, so that what was gained in speed is not lost again.

A timed test would depend on what else the machine does; these counts depend on the interpreter and the compiler only.
When a change is worth its cost, renew the budgets: tests/support/instructions.py --renew.
"""

from __future__ import annotations

import json
import os
import shutil
import sys
from pathlib import Path

import instructions
import pytest

BUDGETS = json.loads(instructions.BUDGETS.read_text())


@pytest.fixture(scope="module")
def counts(_module) -> dict[str, float]:
    if not shutil.which("valgrind"):
        pytest.skip("there is no valgrind")
    if sys.version_info[:2] != (3, 11) or sys.executable != "/usr/bin/python3":
        pytest.skip("the budgets are those of Debian's interpreter")
    image = Path(_module.__file__).read_bytes()
    if "LD_PRELOAD" in os.environ or "PYTHONMALLOC" in os.environ or b"__gcov_" in image:
        pytest.skip("this build or this allocator does work of its own")
    return instructions.count()


@pytest.mark.parametrize("name", BUDGETS)
def test_instructions_of_a_call(counts, name: str):
    assert counts[name] <= BUDGETS[name], f"{name}: {counts[name]:,} instructions, budget {BUDGETS[name]:,}"


def test_every_case_has_a_budget(counts):
    assert counts.keys() == BUDGETS.keys()


def test_budgets_are_close(counts):
    """A budget far above the count would hide a regression."""
    assert {name: (counts[name], BUDGETS[name]) for name in BUDGETS if BUDGETS[name] > 1.3 * counts[name]} == {}


def test_rows_of_small_and_large_tables_take_the_same(counts):
    rows = [counts[f"ListSwitchMACTable, a row of {rows}"] for rows in instructions.ROWS]
    assert max(rows) <= 1.3 * min(rows)
