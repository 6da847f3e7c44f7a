"""Reads the mappings of a description by the members of their entities, and collects what is wrong with them."""

from __future__ import annotations

import json
from typing import Any, Iterable

from .document import Document, Path, path_text
from .errors import BadInput, nearest
from .kinds import Kind, Wrong
from .members.base import REQUIRED, Entity, Member

_MOST_SHOWN = 20


class Problems:
    """What is wrong with a description; raise_any() reports all of it, in the order of the lines."""

    def __init__(self, document: Document):
        self._document = document
        self.found: list[tuple[int, Path, str]] = [*document.unread]  # the line, where, what is wrong there

    def add(self, path: Iterable[str | int], message: str) -> None:
        """Adds what is wrong with the value of a path."""
        path = tuple(path)
        self.found.append((self._document.line(path), path, message))

    def wrong(self, path: Iterable[str | int], error: Wrong, value: Any) -> None:
        """Adds that a value is not of its kind."""
        for index in error.at:
            value = value[index]
        self.add((*path, *error.at), error.message or f"expected {error}, got {shown(value)}")

    def lines(self) -> list[str]:
        """A line for each problem, in the order of the text."""
        found = sorted(set(self.found), key=lambda problem: (problem[0], path_text(problem[1]), problem[2]))
        return [f"{self._document.at(line)}: {path_text(path)}: {message}" for line, path, message in found]

    def raise_any(self) -> None:
        """Raises BadInput with all problems, if there are any."""
        if not self.found:
            return
        lines = self.lines()
        if len(lines) > _MOST_SHOWN:
            lines[_MOST_SHOWN:] = [f"{self._document.name}: and {len(lines) - _MOST_SHOWN} further problems"]
        raise BadInput("\n".join(lines))


def shown(value: Any) -> str:
    """A value in a message: as YAML has it, and not too long."""
    if isinstance(value, dict):
        return "a mapping"
    if isinstance(value, list):
        return f"a list of {len(value)} items" if len(value) > 1 else "a list of 1 item" if value else "an empty list"
    text = json.dumps(value, ensure_ascii=False)
    return text if len(text) <= 60 else text[:57] + "..."


def tree(entity: Entity) -> dict[str, Any]:
    """An entity's members by key, nested as the keys are."""
    found: dict[str, Any] = {}
    for member in entity.members:
        if member.key:
            *around, last = member.key.split(".")
            inside = found
            for key in around:
                inside = inside.setdefault(key, {})
            inside[last] = member
    return found


_TREES: dict[str, dict[str, Any]] = {}


def read(entity: Entity, value: Any, path: Path, problems: Problems) -> dict[str, Any] | None:
    """What a mapping says, as the store keeps it, by the members' keys; what is wrong is reported and left out.

    None: it is no mapping, or a required key is missing or wrong, so that there is nothing to compile.
    """
    if not isinstance(value, dict):
        problems.add(path, f"expected {entity.what}, got {shown(value)}")
        return None
    if entity.name not in _TREES:
        _TREES[entity.name] = tree(entity)
    known = _TREES[entity.name]
    given: dict[str, Any] = {}
    _read_into(given, known, value, path, problems)
    complete = True
    for member in entity.members:
        if member.key and member.default is REQUIRED and member.key not in given:
            complete = False
    return given if complete else None


def _read_into(
    given: dict[str, Any], known: dict[str, Any], mapping: dict[str, Any], path: Path, problems: Problems
) -> None:
    for key, value in mapping.items():
        expected = known.get(key)
        if expected is None:
            problems.add((*path, key), f"unknown key{nearest(key, known)}")
        elif isinstance(expected, Member):
            try:
                given[expected.key] = expected.kind.parse(value)
            except Wrong as error:
                problems.wrong((*path, key), error, value)
        elif isinstance(value, dict):
            _read_into(given, expected, value, (*path, key), problems)
        else:
            problems.add((*path, key), f"expected a mapping with {', '.join(expected)}, got {shown(value)}")
    for key, member in known.items():
        missing = isinstance(member, Member) and (member.default is REQUIRED or member.together)
        if missing and key not in mapping:
            problems.add(path, f'the key "{key}" is missing')


def read_list(values: list[Any], item: Kind, path: Path, problems: Problems) -> list[Any]:
    """The items of a list, as the store keeps them; those that are not of their kind are reported and left out."""
    good = []
    for index, value in enumerate(values):
        try:
            good.append(item.parse(value))
        except Wrong as error:
            problems.wrong((*path, index), error, value)
    return good


def read_known(entity: Entity, mapping: dict[str, Any]) -> dict[str, Any]:
    """As read(), of a mapping that is known to be right."""
    given = read(entity, mapping, (), Problems(Document.of(mapping, entity.name)))
    assert given is not None, entity.name
    return given


def read_known_or_raise(entity: Entity, mapping: dict[str, Any], name: str) -> dict[str, Any]:
    """As read(); BadInput says what is wrong, of a mapping that messages call by a name."""
    problems = Problems(Document.of(mapping, name))
    given = read(entity, mapping, (), problems)
    problems.raise_any()
    assert given is not None
    return given
