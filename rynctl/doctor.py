"""`rynctl doctor`: is all there that the commands need, and which command mends what is not."""

from __future__ import annotations

import importlib
import os
import re
import sys
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Optional, Tuple

from rynctl.errors import DONE, FAILED, NO_PLATFORM
from rynctl.render import Row, escaped
from rynctl.rows import row

if TYPE_CHECKING:
    from rynctl.cli import Context

LIBRARIES = ("libryn.so", "libjorPublic.so")
SIMULATE = "ryn-sim run -- rynctl doctor"


def loaded_from(library: str) -> Optional[str]:
    """The file that a library of this process came from."""
    with open("/proc/self/maps") as maps:
        for line in maps:
            if line.rstrip().endswith("/" + library):
                return line.split(maxsplit=5)[5].rstrip()
    return None


def interpreter() -> Row:
    version = ".".join(map(str, sys.version_info[:3]))
    status = "ok" if sys.version_info >= (3, 8) else "failed"
    return row(
        "doctor",
        "interpreter",
        status,
        f"{sys.executable} {version}",
        None if status == "ok" else "use Python 3.8 or later",
    )


def module(name: str, fix: str) -> Tuple[Row, Any]:
    try:
        found = importlib.import_module(name)
    except ImportError as error:
        return row("doctor", name, "failed", str(error), fix), None
    return row("doctor", name, "ok", str(getattr(found, "__file__", "built in")), None), found


def libraries() -> List[Row]:
    """Each library: found where, and whether it has every operation that is called."""
    import ctypes

    hooks = ctypes.CDLL(None, mode=ctypes.RTLD_GLOBAL)  # noqa: F841
    found = []
    for library in LIBRARIES:
        path = loaded_from(library)
        searched = os.environ.get("LD_LIBRARY_PATH") or "the system's folders"
        if path is None:
            found.append(row("doctor", library, "failed", f"not loaded; looked in {searched}", SIMULATE))
        else:
            found.append(row("doctor", library, "ok", path, None))
    return found


def exports(core: Any) -> Optional[Row]:
    """Whether the libraries export all that the extension takes from them."""
    import ctypes

    path = getattr(core, "__file__", None)
    if path is None:
        return None
    try:
        handles = [ctypes.CDLL(loaded_from(library) or library) for library in LIBRARIES]
    except OSError as error:
        return row("doctor", "exports", "failed", str(error), SIMULATE)
    with open(path, "rb") as file:
        names = {name.decode() for name in re.findall(rb"\x00((?:Ryn|DVS\w*?)_\w+)(?=\x00)", file.read())}
    missing = sorted(name for name in names if not any(hasattr(handle, name) for handle in handles))
    if missing:
        return row(
            "doctor", "exports", "failed", f"missing: {', '.join(missing)}", "install matching platform libraries"
        )
    return row("doctor", "exports", "ok", f"{len(names)} operations", None)


def host(context: Context) -> Iterator[Row]:
    import ryn

    try:
        there = context.host()
    except ryn.Error as error:
        yield row("doctor", "configuration", "failed", str(error), None)
        return
    simulated = there.backend == "simulated"
    yield row(
        "doctor",
        "backend",
        "warning" if simulated else "ok",
        there.backend,
        "leave ryn-sim run to reach the real host" if simulated else None,
    )
    try:
        switches = there.switches()
        known = [switch for switch in switches if switch.id is not None]
        unknown = [switch.name for switch in switches if switch.id is None]
        yield row(
            "doctor",
            "configuration",
            "ok" if known or not switches else "warning",
            f"{len(known)} configured switches" + (f"; without configuration: {', '.join(unknown)}" if unknown else ""),
            None,
        )
        yield row("doctor", "datapath", "ok", f"{sum(switch.number is not None for switch in switches)} switches", None)
    except ryn.Error as error:
        yield row("doctor", "datapath", "failed", str(error), None)


def checks(context: Context) -> Iterator[Row]:
    from rynctl.version import VERSION

    yield row("doctor", "rynctl", "ok", f"{VERSION}, {os.path.dirname(os.path.abspath(__file__))}", None)
    yield interpreter()
    found, package = module("ryn", "install libryn")
    yield found
    install = "meson install -C build"
    built: Dict[str, Any] = {}
    for name in ("_libryn", "ryn._core"):
        found, built[name] = module(name, install if "No module" in str(_import_error(name)) else SIMULATE)
        yield found
    yield from libraries()
    if built["ryn._core"] is not None:
        found_exports = exports(built["ryn._core"])
        if found_exports is not None:
            yield found_exports
        yield from host(context)


def remedies(rows: List[Row]) -> Iterator[str]:
    """What is wrong, in full: a terminal may have no room for it in the table."""
    for each in rows:
        if each["status"] != "ok":
            yield f"\n{each['check']}: {escaped(each['detail'] or each['status'])}"
            if each["fix"]:
                yield f"  mend it: {escaped(each['fix'])}"


def _import_error(name: str) -> Optional[ImportError]:
    try:
        importlib.import_module(name)
    except ImportError as error:
        return error
    return None


def run(context: Context) -> int:
    rows = list(checks(context))
    context.out.rows(rows)
    if context.out.terminal and context.out.format == "table":
        for line in remedies(rows):
            print(line)
    failed = [each["check"] for each in rows if each["status"] == "failed"]
    if not failed:
        return DONE
    platform = (*LIBRARIES, "ryn", "_libryn", "ryn._core", "exports")
    return NO_PLATFORM if any(check in platform for check in failed) else FAILED
