"""What can go wrong. Every error of the package is an `Error`, beside ValueError and TypeError for arguments."""

from __future__ import annotations

import builtins
from typing import Any, Dict, Optional, Sequence, Tuple, Type

NOT_FOUND = 0x0BAD0003
BAD_PARAMETER = 0x0BAD0007


def call_text(operation: str, arguments: Sequence[Any]) -> str:
    """The call as one reads it: Ryn_Get_Port_Stats(0, 3)."""
    return f"{operation}({', '.join(map(repr, arguments))})"


class Error(Exception):
    """The base of the package's errors."""

    def __reduce__(self) -> Tuple[Any, ...]:
        # The texts are made of the fields, so that copies are made of the fields too.
        return _restored, (type(self), self.args, self.__dict__.copy())


def _restored(kind: Type[BaseException], arguments: Tuple[Any, ...], fields: Dict[str, Any]) -> BaseException:
    error = kind.__new__(kind)
    error.args = arguments
    error.__dict__.update(fields)
    return error


class PlatformNotFound(Error, ImportError):
    """A library of the platform cannot be loaded.

    `library` is its file name, or None where the loader did not say; `searched` the folders.
    """

    def __init__(self, message: str, library: Optional[str] = None, searched: Sequence[str] = ()):
        super().__init__(message)
        self.library = library
        self.searched = tuple(searched)


class PlatformError(Error):
    """An operation of the platform answered with another status than 0.

    `operation` is its name, `arguments` the numbers and texts that were handed over, in their order, `status` the
    unsigned 32-bit code.
    """

    operation: Optional[str]
    arguments: Optional[Tuple[Any, ...]]
    status: Optional[int]

    def __init__(
        self,
        message: str,
        operation: Optional[str] = None,
        arguments: Optional[Sequence[Any]] = None,
        status: Optional[int] = None,
    ):
        super().__init__(message)
        self.operation = operation
        self.arguments = None if arguments is None else tuple(arguments)
        self.status = status


class NotFound(PlatformError, LookupError):
    """There is no such switch, port, core, device or property.

    Where the package itself looked for a name and did not find it, `operation`, `arguments` and `status` are None.
    """


class Gone(NotFound):
    """The port of an object is not there any more, or its number is another port's now. Nothing was changed."""


class BadParameter(PlatformError):
    """The platform refused a parameter."""


class Ambiguous(Error, LookupError):
    """A text or number stands for two switches; the text of the error names both."""


class InvalidResponse(Error):
    """The platform answered with something that cannot be right, such as records that reach past its answer."""

    def __init__(self, operation: str, arguments: Sequence[Any], reason: str):
        super().__init__(f"{call_text(operation, arguments)}: {reason}")
        self.operation = operation
        self.arguments = tuple(arguments)
        self.reason = reason


class NotApplied(Error):
    """A setting was accepted, but does not read back as it was set.

    `name` is the setting, `wanted` what was set, `value` what was read last.
    """

    def __init__(self, name: str, wanted: Any, value: Any, settle: float):
        super().__init__(f"{name} was set to {wanted!r}, and is {value!r} after {settle:g} s")
        self.name = name
        self.wanted = wanted
        self.value = value


class TimeoutError(Error, builtins.TimeoutError):
    """An operation did not return in the time that the Host was given. What it was to change may still happen.

    `operation` and `arguments` are those of the call that is out, `seconds` how long it has been out. `refused` is
    the operation that was not made because of it, or None where the call that is out is one's own.
    """

    def __init__(
        self,
        operation: str,
        arguments: Sequence[Any],
        seconds: float,
        refused: Optional[str] = None,
    ):
        late = f"{call_text(operation, arguments)} has not returned for {seconds:.1f} s"
        if refused is None:
            text = f"{late}; what it was to change may still happen"
        else:
            text = f"{refused} was not called: {late}"
        super().__init__(text)
        self.operation = operation
        self.arguments = tuple(arguments)
        self.seconds = seconds
        self.refused = refused


def platform_error(operation: str, arguments: Sequence[Any], status: int) -> PlatformError:
    """The error for a status of the platform, of the kind that goes with it."""
    kind, meaning = {
        NOT_FOUND: (NotFound, "not found"),
        BAD_PARAMETER: (BadParameter, "bad parameter"),
    }.get(status, (PlatformError, "failed"))
    text = f"{call_text(operation, arguments)}: {meaning} (status 0x{status:08x})"
    return kind(text, operation, arguments, status)
