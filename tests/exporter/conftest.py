from pathlib import Path

import exporting
import pytest


@pytest.fixture(autouse=True)
def _built() -> None:
    if not exporting.PROGRAM.exists():
        pytest.skip("the exporter is not built")


@pytest.fixture(scope="session")
def default_host(tmp_path_factory: pytest.TempPathFactory) -> exporting.SimulatedHost:
    """A default host that no test changes."""
    return exporting.SimulatedHost(tmp_path_factory.mktemp("exporter") / "default.db")


@pytest.fixture
def host(tmp_path: Path) -> exporting.SimulatedHost:
    """A default host of the test's own."""
    return exporting.SimulatedHost(tmp_path / "host.db")
