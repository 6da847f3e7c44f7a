"""ryn-exporter for tests: as a process of its own, on a simulated host or on scripted answers of the platform."""

from __future__ import annotations

import contextlib
import http.client
import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, Iterator

import ryn_sim

ROOT = Path(__file__).parents[2]
BUILD = Path(os.environ.get("RYN_BUILD", ROOT / "build"))
PROGRAM = BUILD / "exporter" / "ryn-exporter"
TOOL = ROOT / "simhost" / "tool" / "ryn-sim"
PATIENCE = 30  # seconds that anything may take

Series = tuple[str, frozenset[tuple[str, str]]]  # a name and its labels

LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"(?:,|$)')
SAMPLE = re.compile(r"(\w+)(?:\{(.*)\})? (\S+)")


def parse(text: str) -> dict[Series, str]:
    """The samples of a scrape, values as they are written. Fails on a series that stands twice."""
    samples: dict[Series, str] = {}
    for line in text.splitlines():
        if line.startswith("#"):
            continue
        found = SAMPLE.fullmatch(line)
        assert found, line
        name, labels, value = found.groups()
        pairs = frozenset(LABEL.findall(labels or ""))
        assert (name, pairs) not in samples, line
        samples[name, pairs] = value
    return samples


def series(name: str, **labels: object) -> Series:
    return name, frozenset((label, str(value)) for label, value in labels.items())


def named(samples: dict[Series, str], name: str) -> dict[frozenset, str]:
    """The series of one metric."""
    return {labels: value for (metric, labels), value in samples.items() if metric == name}


class Environment:
    """The platform libraries of a test, and what they need."""

    def __init__(self, libraries: Path, **variables: str) -> None:
        self.values = {name: value for name, value in os.environ.items() if not name.startswith("RYN_SIM_")}
        self.values.update(LD_LIBRARY_PATH=str(libraries), **variables)
        self.values.pop("NOTIFY_SOCKET", None)


class SimulatedHost(Environment):
    """A host of its own, whose clock stands still."""

    def __init__(self, state: Path, profile: str = "default", text: str | None = None) -> None:
        super().__init__(BUILD / "simhost", RYN_SIM_STATE=str(state), RYN_SIM_LIBS=str(BUILD / "simhost"))
        ryn_sim.make(text or profile, at=state).close()
        self.sim("clock", "step", "20s")  # the balancer has looked

    def sim(self, *arguments: object) -> str:
        done = subprocess.run(
            ["/usr/bin/python3", TOOL, *map(str, arguments)],
            env=self.values,
            text=True,
            capture_output=True,
            timeout=PATIENCE,
        )
        assert done.returncode == 0, (arguments, done.stderr)
        return done.stdout

    def methods(self, code: str) -> str:
        """What a script prints that has the module as m."""
        done = subprocess.run(
            [sys.executable, "-c", "import _libryn as m\n" + code],
            text=True,
            capture_output=True,
            env=self.values | {"PYTHONPATH": str(BUILD / "libryn")},
            timeout=PATIENCE,
            check=True,
        )
        return done.stdout


def run(environment: Environment, *arguments: object, **variables: str) -> subprocess.CompletedProcess:
    return subprocess.run(
        [PROGRAM, *map(str, arguments)],
        env=environment.values | variables,
        text=True,
        capture_output=True,
        timeout=PATIENCE,
    )


class Exporter:
    """A running exporter on a port of its own."""

    def __init__(self, environment: Environment, *arguments: object, address: str = "127.0.0.1", **variables: str):
        self.process = subprocess.Popen(
            [PROGRAM, "--listen", f"{address}:0", *map(str, arguments)],
            text=True,
            env=environment.values | variables,
            stderr=subprocess.PIPE,
            stdout=subprocess.DEVNULL,
        )
        assert self.process.stderr
        self.messages = self.process.stderr
        line = self.messages.readline()
        found = re.search(r"port (\d+)", line)
        if not found:
            raise RuntimeError(line + self.messages.read())
        self.address, self.port = address.strip("[]"), int(found[1])

    def request(
        self, path: str = "/metrics", method: str = "GET", timeout: float = PATIENCE, **headers: str
    ) -> tuple[http.client.HTTPResponse, bytes]:
        connection = http.client.HTTPConnection(self.address, self.port, timeout=timeout)
        with contextlib.closing(connection):
            connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
            response = connection.getresponse()
            return response, response.read()

    def text(self, path: str = "/metrics") -> str:
        response, body = self.request(path)
        assert response.status == 200, (response.status, body)
        return body.decode()

    def scrape(self) -> dict[Series, str]:
        return parse(self.text())

    def until(self, condition: Callable[[dict[Series, str]], object]) -> dict[Series, str]:
        """The first scrape of which the condition holds."""
        return wait_for(lambda: (lambda seen: seen if condition(seen) else None)(self.scrape()))

    def status(self, field: str) -> int:
        """A number of /proc/PID/status, such as VmRSS in kB."""
        text = Path(f"/proc/{self.process.pid}/status").read_text()
        found = re.search(rf"^{field}:\s*(\d+)", text, re.MULTILINE)
        assert found, field
        return int(found[1])

    def descriptors(self) -> int:
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def stop(self, number: int = signal.SIGTERM) -> tuple[int, float, str]:
        """Exit code, seconds until the end, and what was said on standard error."""
        start = time.monotonic()
        self.process.send_signal(number)
        code = self.process.wait(PATIENCE)
        return code, time.monotonic() - start, self.messages.read()

    def kill(self) -> None:
        self.process.kill()
        self.process.wait()
        self.messages.close()


def wait_for(look: Callable[[], object], patience: float = PATIENCE):
    """What `look` returns, as soon as it is true."""
    end = time.monotonic() + patience
    while not (seen := look()):
        if time.monotonic() > end:
            raise TimeoutError("it has not come")
        time.sleep(0.02)
    return seen


@contextlib.contextmanager
def exporting(environment: Environment, *arguments: object, **options: str) -> Iterator[Exporter]:
    exporter = Exporter(environment, *arguments, **options)
    try:
        yield exporter
    finally:
        exporter.kill()


def table() -> list[dict[str, str]]:
    """The rows of the table of metrics, as --metrics prints it."""
    lines = run(Environment(BUILD / "simhost"), "--metrics").stdout.splitlines()
    head, _, *rows = [[cell.strip().strip("`") for cell in line.strip("|").split("|")] for line in lines]
    return [dict(zip((name.lower() for name in head), row)) for row in rows]
