"""What ends a command, and the exit code for it."""

from __future__ import annotations

import sys

DONE, FAILED, USAGE, NO_SUCH_OBJECT, NO_PLATFORM, INTERRUPTED = 0, 1, 2, 3, 4, 130


class CommandError(Exception):
    """A command that cannot go on: its message, and the exit code."""

    code = FAILED


class UsageError(CommandError):
    """The command line cannot be right. Nothing was changed."""

    code = USAGE


class NoSuchObject(CommandError):
    code = NO_SUCH_OBJECT


def is_ryn(error: BaseException, *names: str) -> bool:
    """Whether an error is one of the package `ryn`, which is not imported to find out."""
    module = sys.modules.get("ryn.errors")
    return module is not None and isinstance(error, tuple(getattr(module, name) for name in names))


def exit_code(error: BaseException) -> int:
    """The exit code of an error of this package, of `ryn`, or of an argument."""
    if isinstance(error, CommandError):
        return error.code
    if isinstance(error, ImportError):  # a library that is missing is one too
        return NO_PLATFORM
    if is_ryn(error, "NotFound"):
        return NO_SUCH_OBJECT
    if is_ryn(error, "Ambiguous"):
        return USAGE
    if is_ryn(error, "Error"):
        return FAILED
    return USAGE if isinstance(error, (ValueError, TypeError, OverflowError)) else FAILED


def is_expected(error: BaseException) -> bool:
    """One line says all of it; any other error is a fault of the program, whose traceback is wanted."""
    kinds = (CommandError, ImportError, ValueError, TypeError, OverflowError, OSError)
    return isinstance(error, kinds) or is_ryn(error, "Error")
