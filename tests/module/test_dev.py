"""The commands of ./dev: what they say of themselves, what they leave in the tree, what they refuse."""

from __future__ import annotations

import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
CACHES = {"__pycache__", ".pytest_cache", ".hypothesis", ".mypy_cache"}


def as_user(*command: str, **more: str) -> subprocess.CompletedProcess[str]:
    """Runs a command in the tree with no more of the environment than a user's login gives."""
    environment = {name: os.environ[name] for name in ("HOME", "PATH") if name in os.environ}
    return subprocess.run(
        command,
        cwd=ROOT,
        env={**environment, "TERM": "xterm", **more},
        text=True,
        capture_output=True,
        stdin=subprocess.DEVNULL,
        timeout=600,
    )


def tree() -> dict[str, tuple[int, int]]:
    """Size and time of change of each file of the tree, but for build folders, caches and git's own."""
    found = {}
    for folder, folders, files in os.walk(ROOT):
        top = Path(folder) == ROOT
        folders[:] = [
            name
            for name in folders
            if name not in CACHES and not (top and (name == ".git" or re.match(r"build|dist$", name)))
        ]
        for name in files:
            path = Path(folder, name)
            found[str(path.relative_to(ROOT))] = (path.lstat().st_size, path.lstat().st_mtime_ns)
    return found


def test_help_lists_every_verb():
    done = as_user("./dev", "help")
    verbs = set(re.findall(r"^verb_(\w+)\(\)", (ROOT / "dev").read_text(), re.MULTILINE))
    listed = set(re.findall(r"^  ([a-z]+)(?= |$)", done.stdout, re.MULTILINE))
    assert (done.returncode, done.stderr) == (0, "")
    assert listed == verbs and {"demo", "test", "fresh"} <= verbs
    assert max(map(len, done.stdout.splitlines())) <= 120
    assert as_user("./dev").stdout == as_user("./dev", "--help").stdout == done.stdout


def test_an_unknown_verb_is_refused():
    done = as_user("./dev", "tset")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.endswith("dev: there is no verb 'tset'\n")


def test_nothing_is_installed_where_that_is_forbidden(tmp_path):
    """dpkg-query, here one that knows no package, decides what is missing."""
    query = tmp_path / "dpkg-query"
    query.write_text("#!/bin/sh\nexit 1\n")
    query.chmod(0o755)
    done = as_user("./dev", "build", DEV_NO_INSTALL="1", PATH=f"{tmp_path}:{os.environ['PATH']}")
    assert (done.returncode, done.stdout) == (1, "")
    assert re.fullmatch(
        r"dev: these packages are missing, and DEV_NO_INSTALL=1 forbids installing them:\n" r"  g\+\+ meson .*\n",
        done.stderr,
    )


def test_the_demo_leaves_nothing_in_the_tree():
    if not (ROOT / "build/build.ninja").exists():
        pytest.skip("there is no build folder that the demo could use in passing")
    before = tree()
    assert "examples/tour.py" in before and "dev" in before
    done = as_user("./dev", "demo", DEV_NO_INSTALL="1")
    assert done.returncode == 0, done.stdout + done.stderr
    assert "02:00:00:" in done.stdout  # the demo ran
    assert tree() == before
