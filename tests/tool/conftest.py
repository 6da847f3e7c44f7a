import os
import pathlib

import pytest
from simtool import Sim


@pytest.fixture
def sim(tmp_path: pathlib.Path) -> Sim:
    return Sim(tmp_path)


@pytest.fixture
def built(monkeypatch: pytest.MonkeyPatch) -> None:
    """The stand-ins of this build, for what a test does in its own process."""
    if "RYN_BUILD" in os.environ:
        monkeypatch.setenv("RYN_SIM_LIBS", os.path.join(os.environ["RYN_BUILD"], "simhost"))


@pytest.fixture
def live(sim: Sim) -> Sim:
    """A runner whose stand-ins can change a host that is in use."""
    folder = sim.environment.get("RYN_SIM_LIBS")
    if folder is None:
        pytest.skip("RYN_BUILD does not name a build folder with the stand-ins")
    if b"ryn_sim_apply" not in (pathlib.Path(folder) / "libryn_sim.so").read_bytes():
        pytest.skip("these stand-ins cannot change a host in use")
    return sim
