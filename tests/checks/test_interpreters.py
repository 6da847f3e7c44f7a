"""Every interpreter that is there: the module is built for it and goes through the checks of on_interpreter.py: all
outcomes, every failing call, every failing allocation, arguments and hooks that mean harm. Half a minute for each.
"""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

import interpreters
import pytest
from harness import UNDER_ASAN, Double

ROOT = Path(__file__).parents[2]


@interpreters.each
def test_module_on(double: Double, interpreter: Path, tmp_path: Path):
    if UNDER_ASAN:
        pytest.skip("built without the sanitizers")

    def tool(*command: str | Path) -> str:
        done = subprocess.run(command, cwd=ROOT, text=True, capture_output=True)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    # The module as everybody builds it; the double's helpers, which nobody installs, by the compiler alone
    build = tmp_path / "build"
    tool(
        "/usr/bin/meson",
        "setup",
        build,
        ".",
        f"-Dpython={interpreter}",
        "-Dsimhost=false",
        "-Dexporter=disabled",
        f"-Dplatform_libs={double.folder}",
        "-Doptimization=1",
        "-Ddebug=false",
        "-Dwerror=true",
    )
    include, suffix = tool(
        interpreter,
        "-c",
        "import sysconfig; print(sysconfig.get_path('include'), " "sysconfig.get_config_var('EXT_SUFFIX'))",
    ).split()
    tool("/usr/bin/ninja", "-C", build, "-j", "2", f"libryn/_libryn{suffix}")
    shutil.copy(build / f"libryn/_libryn{suffix}", tmp_path)
    folder = tmp_path / "tests/double"
    folder.mkdir(parents=True)
    (tmp_path / "tests/faults").mkdir()
    for library in ("libryn.so", "libjorPublic.so"):
        shutil.copy(double.folder / library, folder)  # no link: what is built here is looked for next to it
    compiler = ["g++", "-std=c++20", "-O1", "-fPIC", "-shared", "-I.", f"-I{include}"]
    tool(*compiler, "tests/double/probe.cc", "-o", folder / "_probe.so")
    tool(*compiler, "tests/faults/faults.cc", "-o", tmp_path / "tests/faults/_faults.so")

    environment = {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}
    environment |= {
        "LD_LIBRARY_PATH": str(folder),
        "PYTHONDONTWRITEBYTECODE": "1",
        "PYTHONPATH": os.pathsep.join([str(tmp_path), str(ROOT / "tests/support")]),
    }
    done = subprocess.run(
        [interpreter, "-c", "import on_interpreter; on_interpreter.check()"],
        text=True,
        capture_output=True,
        timeout=600,
        env=environment,
    )
    print(done.stdout, done.stderr)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.endswith("unharmed\n")
