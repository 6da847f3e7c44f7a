"""What a row of the description holds. Python 3.8 reads it too: the tests run there."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from typing import Any, List, Optional, Tuple


class Idiom(enum.Enum):
    """What a script sees of a failure. These eight are all there are."""

    NONE = "prints the line, returns `None`"
    SAME = "prints the line, returns `None` as after success"
    FALSE = "prints the line, returns `False`"
    TRUE = "prints the line, returns `True` all the same"
    SILENT = "prints nothing, returns `None` or `False`"
    PARTIAL = "returns a result with a default, or nothing, in place of what failed"
    NULL = "prints the line, raises a `SystemError` that has no cause"
    CAUSE = "prints a line or nothing, raises a `SystemError` whose `__cause__` says why, or that cause itself"


@dataclass(frozen=True)
class Argument:
    """A positional argument. `unit` is the argument parser's: I takes an int modulo 2**32, L an int of 64 bits, s a
    text without NUL, O any object. `greatest` is the greatest value that is accepted; None: all of them are."""

    name: str
    unit: str
    meaning: str
    greatest: Optional[int] = None
    type: str = ""  # for type checkers, where it is not int (I, L) or str (s)

    def checked_type(self) -> str:
        return self.type or {"I": "int", "L": "int", "s": "str"}[self.unit]


@dataclass(frozen=True)
class Field:
    """A key of a result, or a position of a tuple. `width` is that of the platform's number (u: unsigned, s: taken as
    signed, low 32 of u64: modulo 2**32, flag: 0 or 1), or text, list, dict."""

    key: str
    width: str
    meaning: str
    type: str = ""  # for type checkers, where it is not int or str
    optional: bool = False  # a key that is not always there

    def checked_type(self) -> str:
        return self.type or ("str" if self.width == "text" else "int")


@dataclass(frozen=True)
class Record:
    """Keys in their order. `shape`: dict; tuple, with a place for each field; or pairs of (name, value)."""

    name: str
    about: str
    fields: Tuple[Field, ...]
    shape: str = "dict"


@dataclass(frozen=True)
class Failure:
    """`prints` is the text on standard error; {} in it stands for what the call or the platform said."""

    when: str
    prints: str
    sees: Idiom


@dataclass(frozen=True)
class OutOfMemory:
    """How the result is built, which says what a failing allocation of the interpreter comes to.

    keys: key by key, dicts stored before they are filled. items: each item in one go. dict: a dict filled key by key,
    the last of which is a list of items built in one go. value: the whole result in one go. own: in a way of its own,
    which the notes tell. `prints` is the line for an outermost container that cannot be made.
    """

    kind: str
    prints: str = ""


@dataclass(frozen=True)
class Method:
    """One of the methods. The order of the rows is that of the module's table."""

    name: str
    handler: str
    doc: str  # __doc__, misspellings included: it is part of the interface
    topic: str
    summary: str
    arguments: Tuple[Argument, ...] = ()  # none: whatever is passed is not looked at
    returns: str = "None"  # for type checkers, without the Optional that most have
    result: str = ""
    refuses: str = ""  # the line for wrong arguments
    refusal: Any = None  # the result then
    failures: Tuple[Failure, ...] = ()
    operations: Tuple[str, ...] = ()  # of the platform, in the order of the calls; look-ups of an alias left out
    fallback: Tuple[str, ...] = ()  # operations that are called when a property is not there
    memory: Optional[OutOfMemory] = None  # None: nothing is allocated for the result
    getter: str = ""  # of a setter: the method that reads what it sets; "none" where there is none
    open: Tuple[str, ...] = ()  # meanings that the platform leaves open
    oddities: Tuple[str, ...] = ()  # deliberate: scripts rely on them
    leaks: int = 0  # bytes that a successful call leaks on CPython 3.11, about
    ryn: str = ""  # the call of the package ryn that does the same
    example: Tuple[str, ...] = ()  # calls on the simulated host, the last of which is shown with its result

    @property
    def format(self) -> Optional[str]:
        """The argument parser's units; None where arguments are not looked at."""
        return "".join(argument.unit for argument in self.arguments) or None

    @property
    def maxima(self) -> Tuple[Optional[int], ...]:
        """The greatest accepted value of each argument."""
        return tuple(argument.greatest for argument in self.arguments)

    @property
    def never_fails_visibly(self) -> bool:
        return self.returns in ("None", "bool")

    def checked_returns(self) -> str:
        """The type for type checkers: Optional where a failure gives None instead of a result."""
        gives_none = self.refusal is None and any(
            failure.sees in (Idiom.NONE, Idiom.SILENT) for failure in self.failures
        )
        refused = bool(self.arguments) and self.refusal is None
        if self.returns == "None" or not (gives_none or refused):
            return self.returns
        return f"Optional[{self.returns}]"

    def all_operations(self) -> List[str]:
        return [*self.operations, *self.fallback]
