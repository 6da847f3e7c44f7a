"""A test that hangs: support/watchdog.py."""

import os
import subprocess
import sys
from pathlib import Path

SUPPORT = Path(__file__).parents[1] / "support"

HANGS = """
import ctypes
import pytest

def test_ends():
    pass

@pytest.mark.parametrize("hangs", [False, True], ids=["ends", "hangs"])
def test_with_the_interpreter_lock_held(hangs):
    if hangs:
        ctypes.PyDLL(None).pause()
"""


def test_a_test_that_hangs_ends_with_its_name(tmp_path):
    (tmp_path / "test_example.py").write_text(HANGS)
    environment = {**os.environ, "PYTHONPATH": str(SUPPORT), "RYN_TEST_SECONDS": "2"}
    environment.pop("LD_PRELOAD", None)
    done = subprocess.run(
        [sys.executable, "-m", "pytest", "-p", "watchdog", "-q", "--rootdir", tmp_path, "-c", os.devnull, tmp_path],
        env=environment,
        text=True,
        capture_output=True,
        timeout=120,
    )
    assert done.returncode == 1
    assert "Timeout (0:00:02)!" in done.stderr
    hanging = "test_example.py::test_with_the_interpreter_lock_held[hangs]"
    assert f'test_example.py", line 11 in {hanging}\n' in done.stderr
    assert "test_ends" not in done.stderr
