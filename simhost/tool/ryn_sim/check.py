"""Checks a description against host.schema.json and says what is wrong, where, and what was expected."""

from __future__ import annotations

import json
import re

from .document import Document, path_text
from .errors import BadInput, nearest

_MOST_SHOWN = 20


class Problems:
    """What is wrong with a description; raise_any() reports all of it, in the order of the lines."""

    def __init__(self, document: Document):
        self._document = document
        self._found: list[tuple[int, str]] = []  # the line it is sorted by, the message

    def add(self, path, message: str) -> None:
        line, where = self._document.where(tuple(path))
        self._found.append((line, f"{where}: {path_text(tuple(path))}: {message}"))

    def raise_any(self) -> None:
        if not self._found:
            return
        lines = [message for _, message in sorted(set(self._found))]
        if len(lines) > _MOST_SHOWN:
            lines[_MOST_SHOWN:] = [f"{self._document.name}: and {len(lines) - _MOST_SHOWN} further problems"]
        raise BadInput("\n".join(lines))


def shown(value) -> str:
    """A value in a message: as YAML has it, and not too long."""
    if isinstance(value, dict):
        return "a mapping"
    if isinstance(value, list):
        return f"a list of {len(value)}"
    text = json.dumps(value, ensure_ascii=False)
    return text if len(text) <= 60 else text[:57] + "..."


def _inlined(schema, definitions):
    """The schema without references, which are slow to follow for each of thousands of values."""
    if isinstance(schema, list):
        return [_inlined(item, definitions) for item in schema]
    if not isinstance(schema, dict):
        return schema
    if "$ref" in schema:
        return _inlined(definitions[schema["$ref"].rpartition("/")[2]], definitions)
    return {key: _inlined(value, definitions) for key, value in schema.items() if key != "$defs"}


def check_form(document: Document, schema_text: str) -> None:
    """Raises BadInput unless the document has the form that the schema prescribes."""
    import jsonschema

    schema = json.loads(schema_text)
    validator = jsonschema.Draft202012Validator(_inlined(schema, schema["$defs"]))
    problems = Problems(document)
    for error in validator.iter_errors(document.value):
        path = tuple(error.absolute_path)
        if error.validator == "additionalProperties":
            known = error.schema.get("properties", {})
            for key in error.instance:
                if key not in known:
                    problems.add((*path, key), f"unknown key{nearest(key, known)}")
        elif error.validator == "required":
            missing = re.match(r"'(.*)' is a required property", error.message)
            problems.add(path, f'the key "{missing[1] if missing else "?"}" is missing')
        else:
            problems.add(
                path, f"expected {error.schema.get('description', 'another value')}, got {shown(error.instance)}"
            )
    problems.raise_any()
