"""The module as the loader and the interpreter take it in: modes of loading, missing operations, threads, stacks; and
what native code sees of it, against reviewed lists.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
from description import DESCRIPTIONS
from harness import UNDER_ASAN, Double, python

ROOT = Path(__file__).parents[2]

LOAD = (
    "import os, sys, harness; sys.setdlopenflags({flags}); import _libryn; "
    "print(*harness.set_up().ops()[:3]); print(_libryn.ListPorts(16))"
)


@pytest.mark.parametrize("binding", ["os.RTLD_NOW", "os.RTLD_LAZY"])
@pytest.mark.parametrize("scope", ["os.RTLD_LOCAL", "os.RTLD_GLOBAL"])
def test_log_hooks_are_found_in_every_mode(binding: str, scope: str):
    """The switch-state library finds Log, Warning and Panic in the module that loads it."""
    done = python(LOAD.format(flags=f"{binding} | {scope}"), RYN_DOUBLE_LOAD="log=1")
    assert done.stdout == "Log Warning Panic\nNone\n"
    assert done.stderr == "TypeError: Invalid switch ID passed.\n"


# A platform library that lacks an operation


PROTOTYPE = re.compile(r"^[\w* ]*?\b((?:Ryn|DVS)\w*)\(", re.MULTILINE)


def operations(header: str) -> list[str]:
    return sorted(set(PROTOTYPE.findall((ROOT / "platform" / header).read_text())))


def build_library(folder: Path, name: str, functions: list[str]) -> None:
    code = "".join(f"int {function}(void) {{ return 0; }}\n" for function in functions)
    subprocess.run(
        ["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", folder / f"lib{name}.so"], input=code, text=True, check=True
    )


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
    environment = {**os.environ, "LD_LIBRARY_PATH": str(tmp_path)}
    # Even when the interpreter asks for bindings at their first use
    code = (
        "import sys\nsys.setdlopenflags(1)\ntry:\n    import _libryn\n"
        "except ImportError as error:\n    print(error)\nelse:\n    print('loaded')"
    )

    def load() -> str:
        done = subprocess.run([sys.executable, "-S", "-c", code], text=True, capture_output=True, env=environment)
        assert (done.returncode, done.stderr) == (0, "")
        return done.stdout.strip()

    for name, functions in libraries.items():
        build_library(tmp_path, name, functions)
    assert load() == "loaded"
    for name, functions in libraries.items():
        for missing in functions:
            build_library(tmp_path, name, [function for function in functions if function != missing])
            message = load()
            assert missing in message and "undefined symbol" in message if missing in taken else message == "loaded"
        build_library(tmp_path, name, functions)
        (tmp_path / f"lib{name}.so").rename(tmp_path / "away")
        assert f"lib{name}.so" in load()
        (tmp_path / "away").rename(tmp_path / f"lib{name}.so")


# Threads and interpreters


IN_THREADS = """
import threading
import harness
from branches import branches
from method_table import METHODS
double = harness.set_up()
import _libryn, _probe

outcomes, wrong = {}, []

def call_all():
    for method, branch in scripted:
        has_result, result, error, _ = _probe.call(getattr(_libryn, method.name), branch.args, -1)
        outcome = has_result, result, type(error)
        if outcomes.setdefault((method.name, branch.name), outcome) != outcome:
            wrong.append((method.name, branch.name))

threading.stack_size(%d)
with harness.capture_stderr():
    for method in METHODS:
        for branch in branches(method):
            double.reset()
            branch.script(double)
            double.recording(False)
            scripted = [(method, branch)]
            call_all()
            threads = [threading.Thread(target=call_all) for _ in range(3)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
print(len(outcomes), wrong)
"""


LEAST_STACK = 256 * 1024 if UNDER_ASAN else 32 * 1024  # Python allows no less; the sanitizers' frames are larger


def test_threads_with_the_least_stack():
    done = python(IN_THREADS % LEAST_STACK)
    assert (done.returncode, done.stderr) == (0, "")
    assert re.fullmatch(r"[12]\d\d \[\]\n", done.stdout)


LARGEST_ANSWERS = """
import threading
import harness
from hostile_answers import RESPONSES
double = harness.set_up()
import _libryn, _probe

threading.stack_size(%d)
with harness.capture_stderr():
    for response in RESPONSES:
        for fill in response.largest():
            double.reset()
            double.recording(False)
            response.prepare(double)
            double.answer(response.op, area=fill)
            thread = threading.Thread(target=_probe.call, args=(getattr(_libryn, response.method), response.args, -1))
            thread.start()
            thread.join()
print("unharmed")
"""


def test_largest_answers_on_the_least_stack():
    """A frame that steps over the guard page would end the process, or write into a mapping beside the stack."""
    done = python(LARGEST_ANSWERS % LEAST_STACK)
    assert (done.returncode, done.stdout, done.stderr) == (0, "unharmed\n", "")


def test_no_frame_is_larger_than_12_kib():
    """The compiler measures it: the module's sources are built with this warning."""
    assert "-Wframe-larger-than=12288" in (ROOT / "libryn/meson.build").read_text()


def test_forked_child_goes_on(ryn, double: Double):
    """A child has the configuration of its parent and answers as it does."""
    code = (
        "import os, _libryn; pid = os.fork(); status = _libryn.ListSwitches() != []\n"
        "os._exit(status) if pid == 0 else print(os.waitpid(pid, 0)[1], status)"
    )
    done = python(code)
    assert (done.stdout, done.stderr) == ("0 False\n", "")


def test_a_sub_interpreter_does_not_harm_the_first():
    """Its use there, and its end, leave the constants of the module as they are."""
    pytest.importorskip("_xxsubinterpreters")
    code = """
import _xxsubinterpreters as interpreters, harness
from method_table import METHODS
double = harness.set_up()
inner = interpreters.create()
use = "import _libryn\\ntry:\\n    _libryn.ListPorts(16)\\nexcept SystemError:\\n    pass\\n_libryn.GetLBWeights()"
with harness.capture_stderr():
    interpreters.run_string(inner, use)
import _libryn
for _ in range(2):
    for method in METHODS:
        double.reset()
        method.script(double)
        assert harness.run(getattr(_libryn, method.name), *method.args) == harness.Outcome(method.value), method.name
    if _ == 0:
        interpreters.destroy(inner)
print("unharmed")
"""
    done = python(code)
    assert (done.returncode, done.stdout, done.stderr) == (0, "unharmed\n", "")


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
