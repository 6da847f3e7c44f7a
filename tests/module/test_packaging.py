"""What `python3 -m build` makes: a source archive that is complete, and wheels that hold what a user installs."""

from __future__ import annotations

import re
import subprocess
import tarfile
import zipfile
from email.message import Message
from email.parser import Parser
from pathlib import Path

import interpreters
import pytest
from harness import TOOLS
from method_table import METHODS
from packages import DEBIANS, ENVIRONMENT, ROOT, Packages, contents, skip_where_nothing_is_built

MODULE = re.compile(r"_libryn\.cpython-[\w-]+\.so")


@pytest.fixture(autouse=True)
def _can_be_built() -> None:
    skip_where_nothing_is_built()


@pytest.fixture
def wheel(packages: Packages) -> Path:
    return packages.wheel(DEBIANS)


def metadata(wheel: Path) -> Message:
    with zipfile.ZipFile(wheel) as archive:
        return Parser().parsestr(archive.read("libryn-1.0.0.dist-info/METADATA").decode())


def test_source_archive_holds_the_tree(packages: Packages):
    tracked = subprocess.run(["git", "ls-files"], cwd=packages.tree, text=True, capture_output=True, check=True).stdout
    with tarfile.open(packages.built[0]) as archive:
        archived = {name.partition("/")[2] for name in archive.getnames()}
    assert archived == {*tracked.splitlines(), "PKG-INFO"}


def test_wheel_holds_what_users_import(wheel: Path):
    """The module, the packages and their types; no library of the platform, nothing of the simulated host."""
    suffix = next(name for name in contents(wheel) if MODULE.fullmatch(name)).partition(".")[2]
    ryn = {f"ryn/{path.name}" for path in (ROOT / "ryn").glob("*.py*")} | {"ryn/py.typed"}
    rynctl = {f"rynctl/{path.name}" for path in (ROOT / "rynctl").glob("*.py")}
    schemas = {f"rynctl/schemas/{path.name}" for path in (ROOT / "rynctl/schemas").iterdir()}
    information = {"METADATA", "RECORD", "WHEEL", "entry_points.txt"}
    assert contents(wheel) == {
        f"_libryn.{suffix}",
        "_libryn-stubs/__init__.pyi",
        f"ryn/_core.{suffix}",
        f"ryn/_records.{suffix}",
        *ryn,
        *rynctl,
        *schemas,
        "libryn-1.0.0.data/headers/libryn.h",
        *(f"libryn-1.0.0.dist-info/{name}" for name in information),
    }


def test_modules_are_stripped_and_have_no_run_path(wheel: Path, tmp_path: Path):
    with zipfile.ZipFile(wheel) as archive:
        modules = [name for name in archive.namelist() if name.endswith(".so")]
        archive.extractall(tmp_path, modules)
    assert len(modules) == 3
    for name in modules:
        sections = subprocess.run(
            ["readelf", "--sections", "--dynamic", "--wide", tmp_path / name],
            text=True,
            capture_output=True,
            check=True,
            env=TOOLS,
        ).stdout
        assert ".dynsym" in sections
        assert not re.search(r"\.symtab|\.debug_|RPATH|RUNPATH", sections), name
        assert (tmp_path / name).stat().st_size < 256 << 10, name


def test_metadata(wheel: Path):
    said = metadata(wheel)
    assert (said["Name"], said["Version"], said["Requires-Python"]) == ("libryn", "1.0.0", ">=3.8")
    assert said["License"] == "Apache-2.0"  # not the whole text of it
    classifiers = said.get_all("Classifier")
    minors = [int(name) for name in re.findall(r"Python :: 3\.(\d+)$", "\n".join(classifiers), re.MULTILINE)]
    assert minors == list(range(8, 14))
    assert {"License :: OSI Approved :: Apache Software License", "Typing :: Typed"} <= set(classifiers)
    assert said.get_payload().startswith("# libryn\n")


def test_versions_agree(wheel: Path):
    project = re.search(r"version: '([\d.]+)'", (ROOT / "meson.build").read_text())
    assert project and metadata(wheel)["Version"] == project[1]


def test_wheel_is_for_one_interpreter(wheel: Path):
    version = subprocess.run(
        [DEBIANS, "-c", "import sys; print('%d%d' % sys.version_info[:2])"], text=True, capture_output=True, env=TOOLS
    ).stdout.strip()
    assert re.fullmatch(rf"libryn-1\.0\.0-cp{version}-cp{version}-linux_\w+\.whl", wheel.name)


def go_through_outcomes(packages: Packages, interpreter: Path) -> None:
    """All methods and their failures, from the environment's folder; the command that was installed starts."""
    code = "import on_interpreter, _libryn, ryn; on_interpreter.outcomes(); print(_libryn.__file__, ryn.__file__)"
    outcomes, files = packages.run(interpreter, code).splitlines()
    assert outcomes == f"{sum(1 + len(method.failures) for method in METHODS)} outcomes"
    site = packages.site(interpreter)
    assert [Path(name).parent for name in files.split()] == [site, site / "ryn"]
    command = packages.installed(interpreter).parent / "rynctl"
    done = subprocess.run([command, "--version"], text=True, capture_output=True, env=ENVIRONMENT)
    assert (done.returncode, done.stdout, done.stderr) == (0, "rynctl 1.0.0\n", "")


def test_behaviour_as_installed(packages: Packages):
    go_through_outcomes(packages, DEBIANS)


@interpreters.each
def test_behaviour_as_installed_on(packages: Packages, interpreter: Path):
    go_through_outcomes(packages, interpreter)


# Types, as a user's checkers find them next to the modules


def with_installed(packages: Packages, *command: str | Path, cwd: Path) -> subprocess.CompletedProcess[str]:
    environment = {
        **TOOLS,
        "PYTHONPATH": str(packages.site(DEBIANS)),
        "LD_LIBRARY_PATH": str(packages.double.folder),
        "MYPYPATH": str(packages.site(DEBIANS)),
    }
    return subprocess.run(command, cwd=cwd, env=environment, text=True, capture_output=True, timeout=300)


def test_stubs_are_those_of_the_installed_modules(packages: Packages, tmp_path: Path):
    """stubtest, without a list of exceptions."""
    done = with_installed(packages, "stubtest", "_libryn", "ryn._records", "ryn._core", cwd=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr


def test_scripts_are_checked_against_the_installed_types(packages: Packages, tmp_path: Path):
    script = tmp_path / "script.py"
    script.write_text(
        "import _libryn, ryn\n"
        "for port in _libryn.ListPorts(0) or []:\n"
        "    port['mac']\n"
        "for switch in ryn.Host().switches():\n"
        "    switch.name.sort()\n"
    )
    found = with_installed(packages, "mypy", "--strict", "--cache-dir=/dev/null", script, cwd=tmp_path).stdout
    assert sorted(int(line.split(":")[1]) for line in found.splitlines() if ": error:" in line) == [3, 5], found
