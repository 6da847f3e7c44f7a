"""Every interpreter that is there: the module is built for it and goes through the checks of on_interpreter.py: all
outcomes, every failing call, every failing allocation, arguments and hooks that mean harm. Half a minute for each.
"""

from __future__ import annotations

from pathlib import Path

import interpreters
import pytest
from builds import DEBUG_INTERPRETER, build_helpers, build_module, run_checks
from harness import UNDER_ASAN, Double


def check_on(double: Double, interpreter: Path, folder: Path) -> None:
    if UNDER_ASAN:
        pytest.skip("built without the sanitizers")
    build_module(interpreter, double.folder, folder, "-Doptimization=1", "-Ddebug=false")
    build_helpers(interpreter, double.folder, folder)
    done = run_checks(interpreter, folder)
    print(done.stdout, done.stderr)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.endswith("unharmed\n")


@interpreters.each
def test_module_on(double: Double, interpreter: Path, tmp_path: Path):
    check_on(double, interpreter, tmp_path)


@pytest.mark.skipif(not DEBUG_INTERPRETER.exists(), reason=f"there is no {DEBUG_INTERPRETER}")
def test_module_on_a_debug_build(double: Double, tmp_path: Path):
    """It ends where something is called or built while an error is pending, or where references are miscounted."""
    check_on(double, DEBUG_INTERPRETER, tmp_path)
