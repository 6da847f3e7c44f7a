"""Each allocation of the interpreter fails, alone and with all that follow it; allocations.py does the work."""

import pytest
from harness import python


def test_a_failing_allocation_ends_in_an_error_that_python_knows():
    pytest.importorskip("_testcapi")
    done = python("import allocations; allocations.sweep()")
    assert (done.returncode, done.stderr) == (0, "")
    assert int(done.stdout) > 1000
