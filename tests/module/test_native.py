"""Runs the native tests, one by one under their own names."""

import subprocess
from pathlib import Path

import pytest

import _probe

BINARY = Path(_probe.__file__).parents[1] / "native/native_tests"


def native_tests() -> list[str]:
    names, suite = [], ""
    listing = subprocess.run([BINARY, "--gtest_list_tests"], text=True, capture_output=True, check=True).stdout
    for line in listing.splitlines():
        if line.startswith("  "):
            names.append(suite + line.strip())
        else:
            suite = line.strip()
    return names


@pytest.mark.parametrize("name", native_tests())
def test_native(name: str):
    done = subprocess.run([BINARY, f"--gtest_filter={name}", "--gtest_brief=1"], text=True, capture_output=True,
                          timeout=60)
    assert done.returncode == 0, done.stdout + done.stderr
