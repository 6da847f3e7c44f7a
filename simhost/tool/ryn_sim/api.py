"""Simulated hosts as Python objects: what ryn-sim does, without a process for each step.

Errors are BadInput (a description, path, value or name is wrong: nothing was changed) and Failed (it could not be
done). Times are seconds, or texts such as "250ms", "5s", "1h30m".
"""

from __future__ import annotations

import os
import subprocess
from typing import Any, Mapping, Sequence, Union

from . import paths, units
from .errors import BadInput, Failed
from .library import Library
from .store import Store

Time = Union[int, float, str]
Place = Union[str, "os.PathLike[str]"]


def profiles() -> list[str]:
    """The names of the shipped profiles."""
    return paths.profiles()


def make(
    description: Union[str, Mapping[str, Any]] = "default",
    *,
    at: Place,
    seed: int | None = None,
    frozen: bool = True,
    replace: bool = False,
) -> Host:
    """Makes a host.

    description: a profile's name, a file with a description in YAML, its text (of more than one line), or a mapping.
    at: the file to keep it in, or the host's name. frozen: its clock stands until step() or start_clock().
    """
    from . import hosts

    path = _place(at)
    if os.path.exists(path) and not replace:
        raise Failed(f"{path} exists already; replace it with replace=True")
    if isinstance(description, str) and "\n" not in description:
        hosts.make(path, description, seed, replace)
    else:
        from .yaml_text import to_yaml

        text = description if isinstance(description, str) else to_yaml(dict(description))
        hosts.make_from_text(path, text, "the description", "a description", seed, replace)
    host = Host(path)
    if frozen:
        with host._store.writing() as db:  # nobody has seen its time yet
            db.execute("UPDATE clock SET mode = 'freeze'")
    return host


def load(at: Place) -> Host:
    """A host that is there: its file, or its name."""
    return Host(_place(at))


def _place(at: Place) -> str:
    text = os.fspath(at)
    is_file = os.sep in text or text.endswith(".db")
    return os.path.abspath(text) if is_file else paths.state_path(text, None)


class Host:
    """A simulated host. Any number of objects and processes may use the same one."""

    def __init__(self, path: str):
        """path: its file, which must be there."""
        self._store = Store(path)

    @property
    def path(self) -> str:
        """Its file: programs find it by RYN_SIM_STATE."""
        return self._store.path

    def __repr__(self) -> str:
        return f"ryn_sim.load({self.path!r})"

    def close(self) -> None:
        """Closes its file; the host stays. So does the end of a `with` block."""
        self._store.close()

    def __enter__(self) -> Host:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    # The clock

    @property
    def now(self) -> float:
        """Host time in seconds."""
        return self._store.now_ns() / 10**9

    def step(self, time: Time) -> float:
        """Stops the clock so much later than now, brings the host up to then, and answers the host time."""
        self._clock(False, ahead_ns=_ns(time))
        return self.now

    def warp(self, time: Time) -> float:
        """Jumps so far ahead and goes on as before; answers the host time."""
        self._clock(None, ahead_ns=_ns(time))
        return self.now

    def freeze(self) -> None:
        """Stops the clock."""
        self._clock(False)

    def start_clock(self, speed: float = 1) -> None:
        """Lets the clock run, `speed` times as fast as real time."""
        from .clock import permille

        self._clock(True, permille(str(speed)))

    def _clock(self, running: bool | None, speed_permille: int = 0, ahead_ns: int = 0) -> None:
        from . import clock

        clock.change(self._store, running, speed_permille, ahead_ns)
        self._store.catch_up()

    # What it is

    def set(self, settings: Mapping[str, Any]) -> int:
        """Changes settings by their paths, all or none; answers how many rows changed.

        host.set({"ports.web-0.lro": False, "traffic.3.pps": "80k"}); None takes a setting back to its default.
        """
        from .settings import set_all

        return set_all(self._store, settings)

    def get(self, path: str) -> Any:
        """What a path of the description has, said or not: times in seconds, rates and speeds as plain numbers."""
        from .browse import get

        return get(self._store, path)

    def show(self, what: str = "summary", switch: str | None = None) -> list[dict[str, Any]]:
        """The records of a section of `ryn-sim show`, such as "ports" or "rates"."""
        from .show import SECTIONS, show

        if what not in SECTIONS:
            raise BadInput(f"show: expected one of {', '.join(SECTIONS)}, got {what!r}")
        return show(self._store, [what], switch)[what]

    def rates(self) -> dict[str, Any]:
        """Packets offered, delivered and lost in the present second, by conversation, core and link."""
        return Library(self.path).rates()

    def describe(self) -> dict[str, Any]:
        """Its description, which make() takes. What was counted is not in it; save() keeps everything."""
        from .export import describe

        return describe(self._store)

    def info(self) -> dict[str, Any]:
        """What is simulated, from where, and how far."""
        from .hosts import info

        return info(self._store)

    # What goes wrong

    def fault(
        self,
        operation: str,
        *,
        where: Union[str, Sequence[str]] = (),
        status: int | None = None,
        delay: Time | None = None,
        corrupt: str | None = None,
        after: int = 0,
        times: int | None = None,
        probability: float = 1,
        seed: int = 1,
        begin: Time | None = None,
        until: Time | None = None,
    ) -> int:
        """Makes an operation fail, answer late or wrongly; answers the fault's number.

        Without status, delay and corrupt it answers 0x0BAD0001. begin and until are counted from now, in host time.
        """
        from .check import read_known_or_raise
        from .compile import row_of
        from .faults import add_fault
        from .members.fault import FAULT

        described = {
            "operation": operation,
            "status": status,
            "delay": delay,
            "corrupt": corrupt,
            "after": after,
            "times": times,
            "probability": probability,
            "seed": seed,
        }
        given = read_known_or_raise(
            FAULT, {key: value for key, value in described.items() if value is not None}, "fault"
        )
        if until is not None and _ns(until) <= _ns(begin or 0):
            raise BadInput("fault: until: expected a time after begin")
        now = self._store.now_ns() // 10**6
        columns = row_of("fault", given)
        del columns["id"]
        columns["from_ms"] = None if begin is None else now + _ns(begin) // 10**6
        columns["until_ms"] = None if until is None else now + _ns(until) // 10**6
        conditions = [where] if isinstance(where, str) else list(where)
        return int(add_fault(self._store, where=conditions, **columns)["id"])

    def faults(self) -> list[dict[str, Any]]:
        """The faults, with how often they were looked at and struck."""
        from .faults import list_faults

        return list_faults(self._store)

    def clear_faults(self) -> int:
        """Removes all faults; answers how many there were."""
        from .faults import clear_faults

        return clear_faults(self._store)

    def event(
        self,
        kind: str,
        target: str | int,
        *,
        lasting: Time | None = None,
        ahead: Time | None = None,
        value: int | None = None,
    ) -> int:
        """Lets an event begin, now or so far ahead, for good or for a time; answers its number."""
        from .errors import nearest
        from .events import add_event
        from .members.event import EVENT

        if kind not in EVENT:
            raise BadInput(f'there is no event "{kind}"{nearest(kind, EVENT)}')
        lasting_ms = None if lasting is None else _ns(lasting) // 10**6
        ahead_ms = None if ahead is None else _ns(ahead) // 10**6
        found = add_event(self._store, kind, str(target), lasting_ms=lasting_ms, ahead_ms=ahead_ms, value=value)
        return int(found["id"])

    def events(self) -> list[dict[str, Any]]:
        """The events and how far they are."""
        from .events import list_events

        return list_events(self._store)

    def end_event(self, number: int) -> None:
        """Ends an event that is on, or calls off one that is ahead."""
        from .events import end_event

        end_event(self._store, number)

    def log(self, operation: str = "*") -> list[dict[str, Any]]:
        """What faults and events did, oldest first, of operations and events that a pattern fits."""
        from .log import read_log

        return [dict(row) for row in read_log(self._store, operation)]

    # The whole of it

    def save(self, file: Place, *, replace: bool = False) -> None:
        """Writes all of it to a file, what was counted included."""
        from . import copies

        if os.path.exists(file) and not replace:
            raise Failed(f"{os.fspath(file)} exists already; replace it with replace=True")
        copies.save(self._store, os.fspath(file), replace)

    def restore(self, file: Place) -> None:
        """Puts a saved host in its place; programs that have it open go on with it."""
        from . import copies

        copies.restore(os.fspath(file), self.path)

    def clone(self, at: Place) -> Host:
        """Makes another host that is the same, what was counted included."""
        from . import copies

        path = _place(at)
        copies.clone(self._store, path)
        return Host(path)

    def reset(self) -> None:
        """Puts it back to its beginning, as it was made; its clock runs again unless its description says otherwise."""
        from . import hosts

        hosts.reset(self._store)

    def remove(self) -> None:
        """Closes and removes it."""
        from .store import remove

        self.close()
        remove(self.path)

    # Programs on it

    def environment(self) -> dict[str, str]:
        """The environment of a program that is to run on it."""
        from .run import environment_of

        return environment_of(self.path)

    def run(self, command: Sequence[str], **options: Any) -> subprocess.CompletedProcess[str]:
        """Runs a command on it, with its output captured as text; options are those of subprocess.run()."""
        settings: dict[str, Any] = {"capture_output": True, "text": True, "env": self.environment(), **options}
        return subprocess.run(list(command), **settings)


def _ns(time: Time) -> int:
    try:
        return units.nanoseconds(time)
    except (ValueError, TypeError, AttributeError):
        raise BadInput(f"expected seconds, or a time such as 5s, 250ms or 2h, got {time!r}") from None
