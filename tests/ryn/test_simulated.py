"""The package on simulated hosts: its guide as written, and every value against the module's."""

from pathlib import Path

import harness
import pytest
import simulated_host

HERE = Path(__file__).parent
PROFILES = sorted(path.stem for path in (simulated_host.ROOT / "simhost" / "profiles").glob("*.yaml"))

pytestmark = pytest.mark.skipif(harness.UNDER_ASAN, reason="the simulated host is not run under the sanitizers")


def test_every_call_of_the_guide_runs_as_written(sim):
    assert sim.script(HERE / "as_written.py").splitlines()[-1] == "as written"


@pytest.mark.parametrize("profile", PROFILES)
def test_every_value_is_the_modules(tmp_path, profile):
    host = simulated_host.SimulatedHost(tmp_path, profile)
    compared = int(host.script(HERE / "compare.py"))
    assert compared > (3 if profile == "empty" else 200)


def test_the_examples_in_docstrings(sim):
    assert sim.script(HERE / "docstrings.py") == ""
