"""Reads a YAML text into plain values and remembers on which line each of them stands."""

from __future__ import annotations

import math
import re
from typing import Any, NoReturn, Tuple

import yaml  # type: ignore[import]

from .errors import BadInput

Path = Tuple[Any, ...]  # of keys and indexes, from the document's root to a value

_TOO_MANY = 2_000_000


class _Loader(getattr(yaml, "CSafeLoader", yaml.SafeLoader)):  # type: ignore[misc]
    """Scalars as in YAML 1.2, so that 10:20:30:40:50:55 is a text and no number of base 60; yes, no, on, off stay."""

    yaml_implicit_resolvers: dict[str, Any] = {}


for _tag, _pattern, _first in (
    ("null", r"~|null|Null|NULL|", ["~", "n", "N", ""]),
    ("bool", r"true|True|TRUE|false|False|FALSE|yes|Yes|no|No|on|On|off|Off", list("tTfFyYnNoO")),
    ("int", r"[-+]?[0-9]+|0x[0-9a-fA-F]+", list("-+0123456789")),
    (
        "float",
        r"[-+]?(?:[0-9]+\.[0-9]*|\.[0-9]+)(?:[eE][-+]?[0-9]+)?|[-+]?[0-9]+[eE][-+]?[0-9]+",
        list("-+.0123456789"),
    ),
):
    _Loader.add_implicit_resolver(f"tag:yaml.org,2002:{_tag}", re.compile(f"(?:{_pattern})$"), _first)


class Document:
    """A read description: `value`, `line(path)` for messages, and what could not be read of it in `unread`."""

    def __init__(self, text: str, name: str):
        self.name = name
        self.text = text
        self.unread: list[tuple[int, Path, str]] = []  # line, where, what is wrong there
        self._lines: dict[Path, int] = {}
        self._count = 0
        try:
            root = yaml.compose(text, Loader=_Loader)
        except yaml.MarkedYAMLError as error:
            mark = error.problem_mark or error.context_mark
            line = mark.line + 1 if mark else 1
            problem = error.problem or error.context or ""
            what = f"{error.context}, {problem}" if problem.startswith("but ") else problem
            raise BadInput(f"{name}:{line}: not valid YAML: {what}") from None
        except yaml.YAMLError as error:
            raise BadInput(f"{name}: not valid YAML: {str(error).splitlines()[0]}") from None
        if root is None:
            raise BadInput(f"{name}:1: the description is empty; expected a mapping that begins with host:")
        self.value = self._build(root, (), ())

    @classmethod
    def of(cls, value: Any, name: str) -> Document:
        """A description that was never a text: messages about it name no lines."""
        document = cls.__new__(cls)
        document.name, document.text, document.value, document.unread, document._lines = name, "", value, [], {}
        return document

    def at(self, line: int) -> str:
        """What begins a message about a line."""
        return f"{self.name}:{line}" if self._lines else self.name

    def line(self, path: Path) -> int:
        """The line of a value, or of the innermost value around it that is in the text; 0: it was never a text."""
        path = tuple(path)
        while path and path not in self._lines:
            path = path[:-1]
        return self._lines.get(path, 1 if self._lines else 0)

    def _build(self, node: yaml.Node, path: Path, around: tuple[int, ...]) -> Any:
        self._lines.setdefault(path, node.start_mark.line + 1)
        self._count += 1
        if id(node) in around or self._count > _TOO_MANY:
            self._refuse(node, "an alias must not contain itself" if id(node) in around else "too many values")
        inside = (*around, id(node))
        if isinstance(node, yaml.SequenceNode):
            return [self._build(item, (*path, index), inside) for index, item in enumerate(node.value)]
        if isinstance(node, yaml.MappingNode):
            result: dict[str, Any] = {}
            for key_node, value_node in node.value:
                line = key_node.start_mark.line + 1
                if not isinstance(key_node, yaml.ScalarNode):
                    self.unread.append((line, path, "expected a plain text as key"))
                    continue
                key = key_node.value
                if key in result:
                    self.unread.append((line, (*path, key), "this key is given twice"))
                    continue
                self._lines[(*path, key)] = line
                result[key] = self._build(value_node, (*path, key), inside)
            return result
        kind = node.tag.rpartition(":")[2]
        text = node.value
        if kind == "null":
            return None
        if kind == "bool":
            return text.lower() in ("true", "yes", "on")
        if kind == "int":
            return int(text, 16 if text.lower().startswith("0x") else 10)
        if kind == "float":
            number = float(text)
            if not math.isfinite(number):
                return text  # no kind takes it
            return int(number) if number.is_integer() else number
        if kind != "str":
            self.unread.append((node.start_mark.line + 1, path, f'the tag "{node.tag}" has no meaning here'))
        return text

    def _refuse(self, node: yaml.Node, why: str) -> NoReturn:
        raise BadInput(f"{self.name}:{node.start_mark.line + 1}: {why}")


def value_of(text: str, name: str) -> Any:
    """A single value in YAML; messages about it begin with a name."""
    try:
        document = Document(text, name)
    except BadInput as error:
        raise BadInput(re.sub(f"^({re.escape(name)}):[0-9]+:", r"\1:", str(error))) from None
    for _, path, message in document.unread:
        raise BadInput(f"{name}: {path_text(path)}: {message}" if path else f"{name}: {message}")
    return document.value


def path_text(path: Path) -> str:
    """switches[0].mtu, as it is written in messages."""
    text = ""
    for part in path:
        text += f"[{part}]" if isinstance(part, int) else f".{part}" if text else str(part)
    return text or "the description"
