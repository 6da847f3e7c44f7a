"""What the tables of members are made of: members, entities, and tables of the store."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

from ..kinds import Kind, Wrong, number


class _Required:
    def __repr__(self) -> str:
        return "required"


REQUIRED = _Required()


@dataclass(frozen=True)
class Member:
    """A key of a description, a column of the store, or, mostly, both."""

    key: str  # where it stands in its entity, with dots between nested keys; "": a description has no such key
    stored: str  # TABLE.COLUMN; "": compiled into something else
    kind: Kind
    default: Any = None  # as a description has it (a member without a key: as the store has it); REQUIRED: none
    about: str = ""  # what it means and affects
    derived: str = ""  # what the default follows from, where it is not the same everywhere
    field: str = ""  # its name in the stand-ins' row, if not the column's
    null: bool = False  # the column may be NULL
    own: bool = False  # belongs to the stand-ins: compiling leaves it at its default
    together: bool = False  # the mapping that it is in has it, or is not there
    stays: bool = False  # cannot be set: others refer to it
    shown: str = ""  # its heading in `ryn-sim show`, where one is shared by several: 4/2; "": only --json has it

    @property
    def table(self) -> str:
        """The table of the store that it is a column of; "": none."""
        return self.stored.partition(".")[0]

    @property
    def column(self) -> str:
        """Its column in that table."""
        return self.stored.partition(".")[2]

    @property
    def stored_default(self) -> Any:
        """The default as the store has it; None where there is none."""
        if self.default is REQUIRED or self.default is None:
            return None
        return self.kind.parse(self.default) if self.key else self.default


M = Member  # the tables are long


@dataclass(frozen=True)
class Entity:
    """A kind of thing in a description: a mapping with these members."""

    name: str  # of its definition in the JSON schema
    what: str  # in messages
    members: tuple[Member, ...]

    def __post_init__(self) -> None:
        keys = [member.key for member in self.members if member.key]
        assert len(keys) == len(set(keys)), self.name


@dataclass(frozen=True)
class Table:
    """A table of the store. Its columns are the members that are stored in it, in their order."""

    name: str
    about: str
    key: tuple[str, ...]
    constraints: tuple[str, ...] = ()
    row: str = ""  # the stand-ins' struct for its rows; "": they have none
    join: str = ""  # a further table whose columns belong to the row
    kept: bool = False  # no description has anything of it


ONE = number(1, 1)  # the key of a table with one row
HISTORY = "history: host time of the last clearing"


def items(entity: str, expected: str, least: int = 0, most: int | None = None) -> Kind:
    """A list of things that are entities themselves."""
    schema: dict[str, Any] = {"type": "array", "items": {"$ref": f"#/$defs/{entity}"}}
    if least:
        schema["minItems"] = least
    if most:
        schema["maxItems"] = most

    def parse(value: Any) -> Any:
        if not isinstance(value, list) or not least <= len(value) <= (most or len(value)):
            raise Wrong(expected)
        return value

    return Kind(expected, parse, schema=schema)
