"""A test that hangs: support/watchdog.py."""

import os
import subprocess
import sys
from pathlib import Path

SUPPORT = Path(__file__).parents[1] / "support"

HANGS = """
import ctypes

def test_ends():
    pass

def test_hangs_with_the_interpreter_lock_held():
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
    assert 'test_example.py", line 8 in test_hangs_with_the_interpreter_lock_held' in done.stderr
    assert "test_ends" not in done.stderr
