"""Every interpreter that is there: the module, installed from a wheel that is built for it, goes through the checks of
on_interpreter.py: all outcomes, every failing call, every failing allocation, arguments and hooks that mean harm.
"""

from __future__ import annotations

from pathlib import Path

import interpreters
import pytest
from builds import DEBUG_INTERPRETER, build_helpers, build_module, run_checks
from harness import UNDER_ASAN, Double
from packages import Packages, skip_where_nothing_is_built


@interpreters.each
def test_module_on(packages: Packages, interpreter: Path):
    skip_where_nothing_is_built()
    output = packages.run(interpreter, "import on_interpreter; on_interpreter.check()")
    print(output)
    assert output.endswith("unharmed\n")


@pytest.mark.skipif(not DEBUG_INTERPRETER.exists(), reason=f"there is no {DEBUG_INTERPRETER}")
def test_module_on_a_debug_build(double: Double, tmp_path: Path):
    """It ends where something is called or built while an error is pending, or where references are miscounted."""
    if UNDER_ASAN:
        pytest.skip("built without the sanitizers")
    build_module(DEBUG_INTERPRETER, double.folder, tmp_path, "-Doptimization=1", "-Ddebug=false")
    build_helpers(DEBUG_INTERPRETER, double.folder, tmp_path)
    done = run_checks(DEBUG_INTERPRETER, tmp_path)
    print(done.stdout, done.stderr)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.endswith("unharmed\n")
