from pathlib import Path

import harness
import platform_script
import pytest
import simulated_host


@pytest.fixture
def platform(double) -> platform_script.Platform:
    """The platform double, with the switch dvs-1 and three ports of it."""
    return platform_script.Platform(double)


@pytest.fixture
def host(platform):
    """A host on the double; what making it called is forgotten."""
    import ryn

    made = ryn.Host(settle=0)
    platform.double.forget_calls()
    return made


@pytest.fixture
def sim(tmp_path: Path) -> simulated_host.SimulatedHost:
    """A simulated host of the default profile whose clock stands."""
    if harness.UNDER_ASAN:
        pytest.skip("the simulated host is not run under the sanitizers")
    return simulated_host.SimulatedHost(tmp_path)
