"""The module as the loader and the interpreter take it in: support/loading.py, all interpreters go through it; and
what native code sees of it, against reviewed lists.
"""

from __future__ import annotations

import re
import shutil
import subprocess
import sys
from pathlib import Path

import loading
import pytest
from description import DESCRIPTIONS
from harness import UNDER_ASAN
from loading import build_library, load_with

ROOT = Path(__file__).parents[2]


@pytest.mark.parametrize("binding", ["RTLD_NOW", "RTLD_LAZY"])
@pytest.mark.parametrize("scope", ["RTLD_LOCAL", "RTLD_GLOBAL"])
def test_log_hooks_are_found_in_every_mode(binding: str, scope: str):
    loading.check_log_hooks(binding, scope)


# A platform library that lacks an operation


PROTOTYPE = re.compile(r"^[\w* ]*?\b((?:Ryn|DVS)\w*)\(", re.MULTILINE)


def operations(header: str) -> list[str]:
    return sorted(set(PROTOTYPE.findall((ROOT / "platform" / header).read_text())))


def test_a_missing_operation_is_an_import_error(ryn, tmp_path: Path):
    if UNDER_ASAN:
        pytest.skip("the stand-ins are built without the sanitizers")
    libraries = {"ryn": operations("ryn.h"), "jorPublic": operations("jor_public.h")}
    taken = {
        line.split()[-1]
        for line in subprocess.run(
            ["nm", "-D", "--undefined-only", ryn.__file__], text=True, capture_output=True, check=True
        ).stdout.splitlines()
    }
    assert len(libraries["ryn"]) > 40 and len(libraries["jorPublic"]) > 15
    for name, functions in libraries.items():
        build_library(tmp_path, name, functions)
    assert load_with(tmp_path) == "loaded"
    for name, functions in libraries.items():
        for missing in functions:
            build_library(tmp_path, name, [function for function in functions if function != missing])
            message = load_with(tmp_path)
            assert missing in message and "undefined symbol" in message if missing in taken else message == "loaded"
        build_library(tmp_path, name, functions)
        (tmp_path / f"lib{name}.so").rename(tmp_path / "away")
        assert f"lib{name}.so" in load_with(tmp_path)
        (tmp_path / "away").rename(tmp_path / f"lib{name}.so")


# Threads and interpreters


def test_threads_with_the_least_stack():
    loading.check_threads()


def test_largest_answers_on_the_least_stack():
    loading.check_stack()


def test_no_frame_is_larger_than_12_kib():
    """The compiler measures it: the module's sources are built with this warning."""
    assert "-Wframe-larger-than=12288" in (ROOT / "libryn/meson.build").read_text()


def test_forked_child_goes_on():
    loading.check_fork()


def test_a_sub_interpreter_does_not_harm_the_first():
    pytest.importorskip("_xxsubinterpreters")
    loading.check_subinterpreter()


# What it takes from others, and how its entry points are called


def test_takes_what_was_reviewed(plain_build):  # noqa: F811
    """tests/lists/imports.txt has all that the module may take; what a sanitizer, a compiler or a slip adds fails."""
    listing = subprocess.run(
        ["nm", "-D", "--undefined-only", "--format=posix", plain_build], check=True, text=True, capture_output=True
    ).stdout
    taken = {line.split()[0].split("@")[0] for line in listing.splitlines()}
    reviewed = set((ROOT / "tests/lists/imports.txt").read_text().split())
    reviewed |= {name for row in DESCRIPTIONS for name in row.all_operations() if name.startswith("Ryn_")}
    assert taken - reviewed == set(), "review it, then add a line to tests/lists/imports.txt"
    assert "__stack_chk_fail" in taken  # the stack is guarded
    if sys.version_info[:2] == (3, 11):  # others have functions of other names
        assert reviewed - taken == set()


ABI = ROOT / "tests/lists/exports.abi"
IGNORED: list = ["--suppressions", ROOT / "tests/lists/exports.abignore"]
ABIDW: list = [
    "abidw",
    "--exported-interfaces-only",
    "--no-corpus-path",
    "--no-show-locs",
    "--no-comp-dir-path",
    "--no-architecture",
    "--no-elf-needed",
    "--drop-undefined-syms",
    "--type-id-style",
    "hash",
    *IGNORED,
]


def difference(reference: Path, seen: Path) -> str:
    """What native callers would notice, or nothing."""
    done = subprocess.run(["abidiff", *IGNORED, reference, seen], text=True, capture_output=True)
    assert done.returncode & 3 == 0, done.stderr  # the tool itself failed
    return done.stdout if done.returncode else ""


def test_entry_points_are_called_as_before(plain_build, tmp_path: Path):  # noqa: F811
    """Their prototypes, from the debug information, against the kept reference.

    A change that is meant is taken over with: abidw with the options above, --out-file tests/lists/exports.abi MODULE
    """
    if shutil.which("abidiff") is None:
        pytest.skip("abidiff is not there: ./dev test installs abigail-tools")
    seen = tmp_path / "seen.abi"
    subprocess.run([*ABIDW, "--out-file", seen, plain_build], check=True)
    assert difference(ABI, seen) == ""

    text = ABI.read_text()
    for old, new in [
        ("name='FlagsToStr'", "name='FlagsToString'"),
        ("size-in-bits='16' id=", "size-in-bits='32' id="),
        ("      <parameter type-id='eaa32e2f' name='key'/>\n", ""),
    ]:
        other = tmp_path / "other.abi"
        other.write_text(text.replace(old, new))
        assert text != other.read_text() and difference(other, seen) != ""
