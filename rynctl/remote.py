"""--host USER@HOST: the same command on another host, through ssh."""

from __future__ import annotations

import shlex
import subprocess
import sys
from typing import List, Sequence

from rynctl.errors import FAILED, CommandError, UsageError

SSH_FAILED = 255


def without_host(arguments: Sequence[str]) -> List[str]:
    """The command line less --host and its value."""
    kept: List[str] = []
    skip = False
    for i, each in enumerate(arguments):
        if skip:
            skip = False
        elif each == "--":
            return kept + list(arguments[i:])
        elif each == "--host":
            skip = True
        elif not each.startswith("--host="):
            kept.append(each)
    return kept


def run_there(host: str, arguments: Sequence[str]) -> int:
    if not host or host.startswith("-"):
        raise UsageError(f"--host {host!r} is no host")
    command = " ".join(map(shlex.quote, ["rynctl", *without_host(arguments)]))
    sys.stdout.flush()
    try:
        code = subprocess.call(["ssh", "--", host, command])
    except FileNotFoundError:
        raise CommandError("--host needs ssh, which is not installed") from None
    return FAILED if code in (SSH_FAILED,) or code < 0 else code
