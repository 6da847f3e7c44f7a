"""A test that hangs ends the run, after a generous time, with its name and where it hangs.

The interpreter's own watchdog thread needs no lock, so code that hangs while it holds the interpreter lock is found
too. It prints only the frames of the stack, so the frame of the test bears the name of the test with its parameters.
Tests that run other programs set timeouts of their own.
"""

from __future__ import annotations

import faulthandler
import os
from typing import Iterator

import pytest

# One test; the slowest takes minutes on a busy machine, and hours when soaking
SECONDS = float(os.environ.get("RYN_TEST_SECONDS", 6 * 3600 if "RYN_SOAK" in os.environ else 1800))

_stderr = pytest.StashKey[int]()


def pytest_sessionstart(session: pytest.Session) -> None:
    session.config.stash[_stderr] = os.dup(2)  # while nothing is captured


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol(item: pytest.Function) -> Iterator[None]:
    function = item.function
    code = function.__code__
    function.__code__ = code.replace(co_name=item.nodeid)
    faulthandler.dump_traceback_later(SECONDS, exit=True, file=item.config.stash[_stderr])
    yield
    faulthandler.cancel_dump_traceback_later()
    function.__code__ = code
