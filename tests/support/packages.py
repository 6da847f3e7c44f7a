"""The project as users install it: a source archive, and from it a wheel for each interpreter, in a virtual environment
that holds nothing else. Each is made once in a run of the tests.
"""

from __future__ import annotations

import functools
import importlib.util
import os
import shutil
import subprocess
import tarfile
import zipfile
from pathlib import Path

import pytest
from builds import build_helpers
from harness import UNDER_ASAN, Double

ROOT = Path(__file__).resolve().parents[2]
DEBIANS = Path("/usr/bin/python3")

# Programs see what a login gives them, not the modules and libraries of this run.
ENVIRONMENT = {"HOME": os.environ.get("HOME", "/"), "PATH": "/usr/bin:/bin", "PYTHONDONTWRITEBYTECODE": "1"}

# What meson-python consists of; all of it is Python, which the other interpreters read too.
BACKEND = ["mesonpy", "packaging", "pyproject_metadata", "tomli", "typing_extensions"]
BUILD_WHEEL = "import sys, mesonpy; print(mesonpy.build_wheel(sys.argv[1], {'setup-args': sys.argv[2:]}))"


def check(*command: str | Path, cwd: Path, **more: str) -> str:
    """The output of a program that has to succeed."""
    done = subprocess.run(
        command, cwd=cwd, env={**ENVIRONMENT, **more}, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )
    assert done.returncode == 0, done.stdout
    return done.stdout


class Packages:
    def __init__(self, folder: Path, double: Double) -> None:
        self.folder = folder
        self.double = double
        # Linked against the platform double, as on a host that has the platform's libraries
        self.options = ["-Dsimhost=false", f"-Dplatform_libs={double.folder}"]

    @functools.cached_property
    def tree(self) -> Path:
        """A repository of its own with the tree as it is: the build writes into it, and archives what is committed."""
        tree = self.folder / "tree"
        for name in check("git", "ls-files", "-z", cwd=ROOT).split("\0"):
            if (ROOT / name).is_file():
                (tree / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, tree / name)
        who = ["-c", "user.name=tests", "-c", "user.email=tests@localhost"]
        check("git", "init", "--quiet", cwd=tree)
        check("git", "add", "--all", "--force", cwd=tree)
        check("git", *who, "commit", "--quiet", "--message=The tree", cwd=tree)
        return tree

    @functools.cached_property
    def built(self) -> tuple[Path, Path]:
        """The source archive, and the wheel for Debian's interpreter, by the command of the README."""
        folder = self.folder / "dist"
        settings = [f"-Csetup-args={option}" for option in self.options]
        check(DEBIANS, "-m", "build", "--no-isolation", *settings, "--outdir", folder, cwd=self.tree)
        (archive,) = folder.glob("*.tar.gz")
        (wheel,) = folder.glob("*.whl")
        return archive, wheel

    @functools.cached_property
    def sources(self) -> Path:
        """What the source archive holds."""
        with tarfile.open(self.built[0]) as archive:
            archive.extractall(self.folder / "sources")
        (sources,) = (self.folder / "sources").iterdir()
        return sources

    @functools.lru_cache(maxsize=None)
    def wheel(self, interpreter: Path) -> Path:
        if interpreter == DEBIANS:
            return self.built[1]
        folder = self.folder / interpreter.parts[-3]
        backend = folder / "backend"
        backend.mkdir(parents=True)
        for name in BACKEND:
            origin = importlib.util.find_spec(name)
            assert origin and origin.origin, name
            source = Path(origin.origin)
            source = source.parent if source.name == "__init__.py" else source
            (backend / source.name).symlink_to(source)
        # Debian's Meson asks an interpreter for distutils, which it lacks from 3.12 on; it is told of its own, and the
        # project's option names the one to build for.
        (folder / "debian.ini").write_text(f"[binaries]\npython = '{DEBIANS}'\n")
        options = [*self.options, f"-Dpython={interpreter}", f"--native-file={folder}/debian.ini", "-Doptimization=0"]
        output = check(interpreter, "-c", BUILD_WHEEL, folder, *options, cwd=self.sources, PYTHONPATH=str(backend))
        return folder / output.splitlines()[-1]

    @functools.lru_cache(maxsize=None)
    def installed(self, interpreter: Path) -> Path:
        """The interpreter of an empty virtual environment in which the wheel is installed."""
        wheel = self.wheel(interpreter)
        environment = wheel.parent / "environment"
        check(interpreter, "-m", "venv", environment, cwd=self.folder)
        python = environment / "bin/python"
        check(python, "-m", "pip", "install", "--no-index", "--quiet", wheel, cwd=self.folder)
        return python

    def site(self, interpreter: Path) -> Path:
        """The folder of the environment that holds the module."""
        (module,) = self.installed(interpreter).parents[1].glob("lib/python*/site-packages/_libryn.*.so")
        return module.parent

    @functools.lru_cache(maxsize=None)
    def helpers(self, interpreter: Path) -> Path:
        """The folder below which the platform double lies, with the tests' own extensions for the interpreter."""
        folder = self.installed(interpreter).parents[2]
        build_helpers(interpreter, self.double.folder, folder)
        return folder

    def run(self, interpreter: Path, code: str, *options: str) -> str:
        """Runs Python code in the environment, on the platform double; it writes no error."""
        # The module's folder too: the checks start interpreters without site, which would not look there.
        path = [ROOT / "tests/support", ROOT / "tests/ryn", self.site(interpreter)]
        done = subprocess.run(
            [self.installed(interpreter), *options, "-c", code],
            cwd=self.folder,
            env={
                **ENVIRONMENT,
                "LD_LIBRARY_PATH": str(self.helpers(interpreter) / "tests/double"),
                "PYTHONPATH": os.pathsep.join(map(str, path)),
            },
            text=True,
            capture_output=True,
            timeout=600,
        )
        assert (done.returncode, done.stderr) == (0, ""), done.stdout
        return done.stdout


def contents(wheel: Path) -> set[str]:
    with zipfile.ZipFile(wheel) as archive:
        return set(archive.namelist())


def skip_where_nothing_is_built() -> None:
    if UNDER_ASAN:
        pytest.skip("built without the sanitizers")
    if subprocess.run(["git", "-C", ROOT, "rev-parse", "--git-dir"], capture_output=True).returncode != 0:
        pytest.skip("not in a repository, from which the source archive is made")
