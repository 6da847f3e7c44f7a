from __future__ import annotations

from pathlib import Path

import pytest
from ctl import Ctl, new_host


@pytest.fixture(scope="session")
def template(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A host made from the default profile, whose clock stands."""
    return new_host(tmp_path_factory.mktemp("host") / "default.db", "default")


@pytest.fixture(scope="session")
def still(template: Path) -> Ctl:
    """rynctl on a host that nobody changes."""
    return Ctl(template)


@pytest.fixture
def ctl(template: Path, tmp_path: Path) -> Ctl:
    """rynctl on a host of the test's own."""
    state = tmp_path / "host.db"
    state.write_bytes(template.read_bytes())
    return Ctl(state)
