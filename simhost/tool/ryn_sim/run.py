"""The command run: a command that finds the stand-ins as its platform libraries, and a host behind them."""

from __future__ import annotations

import argparse
import glob
import os
import shutil
import subprocess
import sys

from . import paths
from .errors import BadInput, Failed

# Asked of an interpreter: what it is, which modules it can load, and whether it has _libryn without us.
_PROBE = """\
import importlib.machinery, importlib.util, json, platform
found = importlib.util.find_spec("_libryn")
print(json.dumps([platform.python_implementation() + " " + platform.python_version(),
                  importlib.machinery.EXTENSION_SUFFIXES, found and found.origin]))
"""


def run_command(options: argparse.Namespace) -> None:
    """Becomes the command, in an environment with the stand-ins and the host."""
    command = options.arguments
    if not command:
        raise BadInput("run: expected a command after --, such as: ryn-sim run -- python3 script.py")
    if options.named and not os.path.exists(options.path):
        raise paths.missing(options.path)
    environment = environment_of(options.path, options.installed)
    program = shutil.which(command[0], path=environment.get("PATH"))
    if program is None:
        if os.path.isdir(command[0]):
            raise Failed(f"{command[0]}: is a directory", 126)
        if os.path.exists(command[0]) and "/" in command[0]:
            raise Failed(f"{command[0]}: may not be executed", 126)
        raise Failed(f"{command[0]}: there is no such command", 127)
    for note in [] if options.installed else notes(program):
        print(f"ryn-sim: {note}", file=sys.stderr)
    sys.stdout.flush()
    try:
        os.execvpe(command[0], command, environment)
    except OSError as error:
        raise Failed(f"{command[0]}: {error.strerror}", 126) from None


def environment_of(state: str, installed: bool = False) -> dict[str, str]:
    """The environment in which a program finds the stand-ins, what was built beside them, and this host.

    installed: it finds the installed module and package instead of those that were built.
    """
    environment = dict(os.environ, RYN_SIM_STATE=state)
    _prepend(environment, "LD_LIBRARY_PATH", [paths.libraries()])
    _prepend(environment, "PYTHONPATH", paths.python_folders(installed))
    _prepend(environment, "PATH", paths.program_folders())
    return environment


def _prepend(environment: dict[str, str], variable: str, folders: list[str]) -> None:
    before = environment.get(variable)
    if folders:
        environment[variable] = ":".join([*folders, *([before] if before else [])])


def notes(program: str) -> list[str]:
    """What somebody should know who runs this program with the module that was built here."""
    folder, interpreter = paths.module_folder(), interpreter_of(program)
    if folder is None or interpreter is None:
        return []
    built = sorted(os.path.basename(file) for file in glob.glob(os.path.join(folder, "_libryn*.so")))
    try:
        done = subprocess.run([interpreter, "-c", _PROBE], capture_output=True, text=True, timeout=10)
        import json

        name, suffixes, installed = json.loads(done.stdout)
    except (OSError, ValueError, subprocess.TimeoutExpired):
        return []
    if not any(file == "_libryn" + suffix for file in built for suffix in suffixes):
        tag = built[0].split(".")[1]
        return [
            f"the module in {folder} was built for {tag}; {program} is {name} and cannot import it"
            f" (build for it: meson setup -Dpython={interpreter})"
        ]
    if installed and os.path.dirname(os.path.abspath(installed)) != folder:
        return [f"using the module in {folder}, not the installed {installed} (for that one: ryn-sim run --installed)"]
    return []


def interpreter_of(program: str) -> str | None:
    """The Python that a program is, or is a script of; None if it is neither."""
    if os.path.basename(os.path.realpath(program)).startswith("python"):
        return program
    try:
        with open(program, "rb") as file:
            first = file.readline(256).decode(errors="replace")
    except OSError:
        return None
    shebang = first[2:].split() if first.startswith("#!") else []
    if shebang and os.path.basename(shebang[0]) == "env":
        shebang = [part for part in shebang[1:] if not part.startswith("-") and "=" not in part]
    if not shebang or not os.path.basename(shebang[0]).startswith("python"):
        return None
    return shutil.which(shebang[0])
