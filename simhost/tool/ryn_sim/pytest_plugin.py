"""A fixture for pytest: each test gets a simulated host of its own.

In conftest.py, or with -p on pytest's command line:

    pytest_plugins = ["ryn_sim.pytest_plugin"]

    @pytest.mark.simulated_host("overloaded")     # a profile, a file, a text or a mapping; without it: "default"
    def test_it(simulated_host):
        simulated_host.step("5s")
        assert simulated_host.run(["python3", "script.py"]).returncode == 0

RYN_SIM_STATE names the host while the test runs, so that programs that it starts, and _libryn in its own process, use
it. For the latter, run pytest itself by "ryn-sim run -- pytest".
"""

from __future__ import annotations

import json
import os
import pathlib
import shutil
from typing import Any, Iterator

import pytest

from .api import Host, load, make


def pytest_configure(config: pytest.Config) -> None:
    """Makes the marker known."""
    config.addinivalue_line("markers", "simulated_host(description, seed=None): what simulated_host is made from")


@pytest.fixture(scope="session")
def _simulated_host_templates(tmp_path_factory: pytest.TempPathFactory) -> dict[str, pathlib.Path]:
    """Hosts as they were made, by description: made once and copied, since that takes a tenth of the time."""
    return {}


@pytest.fixture
def simulated_host(
    request: pytest.FixtureRequest,
    tmp_path_factory: pytest.TempPathFactory,
    monkeypatch: pytest.MonkeyPatch,
    _simulated_host_templates: dict[str, pathlib.Path],
) -> Iterator[Host]:
    """A simulated host whose clock stands, removed after the test."""
    marker = request.node.get_closest_marker("simulated_host")
    arguments: tuple[Any, ...] = marker.args if marker else ()
    seed = marker.kwargs.get("seed") if marker else None
    description = arguments[0] if arguments else "default"
    key = json.dumps([description, seed], default=str)
    if key not in _simulated_host_templates:
        template = tmp_path_factory.mktemp("simulated") / "host.db"
        make(description, at=str(template), seed=seed).close()
        _simulated_host_templates[key] = template
    path = tmp_path_factory.mktemp("simulated") / "host.db"
    for suffix in ("", "-wal"):
        source = f"{_simulated_host_templates[key]}{suffix}"
        if os.path.exists(source):
            shutil.copy(source, f"{path}{suffix}")
    monkeypatch.setenv("RYN_SIM_STATE", str(path))
    host = load(str(path))
    try:
        yield host
    finally:
        host.remove()
