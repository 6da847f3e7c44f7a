import ctypes
import gc
import os

import pytest

import harness


def pytest_configure(config: pytest.Config) -> None:
    try:
        config.ryn_double = harness.set_up()
    except (OSError, RuntimeError) as error:
        raise pytest.UsageError(
            f"{error}\nThe tests need LD_LIBRARY_PATH=BUILD/tests/double PYTHONPATH=BUILD/libryn (LD_LIBRARY_PATH is "
            f"{os.environ.get('LD_LIBRARY_PATH', 'not set')!r}). ./dev test sets both.") from None


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
def double(request: pytest.FixtureRequest, _module) -> harness.Double:
    request.config.ryn_double.reset()
    return request.config.ryn_double
