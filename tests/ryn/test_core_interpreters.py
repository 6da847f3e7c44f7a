"""Every interpreter that is there, from 3.8 on: the package, installed from a wheel that is built for it, goes through
core_on_interpreter.py; on a debug build it is compiled for that.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path

import interpreters
import pytest
from builds import DEBUG_INTERPRETER
from harness import UNDER_ASAN, Double
from packages import Packages, skip_where_nothing_is_built

ROOT = Path(__file__).parents[2]
WITHOUT_PLATFORM = ["counters", "flow", "listed_port", "mac_address", "mac_table", "records", "records_module"]


RUN = "import core_on_interpreter; core_on_interpreter.check()"
WENT_THROUGH = re.compile(r"[\d.]+: \d+ records, \d+ calls\n")


@interpreters.each
def test_package_on(packages: Packages, interpreter: Path):
    skip_where_nothing_is_built()
    assert WENT_THROUGH.fullmatch(packages.run(interpreter, RUN, "-W", "error"))


@pytest.mark.skipif(not DEBUG_INTERPRETER.exists(), reason=f"there is no {DEBUG_INTERPRETER}")
def test_package_on_a_debug_build(double: Double, tmp_path: Path):
    """It ends where something is called or built while an error is pending, or where references are miscounted."""
    if UNDER_ASAN:
        pytest.skip("built without the sanitizers")

    def tool(*command: str | Path) -> str:
        done = subprocess.run(command, cwd=ROOT, text=True, capture_output=True)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    include, suffix = tool(
        DEBUG_INTERPRETER,
        "-c",
        "import sysconfig; print(sysconfig.get_path('include'), sysconfig.get_config_var('EXT_SUFFIX'))",
    ).split()
    shutil.copytree(ROOT / "ryn", tmp_path / "ryn", ignore=shutil.ignore_patterns("_core", "__pycache__"))
    libraries = tmp_path / "libraries"
    libraries.mkdir()
    for library in ("libryn.so", "libjorPublic.so"):
        shutil.copy(double.folder / library, libraries)
    compiler = ["g++", "-std=c++20", "-O0", "-fPIC", "-shared", "-I.", f"-I{include}"]
    compiler += ["-fno-exceptions", "-fno-rtti", "-fvisibility=hidden"]
    core = ROOT / "ryn/_core"
    records = [core / f"{name}.cc" for name in WITHOUT_PLATFORM]
    rest = [path for path in sorted(core.glob("*.cc")) if path not in records]
    tool(*compiler, *records, core / "values.cc", "-o", tmp_path / f"ryn/_records{suffix}")
    tool(*compiler, *rest, *sorted((ROOT / "host").rglob("*.cc")), "-Wl,-z,now",
         f"-Wl,--version-script={core}/exports.map", f"-L{libraries}", "-lryn", "-ljorPublic",
         "-o", tmp_path / f"ryn/_core{suffix}")  # fmt: skip
    tool("g++", "-std=c++20", "-O0", "-fPIC", "-shared", "-I.", f"-I{include}", "tests/double/probe.cc", "-o",
         libraries / "_probe.so")  # fmt: skip

    environment = {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}
    environment["LD_LIBRARY_PATH"] = str(libraries)
    environment["PYTHONDONTWRITEBYTECODE"] = "1"
    environment["PYTHONPATH"] = os.pathsep.join(map(str, (tmp_path, ROOT / "tests/support", Path(__file__).parent)))
    done = subprocess.run(
        [DEBUG_INTERPRETER, "-W", "error", "-c", RUN],
        text=True, capture_output=True, timeout=600, env=environment, cwd=tmp_path,
    )  # fmt: skip
    assert (done.returncode, done.stderr) == (0, "")
    assert WENT_THROUGH.fullmatch(done.stdout)
