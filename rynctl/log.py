"""The line in the system's log that each change leaves."""

from __future__ import annotations

import os
import shlex
import syslog
from typing import TYPE_CHECKING, Any

from rynctl.render import dumps, escaped

if TYPE_CHECKING:
    from rynctl.changes import Change
    from rynctl.cli import Context


def user() -> str:
    """Who is at work: behind sudo the one who called it."""
    import pwd

    try:
        name = pwd.getpwuid(os.getuid()).pw_name
    except KeyError:
        name = str(os.getuid())
    behind = os.environ.get("SUDO_USER")
    return f"{name} ({behind})" if behind and behind != name else name


def log_change(context: Context, change: Change, old: Any, new: Any, result: str) -> None:
    command = " ".join(map(shlex.quote, ["rynctl", *context.arguments]))
    text = f"user={user()} command={command} {change.object} {change.key}: {dumps(old)} -> {dumps(new)}, {result}"
    syslog.openlog("rynctl", syslog.LOG_PID, syslog.LOG_USER)
    syslog.syslog(syslog.LOG_NOTICE, escaped(text))
    syslog.closelog()
