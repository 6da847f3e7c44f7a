"""Importing the package needs no platform; making a host without one says what is missing and what to do."""

import os
import subprocess
import sys
import textwrap
from pathlib import Path

import pytest

BUILD = Path(os.environ.get("RYN_BUILD", Path(__file__).resolve().parents[2] / "build"))


def without_platform(code: str, libraries: str = "") -> subprocess.CompletedProcess:
    """Runs code in a new interpreter that finds the package, but no platform."""
    environment = {"PATH": os.environ["PATH"], "PYTHONPATH": f"{BUILD}:{BUILD / 'libryn'}"}
    if libraries:
        environment["LD_LIBRARY_PATH"] = libraries
    for name in ("LD_PRELOAD", "ASAN_OPTIONS", "UBSAN_OPTIONS", "PYTHONMALLOC"):
        if name in os.environ:
            environment[name] = os.environ[name]
    return subprocess.run(
        [sys.executable, "-c", textwrap.dedent(code)],
        env=environment,
        text=True,
        capture_output=True,
        cwd="/",
        timeout=60,
    )


def output(code: str, libraries: str = "") -> str:
    done = without_platform(code, libraries)
    assert (done.returncode, done.stderr) == (0, ""), done
    return done.stdout


def test_importing_needs_no_platform_and_loads_none():
    assert (
        output(
            """
        import sys
        import ryn
        maps = open("/proc/self/maps").read()
        print("ryn._core" in sys.modules, "_libryn" in sys.modules, "libryn.so" in maps, "libjorPublic.so" in maps)
        """
        )
        == "False False False False\n"
    )


def test_records_tables_and_rates_need_no_platform():
    assert (
        output(
            """
        import pickle
        import ryn
        row = ryn.MacTable(bytes(20))[0]
        table = ryn.CounterTable(bytes(256))
        tick = ryn.Reading(["a"], table, clock=2.0).rates(ryn.Reading(["a"], table, clock=1.0))
        copies = pickle.loads(pickle.dumps([row, table, ryn.Options(4, 3, 2, 1), ryn.PortCounters([1] * 16, [2] * 16)]))
        print(row == copies[0], table == copies[1], copies[2].high, copies[3].total.tx_packets, tick["a"].tx_bytes)
        """
        )
        == "True True 4 3 0.0\n"
    )


def test_a_missing_library_is_named_with_where_it_was_looked_for_and_what_to_do(tmp_path):
    (tmp_path / "empty").mkdir()
    text = output(
        """
        import ryn
        try:
            ryn.Host()
        except ImportError as error:
            print(type(error).__name__, error.library, error.searched)
            print(error)
        """,
        str(tmp_path / "empty"),
    )
    first, *message = text.splitlines()
    assert first == f"PlatformNotFound libryn.so ('{tmp_path}/empty',)"
    assert "libryn.so cannot be loaded" in message[0]
    assert str(tmp_path / "empty") in message[1] and "ryn-sim run -- python3 SCRIPT" in message[1]


def test_the_other_library_is_named_too(tmp_path):
    double = BUILD / "tests" / "double" / "libryn.so"
    (tmp_path / "libryn.so").symlink_to(double)
    text = output(
        """
        import ryn
        try:
            ryn.Host()
        except ryn.PlatformNotFound as error:
            print(error.library)
        """,
        str(tmp_path),
    )
    assert text == "libjorPublic.so\n"


def test_no_library_path_is_said_to_be_not_set():
    assert "LD_LIBRARY_PATH (not set)" in output(
        """
        import ryn
        try:
            ryn.Host()
        except ryn.PlatformNotFound as error:
            print(error)
        """
    )


def test_raw_without_a_platform_says_the_same():
    assert (
        output(
            """
        import ryn
        try:
            ryn.raw
        except ryn.PlatformNotFound as error:
            print(error.library)
        """
        )
        == "libryn.so\n"
    )


def test_raw_is_the_module_imported_at_first_use():
    code = """
        import sys
        import ryn
        before = "_libryn" in sys.modules
        print(before, ryn.raw is sys.modules["_libryn"], "raw" in vars(ryn))
        """
    assert output(code, str(BUILD / "tests" / "double")) == "False True True\n"


def test_what_is_not_there_is_an_attribute_error():
    import ryn

    with pytest.raises(AttributeError, match="'ryn' has no attribute 'nothing'"):
        ryn.nothing


def test_sources_that_were_not_built_say_so():
    root = Path(__file__).resolve().parents[2]
    done = subprocess.run(
        [sys.executable, "-c", "import ryn"], text=True, capture_output=True, cwd=root, env={"PATH": os.environ["PATH"]}
    )
    assert done.returncode == 1
    assert "PYTHONPATH" in done.stderr.splitlines()[-1]


def test_everything_that_is_exported_is_there():
    import ryn

    assert [name for name in ryn.__all__ if not hasattr(ryn, name)] == []
    assert ryn.__all__ == sorted(ryn.__all__)
