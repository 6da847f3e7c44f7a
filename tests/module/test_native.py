"""Runs the native tests, one by one under their own names."""

import subprocess
from pathlib import Path

import _probe
import pytest

FOLDER = Path(_probe.__file__).parents[1] / "native"
BINARIES = ["native_tests", "host/host_tests"]  # the module's helpers in an interpreter, and host/ without one


def native_tests(binary: str) -> list[str]:
    names, suite = [], ""
    listing = subprocess.run([FOLDER / binary, "--gtest_list_tests"], text=True, capture_output=True, check=True).stdout
    for line in listing.splitlines():
        if line.startswith("  "):
            names.append(suite + line.split()[0])  # a parameter's value follows the name
        else:
            suite = line.strip()
    return names


@pytest.mark.parametrize("binary, name", [(binary, name) for binary in BINARIES for name in native_tests(binary)])
def test_native(binary: str, name: str):
    done = subprocess.run(
        [FOLDER / binary, f"--gtest_filter={name}", "--gtest_brief=1"], text=True, capture_output=True, timeout=60
    )
    assert done.returncode == 0, done.stdout + done.stderr
