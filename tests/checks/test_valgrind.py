"""The module under valgrind: no byte of a native area is lost at exit, and no read is out of bounds.

To check accesses, objects come from the C allocator, so that each is a block of its own. To find lost native areas,
they come from the interpreter's, so that objects that leak deliberately do not count.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import harness
import pytest
from harness import UNDER_ASAN

pytestmark = [
    pytest.mark.skipif(shutil.which("valgrind") is None, reason="valgrind is not there: ./dev test installs it"),
    pytest.mark.skipif(UNDER_ASAN, reason="valgrind and AddressSanitizer exclude each other"),
]

EVERY_BRANCH = """
import harness
from branches import branches
from method_table import METHODS
double = harness.set_up()
import _libryn, _probe
with harness.capture_stderr():
    for method in METHODS:
        for branch in branches(method):
            double.reset()
            branch.script(double)
            _probe.call(getattr(_libryn, method.name), branch.args, -1)
double.reset()
print("done")
"""
ARGUMENTS_THAT_MEAN_HARM = "import hostile_objects; hostile_objects.attack()"


def valgrind(code: str, *options: str, **environment: str) -> tuple[str, str]:
    """What the code prints, and valgrind's report."""
    settings = {**os.environ, **environment}
    settings["PYTHONPATH"] = os.pathsep.join([str(Path(harness.__file__).parent), settings["PYTHONPATH"]])
    done = subprocess.run(
        ["valgrind", *options, sys.executable, "-c", code], env=settings, text=True, capture_output=True, timeout=600
    )
    assert done.returncode == 0, done.stderr
    return done.stdout, done.stderr


def bytes_lost(code: str) -> int:
    printed, report = valgrind(code, "--leak-check=full", "--show-leak-kinds=definite")
    assert printed == "done\n"
    if "no leaks are possible" in report:
        return 0
    (lost,) = re.findall(r"definitely lost: ([\d,]+) bytes", report)
    return int(lost.replace(",", ""))


def errors(code: str) -> int:
    _, report = valgrind(code, "--leak-check=no", "--error-limit=no", PYTHONMALLOC="malloc")
    (errors,) = re.findall(r"ERROR SUMMARY: (\d+) errors", report)
    return int(errors)


def test_no_native_byte_is_lost_at_exit():
    assert bytes_lost(EVERY_BRANCH) == 0


def test_a_lost_area_would_be_seen():
    assert bytes_lost("import ctypes; ctypes.CDLL(None).malloc(2048); print('done')") >= 2048


def test_harm_reads_nothing_that_is_not_there():
    assert errors(ARGUMENTS_THAT_MEAN_HARM) == 0


def test_a_read_of_a_freed_area_would_be_seen():
    assert (
        errors(
            "import ctypes; libc = ctypes.CDLL(None); libc.malloc.restype = ctypes.c_void_p\n"
            "area = libc.malloc(64); libc.free(ctypes.c_void_p(area)); ctypes.string_at(area, 8)"
        )
        > 0
    )
