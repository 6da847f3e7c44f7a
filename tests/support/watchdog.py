"""A test that hangs ends the run with its name and the place where it stands, after a generous time.

A thread of the interpreter's own watches, which needs no lock: code that hangs while it holds the interpreter lock is
seen too. It prints nothing but the frames of the stack, so the frame of the test bears the name of the test with its
parameters. Tests that run other programs give those times of their own.
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
