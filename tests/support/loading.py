"""The module as each interpreter takes it in: modes of binding, missing operations, threads with the least stack, forks
and subinterpreters. Each check runs programs of its own on the interpreter that it is called by.
"""

from __future__ import annotations

import os
import subprocess
import sys
from itertools import product
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import List

from harness import UNDER_ASAN, python

LEAST_STACK = 256 * 1024 if UNDER_ASAN else 32 * 1024  # Python allows no less; the sanitizers' frames are larger

LOAD = """
import os, sys, harness
sys.setdlopenflags(os.{} | os.{})
import _libryn
print(*harness.set_up().ops()[:3])
print(_libryn.ListPorts(16))
"""

BRANCHES_IN_THREADS = """
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
assert len(outcomes) > 100
print(wrong)
"""

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

FORK = """
import os, _libryn
pid = os.fork()
status = _libryn.ListSwitches() != []
os._exit(status) if pid == 0 else print(os.waitpid(pid, 0)[1], status)
"""

# Python 3.13 renamed the module; since 3.12 an interpreter is by default of a kind that takes no extension like ours.
SUBINTERPRETER = """
import sys, harness
if sys.version_info >= (3, 13):
    import _interpreters
    inner, run_string = _interpreters.create("legacy"), _interpreters.run_string
else:
    import _xxsubinterpreters as _interpreters
    inner = _interpreters.create(isolated=False) if sys.version_info >= (3, 9) else _interpreters.create()
    run_string = _interpreters.run_string
from method_table import METHODS
double = harness.set_up()
with harness.capture_stderr():
    run_string(inner, "import _libryn; _libryn.ListPorts(16); _libryn.GetLBWeights()")
import _libryn
for destroyed in (False, True):
    for method in METHODS:
        double.reset()
        method.script(double)
        assert harness.run(getattr(_libryn, method.name), *method.args) == harness.Outcome(method.value), method.name
    if not destroyed:
        _interpreters.destroy(inner)
print("unharmed")
"""


def runs(code: str, printed: str, stderr: str = "", **environment: str) -> None:
    done = python(code, **environment)
    assert (done.returncode, done.stdout, done.stderr) == (0, printed, stderr), done


def check_log_hooks(binding: str, scope: str) -> None:
    """The switch-state library finds Log, Warning and Panic in the module that loads it."""
    refused = "TypeError: Invalid switch ID passed.\n"
    runs(LOAD.format(binding, scope), "Log Warning Panic\nNone\n", refused, RYN_DOUBLE_LOAD="log=1")


def check_threads() -> None:
    """All branches of all methods, in several threads at once with the least stack."""
    runs(BRANCHES_IN_THREADS % LEAST_STACK, "[]\n")


def check_stack() -> None:
    """A frame that steps over the guard page would end the process, or write into a mapping beside the stack."""
    runs(LARGEST_ANSWERS % LEAST_STACK, "unharmed\n")


def check_fork() -> None:
    """A child has the configuration of its parent and answers as it does."""
    runs(FORK, "0 False\n")


def check_subinterpreter() -> None:
    """The module's use there, and the end of it, leave the constants of the module as they are."""
    runs(SUBINTERPRETER, "unharmed\n")


def build_library(folder: Path, name: str, functions: List[str]) -> None:
    """A platform library with operations that do nothing."""
    code = "".join(f"int {function}(void) {{ return 0; }}\n" for function in functions)
    command = ["cc", "-shared", "-fPIC", "-x", "c", "-", "-o", str(folder / f"lib{name}.so")]
    subprocess.run(command, input=code, text=True, check=True)


def load_with(folder: Path) -> str:
    """What comes of importing the module with the platform libraries of a folder, bound at their first use if the
    interpreter could decide: "loaded", or the text of the ImportError.
    """
    code = (
        "import sys\nsys.setdlopenflags(1)\ntry:\n    import _libryn\n"
        "except ImportError as error:\n    print(error)\nelse:\n    print('loaded')"
    )
    environment = {**os.environ, "LD_LIBRARY_PATH": str(folder)}
    done = subprocess.run([sys.executable, "-S", "-c", code], text=True, capture_output=True, env=environment)
    assert (done.returncode, done.stderr) == (0, ""), done
    return done.stdout.strip()


def check_missing_operations() -> None:
    """All of them: test_loading.py takes them one by one."""
    with TemporaryDirectory() as folder:
        for library in ("ryn", "jorPublic"):
            build_library(Path(folder), library, [])
        message = load_with(Path(folder))
        assert "undefined symbol: " in message, message


def check() -> None:
    for binding, scope in product(("RTLD_NOW", "RTLD_LAZY"), ("RTLD_LOCAL", "RTLD_GLOBAL")):
        check_log_hooks(binding, scope)
    check_missing_operations()
    check_threads()
    check_stack()
    check_fork()
    # 3.12 frees names that are in use when an extension without a state of its own is in two interpreters, and crashes
    # at its end: _tkinter and _testcapi do the same (gh-116510 of CPython)
    if sys.version_info[:2] != (3, 12):
        check_subinterpreter()
