"""Branch mutation of the compiled module: would the tests notice a condition that decides the other way round?

Each mutant is the module's file with one conditional jump, move or set inverted, which is one bit of one byte. First
every test runs once on the module as it is, while traps tell which of these instructions it passes. Then each mutant
is met by the tests that pass its instruction, fastest first, and after them by those that load the module into
processes of their own, until one fails. `./dev mutate` builds all that is needed; the figures are in docs/coverage.md.

One pytest process collects the tests and forks a child for each mutant, so that a mutant costs no start of anything.
"""

from __future__ import annotations

import argparse
import contextlib
import ctypes
import hashlib
import os
import pickle
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from functools import partial
from pathlib import Path
from typing import Any, Callable, Iterator, NamedTuple, Optional

import pytest

ROOT = Path(__file__).resolve().parents[2]
TESTS = ROOT / "tests"
FOLDERS = ("host/", "libryn/")
NOT_OURS = ("deregister_tm_clones", "register_tm_clones", "__do_global_dtors_aux", "frame_dummy", "_init", "_fini")
STACK_CHECK = "__stack_chk_fail"
VARIADIC = re.compile(r"test +%al,%al$")  # the compiler's own look at whether registers for floating point are in use

# The first three test objects or builds of their own, the others run the module under valgrind, which takes long.
IRRELEVANT = (
    "test_native.py",
    "test_interpreters.py",
    "test_packaging.py",
    "test_valgrind.py",
    "test_instructions.py",
)
LONGEST_TEST = 10.0  # seconds of processor time; slower ones do not meet mutants
MEMORY = 8 << 30  # address space of a child


# Mutants


class Mutant(NamedTuple):
    address: int
    offset: int  # of the byte, in the file
    instruction: str
    function: str
    places: list[str]  # file:line, the innermost inlined function first

    def text(self) -> str:
        places = [place for place in self.places if place.startswith(FOLDERS)] or self.places
        name = self.function.replace("(anonymous namespace)::", "")
        name = name if len(name) < 60 else name[:57] + "..."
        return f"{self.address:#x} {self.instruction.split()[0]} in {name}: {' < '.join(places)}"


LINE = re.compile(r"^ *([0-9a-f]+):\t((?:[0-9a-f]{2} )+) *\t(\S.*)$")
HEADER = re.compile(r"^[0-9a-f]+ <(.*)>:$")


def place_of_condition(code: bytes) -> Optional[int]:
    """Where in an instruction the byte is whose lowest bit inverts the condition; None when it has no condition."""
    at = 0
    while code[at] in (0x66, 0x2E, 0x3E, 0xF2) or 0x40 <= code[at] <= 0x4F:  # prefixes
        at += 1
    if 0x70 <= code[at] <= 0x7F:  # a short jump
        return at
    if code[at] == 0x0F and code[at + 1] >> 4 in (0x4, 0x8, 0x9):  # a move, a long jump, a set
        return at + 1
    return None


def tool(*command: object, stdin: str = "") -> str:
    return subprocess.run(list(map(str, command)), input=stdin, text=True, capture_output=True, check=True).stdout


def source_places(module: Path, addresses: list[int]) -> Iterator[list[str]]:
    lines = tool("addr2line", "-a", "-i", "-e", module, stdin="\n".join(map(hex, addresses))).splitlines()
    places: list[str] = []
    for line in lines[1:] + ["0x"]:
        if line.startswith("0x"):
            yield places
            places = []
        else:
            path, number = line.split(" (")[0].rsplit(":", 1)
            path = os.path.normpath(path)
            places.append(f"{path[len(str(ROOT)) + 1:] if path.startswith(str(ROOT)) else Path(path).name}:{number}")


def mutants_of(module: Path) -> list[Mutant]:
    ((address, offset),) = re.findall(
        r" \.text +[0-9a-f]+ +([0-9a-f]+) +[0-9a-f]+ +([0-9a-f]+)", tool("objdump", "-h", module)
    )
    to_file = int(offset, 16) - int(address, 16)
    stack_checks = {
        line.split(":")[0].strip()
        for line in tool("objdump", "-d", "-j", ".text", module).splitlines()
        if STACK_CHECK in line
    }
    found = []
    function = before = ""
    for line in tool("objdump", "-d", "-C", "-w", "-j", ".text", module).splitlines():
        if header := HEADER.match(line):
            function = header[1]
        elif (code := LINE.match(line)) and function not in NOT_OURS:
            place = place_of_condition(bytes.fromhex(code[2]))
            target = re.search(r" ([0-9a-f]+) <", code[3])
            ours = not (target and target[1] in stack_checks) and not VARIADIC.match(before)
            before = code[3]
            if place is not None and ours:
                start = int(code[1], 16)
                found.append((start, start + to_file + place, code[3], function))
    places = source_places(module, [start for start, *_ in found])
    return [Mutant(*each, where) for each, where in zip(found, places)]


# Children


class Child:
    """Work in a forked process; what it says is read when it has ended."""

    def __init__(self, work: Callable[[Any], None], seconds: float = 0) -> None:
        self.file = tempfile.TemporaryFile()
        self.pid = os.fork()
        if self.pid == 0:
            status = 1
            try:
                null = os.open(os.devnull, os.O_RDWR)
                for stream in (1, 2):
                    os.dup2(null, stream)
                work(self.file)
                status = 0
            finally:
                os._exit(status)

    def said(self) -> list:
        self.file.seek(0)
        words = []
        with contextlib.suppress(EOFError):
            while True:
                words.append(pickle.load(self.file))
        return words


def say(file: Any, word: Any) -> None:
    pickle.dump(word, file)
    file.flush()


def passes(item: pytest.Item) -> bool:
    """Alone, with all its fixtures set up and torn down."""
    from _pytest.runner import runtestprotocol

    return not any(report.failed for report in runtestprotocol(item, log=False, nextitem=None))


def processor_time() -> float:
    """Of this process and of those that it started."""
    return sum(os.times()[:4])


def load_from(folder: Path, build: Path) -> None:
    """The module is imported from another folder, here and in processes that a test starts."""
    sys.path[:] = [str(folder) if Path(path) == build / "libryn" else path for path in sys.path]
    os.environ["PYTHONPATH"] = str(folder)
    os.environ["LD_LIBRARY_PATH"] += os.pathsep + str(folder)  # for native clients


# The tests on the module as it is


class Test(NamedTuple):
    number: int
    seconds: float
    passed: bool
    ran: bytes  # for each mutant, whether the test ran its instruction
    own_process: bool  # it loads the module into a process of its own


def watch_tests(file: Any, session: pytest.Session, indexes: list[int], mutants: list[Mutant], build: Path) -> None:
    import _libryn

    traps = ctypes.CDLL(str(build / "tests/traps/libtraps.so"))
    base = next(
        int(line.split("-")[0], 16)
        for line in Path("/proc/self/maps").read_text().splitlines()
        if line.endswith(_libryn.__file__)
    )
    addresses = (ctypes.c_size_t * len(mutants))(*(base + mutant.address for mutant in mutants))
    assert traps.traps_set(addresses, ctypes.c_size_t(len(mutants)))
    ran = (ctypes.c_uint8 * len(mutants))()

    started: list[str] = []
    popen = subprocess.Popen.__init__

    def noted(self: Any, args: Any, *others: Any, **named: Any) -> None:
        started.append(str(args if isinstance(args, (str, os.PathLike)) else args[0]))
        popen(self, args, *others, **named)

    subprocess.Popen.__init__ = noted  # type: ignore[assignment]
    loaders = (sys.executable, str(build / "tests/native/client"))
    for index in indexes:
        item = session.items[index]
        started.clear()
        traps.traps_arm()
        start = processor_time()
        passed = passes(item)
        seconds = processor_time() - start
        traps.traps_read(ran)
        say(file, Test(index, seconds, passed, bytes(ran), any(command.startswith(loaders) for command in started)))


# The mutants


class Verdict(NamedTuple):
    mutant: Mutant
    killer: Optional[int]  # the test that failed
    how: str
    tests: int
    seconds: float


def meet(file: Any, session: pytest.Session, tests: list[Test]) -> None:
    """Runs tests until one fails, and says which is under way."""
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for test in tests:
        say(file, test.number)
        signal.setitimer(signal.ITIMER_PROF, 2 + 10 * test.seconds)  # of processor time; ends the process
        if not passes(session.items[test.number]):
            say(file, "failed")
            return
    say(file, "survived")


def meet_in(folder: Path, build: Path, session: pytest.Session, tests: list[Test], file: Any) -> None:
    load_from(folder, build)
    meet(file, session, tests)


class Mutation:
    """The plugin that takes the place of pytest's own loop over the tests."""

    def __init__(self, options: argparse.Namespace) -> None:
        self.options = options
        self.build: Path = options.build.resolve()
        self.verdicts: list[Verdict] = []
        self.exit_code = 1
        self.end = 0.0

    def pytest_runtestloop(self, session: pytest.Session) -> bool:
        (module,) = (self.build / "libryn").glob("_libryn*.so")
        mutants = mutants_of(module)
        print(f"{len(mutants)} conditions in {module.name}, {len(session.items)} tests", flush=True)

        start = time.monotonic()
        tests = self.known_tests(session, module)
        unknown = sorted({*range(len(session.items))} - {test.number for test in tests})
        child = Child(lambda file: watch_tests(file, session, unknown, mutants, self.build))
        os.waitpid(child.pid, 0)
        new: list[Test] = child.said()
        self.keep(session, module, [*tests, *(test for test in new if test.passed)])
        failing = [session.items[test.number].nodeid for test in new if not test.passed]
        if not failing and len(new) != len(unknown):  # ended abruptly
            failing = [session.items[unknown[len(new)]].nodeid]
        if failing:
            print("The module as it is does not pass:", *failing, sep="\n  ")
            return True
        tests += new
        print(f"All pass on the module as it is; {len(new)} were run: {time.monotonic() - start:.0f} s", flush=True)
        tests.sort(key=lambda test: test.seconds)
        tests = [test for test in tests if test.seconds < LONGEST_TEST]

        chosen = [mutant for mutant in mutants if re.search(self.options.only, mutant.text())]
        random.Random(0).shuffle(chosen)  # those that are met in the time that there is are a fair sample
        numbers = {mutant.address: number for number, mutant in enumerate(mutants)}
        self.end = time.monotonic() + self.options.seconds
        self.meet_all(session, module, [(mutant, self.tests_for(numbers[mutant.address], tests)) for mutant in chosen])
        self.report(session, module, tests, len(mutants), time.monotonic() - start)
        return True

    # What a test runs is known until the module, the test's file or a helper of the tests changes.

    def state(self, session: pytest.Session, module: Path) -> Callable[[pytest.Item], tuple[str, str]]:
        helpers = [TESTS / "conftest.py", *sorted((TESTS / "support").glob("*.py"))]
        common = hashlib.sha256(module.read_bytes() + b"".join(path.read_bytes() for path in helpers))
        digests: dict[Path, str] = {}
        for item in session.items:
            if item.path not in digests:
                digest = common.copy()
                digest.update(item.path.read_bytes())
                digests[item.path] = digest.hexdigest()
        return lambda item: (item.nodeid, digests[item.path])

    def known_tests(self, session: pytest.Session, module: Path) -> list[Test]:
        try:
            kept = pickle.loads((self.build / "tests-seen.pickle").read_bytes())
        except (OSError, EOFError, pickle.UnpicklingError):
            return []
        state = self.state(session, module)
        return [Test(index, *kept[state(item)]) for index, item in enumerate(session.items) if state(item) in kept]

    def keep(self, session: pytest.Session, module: Path, tests: list[Test]) -> None:
        state = self.state(session, module)
        kept = {state(session.items[test.number]): tuple(test)[1:] for test in tests}
        with contextlib.suppress(OSError, EOFError, pickle.UnpicklingError):  # tests that -k leaves out this time
            names = {name for name, _ in kept}
            before = pickle.loads((self.build / "tests-seen.pickle").read_bytes())
            kept.update((key, test) for key, test in before.items() if key[0] not in names)
        (self.build / "tests-seen.pickle").write_bytes(pickle.dumps(kept))

    def tests_for(self, number: int, tests: list[Test]) -> list[Test]:
        """The cheapest first, so that a mutant that any test notices is cheap."""
        return [test for test in tests if test.ran[number]] + [
            test for test in tests if test.own_process and not test.ran[number]
        ]

    def meet_all(self, session: pytest.Session, module: Path, todo: list[tuple[Mutant, list[Test]]]) -> None:
        todo.reverse()
        running: dict[int, tuple[Child, Mutant, Path, float]] = {}
        folders = [Path(tempfile.mkdtemp(prefix="mutant")) for _ in range(self.options.jobs)]
        free = list(folders)
        try:
            while todo or running:
                if time.monotonic() > self.end:
                    todo.clear()
                while todo and free:
                    mutant, tests = todo.pop()
                    folder = free.pop()
                    code = bytearray(module.read_bytes())
                    code[mutant.offset] ^= 1
                    (folder / module.name).write_bytes(code)
                    child = Child(partial(meet_in, folder, self.build, session, tests))
                    running[child.pid] = child, mutant, folder, time.monotonic()
                if not running:
                    break
                pid, status = os.wait()
                if pid in running:
                    child, mutant, folder, start = running.pop(pid)
                    free.append(folder)
                    self.judge(mutant, child.said(), status, time.monotonic() - start)
        finally:
            for folder in folders:
                shutil.rmtree(folder)

    def judge(self, mutant: Mutant, said: list, status: int, seconds: float) -> None:
        *begun, last = said or [None]
        if last == "survived":
            verdict = Verdict(mutant, None, "survived", len(begun), seconds)
        elif last == "failed":
            verdict = Verdict(mutant, begun[-1], "a test failed", len(begun), seconds)
        else:
            sign = os.WTERMSIG(status) if os.WIFSIGNALED(status) else 0
            how = "no end" if sign == signal.SIGPROF else "a crash"
            verdict = Verdict(mutant, last, how, len(said), seconds)
        self.verdicts.append(verdict)
        done = len(self.verdicts)
        if verdict.killer is None and verdict.how == "survived" or done % 100 == 0:
            print(f"{done:5} {verdict.how:14} {verdict.tests:5} tests {seconds:6.1f} s  {mutant.text()}", flush=True)

    def report(self, session: pytest.Session, module: Path, tests: list[Test], mutants: int, seconds: float) -> None:
        # A killer has to pass on the module as it is, run the same way: in a copy, in this order.
        killers = {verdict.killer for verdict in self.verdicts if verdict.killer is not None}
        fair = [test for test in tests if test.number in killers]
        with tempfile.TemporaryDirectory(prefix="mutant") as folder:
            shutil.copy(module, folder)
            child = Child(partial(meet_in, Path(folder), self.build, session, fair))
            os.waitpid(child.pid, 0)
            said = child.said()
        if said[-1] != "survived":
            print("Fails on the module as it is:", session.items[said[-2]].nodeid)
            return

        survivors = [verdict for verdict in self.verdicts if verdict.how == "survived"]
        count = Counter(verdict.how for verdict in self.verdicts)
        killed = len(self.verdicts) - len(survivors)
        percent = 100 * killed / len(self.verdicts)
        print(
            f"\n{len(self.verdicts)} of {mutants} mutants, {killed} killed ({percent:.1f} %): "
            + ", ".join(f"{number} by {how}" for how, number in count.most_common() if how != "survived")
            + f"; {seconds:.0f} s with {self.options.jobs} at once"
        )
        for verdict in sorted(survivors, key=lambda verdict: verdict.mutant.places):
            print(f"survived {verdict.tests} tests: {verdict.mutant.text()}")
        self.exit_code = 0 if killed >= 0.95 * len(self.verdicts) else 1


def main() -> int:
    parser = argparse.ArgumentParser(description="Inverts each condition of the compiled module and runs the tests.")
    parser.add_argument("build", type=Path, help="the build folder, with the tests")
    parser.add_argument("--jobs", type=int, default=2, help="mutants at once (default: %(default)s)")
    parser.add_argument("--only", default="", help="mutants whose line in the report this regular expression finds")
    parser.add_argument("--seconds", type=int, default=1 << 30, help="begin with no mutant after so long")
    parser.add_argument("--list", action="store_true", help="list the mutants alone")
    parser.add_argument("-k", default="", help="tests to run, as pytest takes it")
    options = parser.parse_args()
    if options.list:
        (module,) = (options.build / "libryn").glob("_libryn*.so")
        print(*(mutant.text() for mutant in mutants_of(module)), sep="\n")
        return 0
    mutation = Mutation(options)
    files = sorted(
        path
        for folder in ("methods", "checks", "module", "double")
        for path in (TESTS / folder).glob("test_*.py")
        if path.name not in IRRELEVANT
    )
    pytest.main(
        ["-q", "-p", "no:cacheprovider", "-p", "no:faulthandler", "--capture=no", "-k", options.k, *map(str, files)],
        plugins=[mutation],
    )
    return mutation.exit_code


if __name__ == "__main__":
    sys.exit(main())
