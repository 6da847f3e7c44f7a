"""Where a build installs the module (libryn/interpreter.py), which every interpreter is asked itself."""

import json
import os
import subprocess
import sys
from pathlib import Path
from typing import Iterator

import pytest
from harness import TOOLS, Double

ROOT = Path(__file__).parents[2]
SCRIPT = ROOT / "libryn/interpreter.py"
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


def test_warnings_are_errors_in_the_builds_of_dev_only():
    """Another compiler or interpreter brings warnings of its own, and still builds."""
    defaults = subprocess.run(
        ["/usr/bin/meson", "introspect", "--buildoptions", ROOT / "meson.build"],
        env=TOOLS,
        text=True,
        capture_output=True,
        check=True,
    ).stdout
    assert {option["name"]: option["value"] for option in json.loads(defaults)}["werror"] is False
    assert 'meson setup "$folder" -Dwerror=true' in (ROOT / "dev").read_text()


# An installation, below a folder that stands for the root


@pytest.fixture
def build(double: Double) -> Iterator[Path]:
    """The build folder. What its user has installed from it can still be uninstalled afterwards."""
    folder = double.folder.parents[1]
    log = folder / "meson-logs/install-log.txt"
    installed = log.read_bytes() if log.exists() else None
    yield folder
    if installed is not None:
        log.write_bytes(installed)


def test_all_that_is_installed_is_found_and_removed_again(build: Path, tmp_path: Path):
    """By the two commands of the README."""
    assert "sudo meson install -C build" in (ROOT / "README.md").read_text()
    assert "`sudo ninja -C build uninstall`" in (ROOT / "README.md").read_text()
    subprocess.run(
        ["/usr/bin/meson", "install", "-C", build, "--no-rebuild", "--quiet", "--destdir", tmp_path],
        env=TOOLS,
        check=True,
    )
    installed = {path.relative_to(tmp_path) for path in tmp_path.rglob("*") if path.is_file()}
    (module,) = [path for path in installed if path.name.startswith("_libryn.") and path.suffix == ".so"]
    assert f"/{module.parent}" in searched_by(DEBIANS)
    assert {module.parent / "ryn/__init__.py", module.parent / "_libryn-stubs/__init__.pyi"} <= installed
    assert {"rynctl", "libryn.h", "_libryn.3", "rynctl.8"} <= {path.name for path in installed}

    code = "import _libryn, ryn; print(_libryn.__file__, ryn.__file__, ryn.raw.ListSwitches())"
    environment = {**os.environ, "PYTHONPATH": str(tmp_path / module.parent), "PYTHONDONTWRITEBYTECODE": "1"}
    said = subprocess.run([DEBIANS, "-c", code], env=environment, text=True, capture_output=True, cwd=tmp_path)
    assert said.stdout == f"{tmp_path / module} {tmp_path / module.parent}/ryn/__init__.py []\n", said.stderr
    done = subprocess.run(
        [tmp_path / "usr/local/bin/rynctl", "--version"],
        env={**environment, "PYTHONDONTWRITEBYTECODE": "1"},
        text=True,
        capture_output=True,
    )
    assert (done.returncode, done.stderr) == (0, "") and done.stdout.startswith("rynctl ")

    subprocess.run(["/usr/bin/ninja", "-C", build, "--quiet", "uninstall"], env=TOOLS, check=True, capture_output=True)
    assert [path for path in tmp_path.rglob("*") if path.is_file()] == []
