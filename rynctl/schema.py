"""The JSON Schemas of the output, from the table of columns. `python3 -m rynctl.schema` writes rynctl/schemas/."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any, Dict

from rynctl.columns import COLUMNS, Column

FOLDER = Path(__file__).with_name("schemas")
LIST = {"type": "array"}
TYPES: Dict[str, Dict[str, Any]] = {
    "int": {"type": "integer"},
    "count": {"type": "integer"},
    "float": {"type": "number"},
    "bool": {"type": "boolean"},
    "str": {"type": "string"},
    "ints": {**LIST, "items": {"type": "integer"}},
    "strs": {**LIST, "items": {"type": "string"}},
    "pairs": {**LIST, "items": {**LIST, "items": {"type": "integer"}}},
    "any": {"type": ["integer", "number", "boolean", "string", "array"]},
}


def of_column(column: Column) -> Dict[str, Any]:
    found: Dict[str, Any] = {
        "description": column.text + (f" [{column.unit}]" if column.unit else ""),
        **TYPES[column.type],
    }
    if column.null:
        types = found["type"]
        found["type"] = [*(types if isinstance(types, list) else [types]), "null"]
    return found


def of_table(table: str) -> Dict[str, Any]:
    columns = COLUMNS[table]
    row = {
        "type": "object",
        "additionalProperties": False,
        "properties": {column.name: of_column(column) for column in columns},
    }
    return {
        "$schema": "http://json-schema.org/draft-07/schema#",
        "title": f"rynctl {table.replace('.', ' ')}",
        "type": "object",
        "required": ["schema", "host", "backend", "time", "data"],
        "additionalProperties": False,
        "properties": {
            "schema": {"const": f"ryn/{table}/1"},
            "host": {"type": "string", "description": "the host's name"},
            "backend": {"enum": ["platform", "simulated", None]},
            "time": {"type": "string", "format": "date-time"},
            "data": {"type": "array", "items": row},
        },
    }


def text(table: str) -> str:
    return json.dumps(of_table(table), indent=2) + "\n"


if __name__ == "__main__":
    FOLDER.mkdir(exist_ok=True)
    for path in FOLDER.glob("*.json"):
        path.unlink()
    for name in COLUMNS:
        (FOLDER / f"{name}.json").write_text(text(name))
