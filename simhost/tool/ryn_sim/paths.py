"""Where things are: the tool's data, the stand-ins, the module, and a host's store."""

from __future__ import annotations

import glob
import os
import re

from .errors import BadInput, Failed, nearest

_PACKAGE = os.path.dirname(os.path.realpath(__file__))
_HOST_NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,62}")


def data(name: str) -> str:
    """schema.sql, host.schema.json or profiles: beside the package when installed, above it in the source tree."""
    for folder in (os.path.dirname(_PACKAGE), os.path.dirname(os.path.dirname(_PACKAGE))):
        path = os.path.join(folder, name)
        if os.path.exists(path):
            return path
    raise Failed(f"{name} is missing: the installation of ryn-sim is not complete")


def read_data(name: str) -> str:
    """The text of one of the tool's files."""
    with open(data(name), encoding="utf-8") as file:
        return file.read()


def libraries() -> str:
    """The folder of the stand-ins: RYN_SIM_LIBS, else beside the package (installed), else the source tree's build."""
    beside = os.path.dirname(_PACKAGE)
    source_tree = os.path.dirname(os.path.dirname(beside))
    wanted = os.environ.get("RYN_SIM_LIBS")
    candidates = [wanted] if wanted else [beside, os.path.join(source_tree, "build", "simhost")]
    for folder in candidates:
        if os.path.exists(os.path.join(folder, "libryn.so")) and os.path.exists(
            os.path.join(folder, "libjorPublic.so")
        ):
            return os.path.abspath(folder)
    hint = "" if wanted else "; build the project first, or say with RYN_SIM_LIBS where they are"
    raise Failed(f"libryn.so and libjorPublic.so are not in {' or '.join(candidates)}{hint}")


def module_folder() -> str | None:
    """The folder of a module that was built with the stand-ins; None where the module is installed as usual."""
    folder = os.path.join(os.path.dirname(libraries()), "libryn")
    return folder if glob.glob(os.path.join(folder, "_libryn*.so")) else None


def python_folders(installed: bool = False) -> list[str]:
    """Folders with what was built or lies beside the stand-ins: the module, the package ryn, and this package.

    installed: this package alone.
    """
    if installed:
        return [os.path.dirname(_PACKAGE)]
    build = os.path.dirname(libraries())
    module = module_folder()
    folders = [module] if module else []
    if os.path.exists(os.path.join(build, "ryn", "__init__.py")):
        folders.append(build)
    return [*folders, os.path.dirname(_PACKAGE)]


def program_folders() -> list[str]:
    """Folders with programs of the source tree that work on a host."""
    tree = os.path.dirname(os.path.dirname(os.path.dirname(_PACKAGE)))
    folder = os.path.join(tree, "rynctl")
    return [folder] if os.access(os.path.join(folder, "rynctl"), os.X_OK) else []


def state_folder() -> str:
    """Where hosts are kept by name, as the stand-ins find it."""
    base = os.environ.get("XDG_STATE_HOME", "")
    if not base.startswith("/"):
        home = os.environ.get("HOME", "")
        if not home.startswith("/"):
            raise Failed("neither XDG_STATE_HOME nor HOME names a folder to keep hosts in")
        base = home + "/.local/state"
    return os.path.join(base, "ryn-sim")


def check_host_name(name: str) -> str:
    """The name, if a host may be called so."""
    if not _HOST_NAME.fullmatch(name):
        raise BadInput(
            f'"{name}" is not a name for a host: expected up to 63 letters, digits, dots, hyphens and underscores'
        )
    return name


def state_path(host: str | None, state: str | None) -> str:
    """The store that the options and the environment name, as the stand-ins find it."""
    if state is None and host is None:
        state = os.environ.get("RYN_SIM_STATE") or None
    if state == "":
        raise BadInput("--state: expected a file")
    if state is not None:
        return os.path.abspath(state)
    name = host if host is not None else os.environ.get("RYN_SIM_HOST") or "default"
    return os.path.join(state_folder(), check_host_name(name) + ".db")


def host_of(path: str) -> str:
    """What a store is called in messages: its host's name if it is in the state folder, else its path."""
    folder, file = os.path.split(path)
    try:
        named = folder == state_folder() and file.endswith(".db")
    except Failed:
        named = False
    return file[:-3] if named else path


def all_hosts() -> list[str]:
    """The names of all hosts in the state folder."""
    try:
        folder = state_folder()
    except Failed:
        return []
    return sorted(os.path.basename(path)[:-3] for path in glob.glob(os.path.join(glob.escape(folder), "*.db")))


def missing(path: str) -> Failed:
    """That there is no host in this place; one of nearly that name is proposed."""
    name = host_of(path)
    close = "" if "/" in name else nearest(name, all_hosts())
    return Failed(f'there is no simulated host "{name}" (make it with: ryn-sim init){close}')


def profiles() -> list[str]:
    """The names of the shipped profiles."""
    folder = data("profiles")
    return sorted(name[:-5] for name in os.listdir(folder) if name.endswith(".yaml"))
