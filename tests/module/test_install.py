"""Where a build installs the module (libryn/interpreter.py), which every interpreter is asked itself."""

import subprocess
import sys
from pathlib import Path

import pytest

SCRIPT = Path(__file__).parents[2] / "libryn/interpreter.py"
DEBIANS = "/usr/bin/python3"


def facts(interpreter: str, prefix: str) -> dict:
    done = subprocess.run([interpreter, "-B", SCRIPT, prefix], text=True, capture_output=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, "")
    return dict(line.split("=", 1) for line in done.stdout.splitlines())


def searched_by(interpreter: str) -> list:
    done = subprocess.run(
        [interpreter, "-c", "import site; print(*site.getsitepackages(), sep='\\n')"], text=True, capture_output=True
    )
    return done.stdout.splitlines()


@pytest.mark.parametrize("interpreter", sorted({DEBIANS, sys.executable}))
def test_default_prefix_is_searched(interpreter: str):
    said = facts(interpreter, "/usr/local")
    assert said["site"] in searched_by(interpreter)
    assert said["searched"] == "yes"


def test_debians_folders():
    if not Path("/etc/debian_version").exists():
        pytest.skip("not on Debian")
    assert facts(DEBIANS, "/usr")["site"] == "/usr/lib/python3/dist-packages"
    assert facts(DEBIANS, "/usr/local/")["site"].startswith("/usr/local/lib/python3.")


def test_a_prefix_that_nobody_searches():
    said = facts(sys.executable, "/opt/libryn")
    version = "python%d.%d" % sys.version_info[:2]
    assert said["site"] == f"/opt/libryn/lib/{version}/site-packages"
    assert said["searched"] == "no"


def test_headers_and_suffix():
    said = facts(sys.executable, "/usr/local")
    assert (Path(said["include"]) / "Python.h").exists()
    assert said["suffix"].endswith("so") and not said["suffix"].startswith(".")
    assert said["version"] == "%d.%d" % sys.version_info[:2]
