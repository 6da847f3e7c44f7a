"""Simulated hosts, for scripts and tests.

    import ryn_sim

    host = ryn_sim.make("default", at="host.db")   # its clock stands
    host.set({"ports.web-0.lro": False})
    host.step("5s")
    host.run(["python3", "script.py"])

For pytest there is the fixture simulated_host (ryn_sim.pytest_plugin). The command line is ryn-sim.
"""

from .api import Host, load, make, profiles
from .errors import BadInput, Failed

VERSION = "1.0.0"

__all__ = ["BadInput", "Failed", "Host", "VERSION", "load", "make", "profiles"]
