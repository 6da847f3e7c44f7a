import ctypes
import gc
import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import harness
import pytest
from packages import Packages
from watchdog import pytest_runtest_protocol, pytest_sessionstart  # noqa: F401 (hooks)

pytest_plugins = ["ryn_sim.pytest_plugin"]

# The package ryn is the built one: its sources in the root, which `python -m pytest` puts on the path, lack its
# extensions.
ROOT = str(Path(__file__).resolve().parents[1])
sys.path[:] = [folder for folder in sys.path if os.path.abspath(folder) != ROOT]


def pytest_configure(config: pytest.Config) -> None:
    # A shell without job control lets its background jobs ignore it, and their children inherit that.
    if signal.getsignal(signal.SIGINT) is signal.SIG_IGN:
        signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        config.ryn_double = harness.set_up()
    except (OSError, RuntimeError) as error:
        raise pytest.UsageError(
            f"{error}\nThe tests need LD_LIBRARY_PATH=BUILD/tests/double PYTHONPATH=BUILD/libryn (LD_LIBRARY_PATH is "
            f"{os.environ.get('LD_LIBRARY_PATH', 'not set')!r}). ./dev test sets both."
        ) from None


def pytest_collection_finish(session: pytest.Session) -> None:
    gc.collect()
    gc.freeze()  # what is there now stays: the tests' own collections need not walk it each time


@pytest.fixture(scope="session")
def _module():
    import _libryn

    return _libryn


@pytest.fixture
def ryn(_module, double):
    return _module


@pytest.fixture
def native(ryn) -> ctypes.PyDLL:
    """The module's exported entry points. Set argtypes and restype on a copy: native["Name"] makes a new one."""
    return ctypes.PyDLL(ryn.__file__)


@pytest.fixture
def plain_build(ryn) -> str:
    """The module's file, unless the build adds an instrumentation's own symbols and libraries."""
    symbols = subprocess.run(["nm", "-a", ryn.__file__], text=True, capture_output=True, check=True).stdout
    if re.search(r"__asan_|__ubsan_|__gcov_|__sanitizer", symbols):
        pytest.skip("an instrumented build")
    return ryn.__file__


@pytest.fixture
def double(request: pytest.FixtureRequest, _module) -> harness.Double:
    request.config.ryn_double.reset()
    return request.config.ryn_double


@pytest.fixture(scope="session")
def packages(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory) -> Packages:
    """The source archive and the wheels, which are built when a test asks for them."""
    return Packages(tmp_path_factory.mktemp("packages"), request.config.ryn_double)
