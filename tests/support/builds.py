"""The module built for an interpreter other than the one that runs the tests, and the checks it goes through there."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

import interpreters

ROOT = Path(__file__).resolve().parents[2]
DEBUG_INTERPRETER = Path("/usr/bin/python3.11-dbg")  # of Debian's interpreter; the package is called like the file


def interpreter(version: str) -> Path:
    """The latest of pyenv's of a version like "3.12"."""
    for program in reversed(interpreters.found()):
        if program.parts[-3].startswith(version + "."):
            return program
    raise FileNotFoundError(f"there is no Python {version} in ~/.pyenv")


def facts(interpreter: Path) -> tuple[str, str]:
    """The folder of its headers, and what the file of an extension ends in."""
    code = "import sysconfig; print(sysconfig.get_path('include'), sysconfig.get_config_var('EXT_SUFFIX'))"
    include, suffix = tool(interpreter, "-c", code).split()
    return include, suffix


def tool(*command: str | Path) -> str:
    done = subprocess.run(command, cwd=ROOT, text=True, capture_output=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def build_module(interpreter: Path, platform: Path, folder: Path, *options: str) -> Path:
    """The module as everybody builds it, into the folder; `platform` has the libraries to link against."""
    build = folder / "build"
    options = ("-Dsimhost=false", "-Dexporter=disabled", f"-Dplatform_libs={platform}", "-Dwerror=true", *options)
    tool("/usr/bin/meson", "setup", build, ".", f"-Dpython={interpreter}", *options)
    name = f"_libryn{facts(interpreter)[1]}"
    tool("/usr/bin/ninja", "-C", build, "-j", "2", f"libryn/{name}")
    return shutil.copy(build / "libryn" / name, folder / name)


def build_helpers(interpreter: Path, platform: Path, folder: Path) -> None:
    """The double with its helpers, which nobody installs, below the folder; by the compiler alone."""
    double, faults = folder / "tests/double", folder / "tests/faults"
    double.mkdir(parents=True)
    faults.mkdir()
    for library in ("libryn.so", "libjorPublic.so"):
        shutil.copy(platform / library, double)  # no link: what is built here is looked for next to it
    compiler = ["g++", "-std=c++20", "-O1", "-fPIC", "-shared", "-w", "-I.", f"-I{facts(interpreter)[0]}"]
    tool(*compiler, "tests/double/probe.cc", "-o", double / "_probe.so")
    tool(*compiler, "tests/faults/faults.cc", "-o", faults / "_faults.so")


def run_checks(interpreter: Path, folder: Path, seconds: float = 600) -> subprocess.CompletedProcess[str]:
    """Runs the checks of on_interpreter.py with what was built in the folder."""
    environment = {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}
    environment |= {
        "LD_LIBRARY_PATH": str(folder / "tests/double"),
        "PYTHONDONTWRITEBYTECODE": "1",
        "PYTHONPATH": os.pathsep.join([str(folder), str(ROOT / "tests/support")]),
    }
    return subprocess.run(
        [interpreter, "-c", "import on_interpreter; on_interpreter.check()"],
        text=True,
        capture_output=True,
        timeout=seconds,
        env=environment,
    )
