#!/usr/bin/python3
"""Writes what follows from members/: schema.sql, host.schema.json, the stand-ins' rows.h, and the tables of
docs/ryn-sim.md. Run it after a change there; a test compares."""

from __future__ import annotations

import json
import os
import re
import sys
import textwrap
from typing import Any, Mapping

if __package__ in (None, ""):  # run as a file
    sys.dont_write_bytecode = True
    sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.realpath(__file__))))

from ryn_sim import names  # noqa: E402
from ryn_sim.check import tree  # noqa: E402
from ryn_sim.members import ENTITIES, MEMBERS, TABLES  # noqa: E402
from ryn_sim.members.base import ONE, REQUIRED, Entity, Member, Table  # noqa: E402
from ryn_sim.members.event import EVENT_TARGETS, EVENTS, Event  # noqa: E402
from ryn_sim.members.host import HOST  # noqa: E402
from ryn_sim.store import APPLICATION_ID, SCHEMA_VERSION  # noqa: E402

WIDTH = 120

# schema.sql -----------------------------------------------------------------------------------------------------------

_SQL_HEAD = f"""\
-- Written by simhost/tool/ryn_sim/generate.py from members/: change it there.
--
-- The store of a simulated host: one SQLite file, shared by every process that uses the host.
--
-- What stands here is the host's inventory, its settings, its traffic and its clock. Counters do not stand here: they
-- follow from the traffic and the clock. Each change that bears on how traffic counts closes a segment: the counts so
-- far go to `base` and counting goes on from there, in the same transaction. Therefore:
--
--   * a new store is made by running this file and then plain INSERTs, in journal mode WAL, under a temporary name that
--     is linked to the final name when it is complete;
--   * a store in use is changed through the stand-ins' Apply (session.h), which closes the segment, runs the statements
--     and commits, or changes nothing and answers a status other than 0. `fault` and `log` may be written directly,
--     they bear on no count.
--
-- Times ending in _ms are host time in milliseconds: the host's clock starts at 0 when it boots. Numbers that a C
-- program holds as uint64_t stand here as the signed number of the same 64 bits.

PRAGMA application_id = {APPLICATION_ID:#x};
PRAGMA user_version = {SCHEMA_VERSION};
"""


def _literal(value: Any) -> str:
    if isinstance(value, bytes):
        return f"x'{value.hex()}'"
    if isinstance(value, str):
        return "'" + value.replace("'", "''") + "'"
    return str(int(value))


def _check(member: Member) -> str:
    kind, column = member.kind, member.column
    if kind.choices:
        return f"CHECK ({column} IN ({', '.join(map(_literal, kind.choices))}))"
    if kind.low is None or kind.low == -(2**63):
        return ""
    what = {"INTEGER": column, "TEXT": f"length(CAST({column} AS BLOB))", "BLOB": f"length({column})"}[kind.sql]
    if kind.low == kind.high:
        return f"CHECK ({what} = {kind.low})"
    return f"CHECK ({what} BETWEEN {kind.low} AND {kind.high})"


def _column_sql(member: Member) -> str:
    parts = [f"{member.column:<20} {member.kind.sql:<7}"]
    if not member.null:
        parts.append("NOT NULL")
    if member.stored_default is not None and not member.null:
        parts.append(f"DEFAULT {_literal(member.stored_default)}")
    parts.append(_check(member))
    return "    " + " ".join(part for part in parts if part).rstrip()


def _table_sql(table: Table) -> str:
    lines = ["\n".join(textwrap.wrap(table.about, WIDTH - 3, initial_indent="-- ", subsequent_indent="-- "))]
    members = MEMBERS[table.name]
    notes = [_note(member) for member in members]
    columns = [_column_sql(member) for member in members]
    plain = f"    PRIMARY KEY ({', '.join(table.key)})"
    if len(table.key) == 1 and members[0].kind.sql == "INTEGER":
        columns[0] = columns[0].replace(" NOT NULL", " PRIMARY KEY")
        rest = [f"    {constraint}" for constraint in table.constraints]
    else:
        rest = [plain] + [f"    {constraint}" for constraint in table.constraints]
    lines.append(f"CREATE TABLE {table.name} (")
    body = []
    for column, note in zip(columns, notes):
        for line in textwrap.wrap(note, WIDTH - 7):
            body.append(f"    -- {line}")
        body.append(column + ",")
    body += [line + "," for line in rest]
    last = body[-1]
    body[-1] = last[:-1]
    lines += body
    rowid = len(table.key) == 1
    lines.append(") STRICT;" if rowid else ") STRICT, WITHOUT ROWID;")
    return "\n".join(lines) + "\n"


def _note(member: Member) -> str:
    """What a column means, for somebody who reads the store or the stand-ins."""
    about = member.about.replace("`", "")
    unit = member.kind.unit
    if unit and unit not in ("ns", "ms", "s", "ppm") and unit not in about:
        return f"{about} ({unit})" if about else unit
    return about


def schema_sql() -> str:
    """The schema of a store."""
    return _SQL_HEAD + "\n" + "\n".join(_table_sql(table) for table in TABLES)


# host.schema.json -----------------------------------------------------------------------------------------------------


def _object_schema(what: str, known: dict[str, Any]) -> dict[str, Any]:
    properties: dict[str, Any] = {}
    required = []
    for key, item in known.items():
        if isinstance(item, Member):
            about = item.about.replace("`", "")
            described = f"{item.kind.expected}: {about}" if about and about != "below" else item.kind.expected
            properties[key] = {"description": described, **item.kind.schema}
            if item.default is REQUIRED or item.together:
                required.append(key)
        else:
            properties[key] = _object_schema(f"a mapping with {', '.join(item)}", item)
    schema: dict[str, Any] = {"description": what, "type": "object"}
    if required:
        schema["required"] = required
    return {**schema, "additionalProperties": False, "properties": properties}


def json_schema() -> str:
    """The JSON schema of a description."""
    described = [entity for entity in ENTITIES if tree(entity) and entity is not HOST]
    schema = {
        "$schema": "https://json-schema.org/draft/2020-12/schema",
        "title": "A simulated host",
        **_object_schema(HOST.what, tree(HOST)),
        "$defs": {entity.name: _object_schema(entity.what, tree(entity)) for entity in described},
    }
    return json.dumps(schema, indent=1, ensure_ascii=False) + "\n"


# rows.h ---------------------------------------------------------------------------------------------------------------

_CXX_HEAD = """\
// Written by simhost/tool/ryn_sim/generate.py from members/ and names.py: change it there.
//
// The rows of a store, as structs. Each knows the query that reads it and checks every column as it is read.
#pragma once

// clang-format off

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/host/row_reader.h"

namespace simhost {

inline constexpr int kSchemaVersion = %d;
"""


def _number(value: int) -> str:
    return "INT64_MIN" if value == -(2**63) else f"{value}"


def _read_call(member: Member) -> str:
    kind, name = member.kind, member.field or member.column
    if kind.choices:
        return f'row.Choice("{member.column}", {name});'
    how = {"INTEGER": "Number", "TEXT": "Text", "BLOB": "Bytes"}[kind.sql]
    assert kind.low is not None and kind.high is not None, member
    return f'row.{how}("{member.column}", {_number(kind.low)}, {_number(kind.high)}, {name});'


def _struct(table: Table) -> str:
    members = [member for member in MEMBERS[table.name] if member.kind is not ONE]
    source = table.name
    if table.join:
        (shared,) = [
            member.column for member in MEMBERS[table.join] if member.column in {own.column for own in members}
        ]
        members += [member for member in MEMBERS[table.join] if member.column != shared]
        source = f"{table.name} LEFT JOIN {table.join} USING ({shared})"
    lines = [f"struct {table.row} {{"]
    for member in members:
        kind, name = member.kind.cxx, member.field or member.column
        declared = f"std::optional<{kind}> {name};" if member.null else f"{kind} {name}{{}};"
        note = _note(member)
        lines.append(f"  {declared:<42}// {note}" if note and len(note) < 76 else f"  {declared}")
    columns = ", ".join(member.column for member in members)
    query = f"SELECT {columns} FROM {source} ORDER BY {', '.join(table.key)}"
    lines += ["", f'  static constexpr const char* kTable = "{table.name}";', "  static constexpr const char* kQuery ="]
    pieces = textwrap.wrap(query, WIDTH - 12, drop_whitespace=False)
    lines += [f'      "{piece}"' + (";" if piece is pieces[-1] else "") for piece in pieces]
    lines += [
        f"  static constexpr int kKeys = {sum(member.column in table.key for member in members)};",
        "",
        "  void Read(RowReader& row) {",
    ]
    lines += [f"    {_read_call(member)}" for member in members]
    return "\n".join(lines + ["  }", "};", ""])


def _cxx_name(name: str, prefix: str = "k") -> str:
    """The enumerator for a name: kNoTeaming for NoTeaming, kUplinkDown for uplink-down."""
    return prefix + "".join(word.capitalize() for word in re.findall("[A-Z]+(?![a-z])|[A-Z]?[a-z]+", name))


# Enumerations of the numbers that names stand for: the type, what its enumerators begin with, the names.
NUMBERS: tuple[tuple[str, str, Mapping[str, int]], ...] = (
    ("PortKind : std::int64_t", "k", names.KINDS),
    ("TxType : int", "kTx", names.TX_TYPES),
    ("ReceiveFilter : std::uint32_t", "kFilter", names.FILTERS),
    ("MirrorFlag : std::uint16_t", "kMirror", names.MIRROR_FLAGS),
    ("BalancerMetric : std::uint32_t", "kMetric", names.METRICS),
    ("Weight : std::size_t", "kWeight", {name: position for position, name in enumerate(names.WEIGHTS)}),
)


def _numbers() -> str:
    lines = ["// Names that stand for numbers, from names.py."]
    for kind, prefix, table in NUMBERS:
        enumerators = [f"{_cxx_name(name, prefix)} = {number}" for name, number in table.items()]
        lines += [f"enum {kind} {{", *(f"  {one}," for one in enumerators), "};"]
    return "\n".join(lines + [""])


def _choices() -> str:
    """The columns that hold one of a few texts: an enumeration for each, and its texts."""
    kinds = {member.kind.cxx: member.kind for table in TABLES for member in MEMBERS[table.name] if member.kind.choices}
    lines = ["// Columns that hold one of a few texts, and the texts of each."]
    for name, kind in kinds.items():
        texts = ", ".join(map('"{}"'.format, kind.choices))
        lines += [
            f"enum class {name} {{ {', '.join(map(_cxx_name, kind.choices))} }};",
            f"template <> inline constexpr std::array<std::string_view, {len(kind.choices)}> kTextsOf<{name}>{{",
            f"    {texts}}};",
        ]
    return "\n".join(lines + [""])


def _event_rules() -> str:
    targets = ", ".join(_cxx_name(target) for target in EVENT_TARGETS)
    lines = [
        "// What each kind of event concerns, and the limits of its value; 0 to 0: it has none.",
        f"enum class EventTarget {{ {targets} }};",
        "",
        "struct EventRule {",
        "  EventTarget target;",
        "  std::int64_t low;   // of its value",
        "  std::int64_t high;",
        "  std::int64_t usual; // while its row has none",
        "  bool once;          // it is over as soon as it has happened",
        "};",
        f"inline constexpr std::array<EventRule, {len(EVENTS)}> kEventRules{{{{  // by EventKind",
    ]
    for event in EVENTS:
        low, high = (min(event.values), max(event.values)) if event.values else (event.low, event.high)
        target, usual = _cxx_name(event.target), event.default or 0
        lines.append(
            f"    {{EventTarget::{target}, {low}, {high}, {usual}, {'true' if event.once else 'false'}}},"
            f"  // {event.name}"
        )
    return "\n".join(lines + ["}};", ""])


def rows_h() -> str:
    """The structs that the stand-ins read rows into, with their enumerations."""
    structs = [_struct(table) for table in TABLES if table.row]
    parts = [_numbers(), _choices(), _event_rules(), *structs, "}  // namespace simhost", ""]
    return _CXX_HEAD % SCHEMA_VERSION + "\n" + "\n".join(parts)


# docs/ryn-sim.md ------------------------------------------------------------------------------------------------------

DOCUMENTED = {entity.name: entity for entity in ENTITIES if any(member.key for member in entity.members)}


def _default_text(member: Member) -> str:
    if member.derived:
        return member.derived
    if member.default is REQUIRED or member.together:
        return "required"
    if member.default is None or member.default == "":
        return "none"
    if isinstance(member.default, bool):
        return "true" if member.default else "false"
    if isinstance(member.default, list):
        return ", ".join(map(str, member.default)) or "none"
    return str(member.default)


def _members_table(entity: Entity) -> str:
    lines = ["| Key | Default | Meaning |", "|---|---|---|"]
    for member in entity.members:
        if member.key:
            about = member.about
            kind = member.kind
            if kind.expected.startswith("a number ") and kind.high not in (2**32 - 1, 2**63 - 1):
                about += f" ({kind.low} to {kind.high})"
            lines.append(f"| `{member.key}` | {_default_text(member)} | {about} |")
    return "\n".join(lines) + "\n"


def _value_text(event: Event) -> str:
    if event.default is None:
        return ""
    allowed = ", ".join(map(str, event.values)) if event.values else f"{event.low} to {event.high}"
    return f"{allowed}; {event.default} if nothing is said"


def _events_table() -> str:
    lines = ["| Event | Target | `value` | Effect |", "|---|---|---|---|"]
    lines += [
        f"| `{event.name}` | {EVENT_TARGETS[event.target]} | {_value_text(event)} | {event.about} |" for event in EVENTS
    ]
    return "\n".join(lines) + "\n"


def documents(text: str) -> str:
    """The page with its tables written anew."""
    tables = {name: _members_table(entity) for name, entity in DOCUMENTED.items()} | {"events": _events_table()}
    for name, table in tables.items():
        begin, end = f"<!-- members: {name} -->\n", "<!-- end -->\n"
        if begin not in text:
            raise SystemExit(f"docs/ryn-sim.md has no place for the table {name}: expected the line {begin.strip()}")
        head, _, rest = text.partition(begin)
        _, _, tail = rest.partition(end)
        text = f"{head}{begin}\n{table}\n{end}{tail}"
    return text


def main() -> None:
    """Writes all of it."""
    here = os.path.dirname(os.path.realpath(__file__))
    simhost = os.path.dirname(os.path.dirname(here))
    page = os.path.join(os.path.dirname(simhost), "docs", "ryn-sim.md")
    with open(page, encoding="utf-8") as file:
        text = file.read()
    written = {
        os.path.join(simhost, "schema.sql"): schema_sql(),
        os.path.join(simhost, "host.schema.json"): json_schema(),
        os.path.join(simhost, "host", "rows.h"): rows_h(),
        page: documents(text),
    }
    for path, content in written.items():
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)


if __name__ == "__main__":
    main()
