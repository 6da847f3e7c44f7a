import shutil
from pathlib import Path

import pytest
import simulated


@pytest.fixture(scope="session")
def template(tmp_path_factory: pytest.TempPathFactory) -> Path:
    path = tmp_path_factory.mktemp("host") / "template.db"
    process = simulated.Process(path)
    try:
        return simulated.make_template(path, process)
    finally:
        process.close()


@pytest.fixture(scope="session")
def processes(template: Path):
    """Two processes; the tests share them, each test's host is its own."""
    both = [simulated.Process(template), simulated.Process(template)]
    yield both
    for process in both:
        process.close()


@pytest.fixture
def host(tmp_path: Path, template: Path, processes) -> simulated.Host:
    shutil.copy(template, tmp_path / "host.db")
    return simulated.Host(tmp_path / "host.db", *processes)
