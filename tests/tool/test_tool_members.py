"""One table names the members of a host; everything that lists them follows from it."""

import json
import re

import pytest
from ryn_sim import compile, generate
from ryn_sim.document import Document
from ryn_sim.members import COLUMNS, ENTITIES, MEMBERS
from ryn_sim.members.base import REQUIRED
from ryn_sim.members.event import EVENTS
from simtool import PROFILES, ROOT

AGAIN = "written from members/; write it anew with: simhost/tool/ryn_sim/generate.py"


@pytest.mark.parametrize(
    "path, content",
    [
        ("simhost/schema.sql", generate.schema_sql),
        ("simhost/host.schema.json", generate.json_schema),
        ("simhost/host/rows.h", generate.rows_h),
    ],
)
def test_what_is_written_from_the_members_is_as_they_have_it(path, content):
    assert (ROOT / path).read_text() == content(), f"{path} is {AGAIN}"


def test_the_documents_tables_are_those_of_the_members():
    page = (ROOT / "docs" / "ryn-sim.md").read_text()
    assert generate.documents(page) == page, f"the tables of docs/ryn-sim.md are {AGAIN}"


def test_no_other_place_names_a_column_by_its_position():
    """The stand-ins read rows by rows.h alone; what they ask the store for besides is one column."""
    for source in (ROOT / "simhost").rglob("*.cc"):
        for line in source.read_text().splitlines():
            assert not re.search(r"\.(Int|Text|Blob)\((?!0\))\d+\)", line), (source, line)


@pytest.mark.parametrize("profile", sorted(PROFILES.glob("*.yaml")), ids=lambda path: path.stem)
def test_the_json_schema_takes_what_the_tool_takes(profile):
    jsonschema = pytest.importorskip("jsonschema")
    schema = json.loads(generate.json_schema())
    jsonschema.Draft202012Validator.check_schema(schema)
    jsonschema.Draft202012Validator(schema).validate(Document(profile.read_text(), profile.stem).value)


def test_every_default_is_of_its_kind():
    for entity in ENTITIES:
        for member in entity.members:
            if member.key and member.default not in (None, REQUIRED):
                assert member.kind.parse(member.kind.show(member.stored_default)) == member.stored_default, member.key


def test_a_number_for_a_program_is_one_that_a_description_may_have():
    """What --json gives can be set and described again."""
    for entity in ENTITIES:
        for member in entity.members:
            if member.key and member.kind.plain and member.kind.low is not None and member.kind.high is not None:
                for stored in (member.kind.low, min(member.kind.high, 10**15), member.stored_default):
                    if stored is not None:
                        value = member.kind.typed(stored)
                        assert isinstance(value, (int, float)) and member.kind.parse(value) == stored, member.key


def test_a_row_has_all_columns_that_compiling_writes():
    document = Document("host: h\nnuma: [{lcores: [0]}]\n", "h")
    for table, rows in compile.compiled(document, "h").items():
        assert all(set(row) == set(COLUMNS[table]) for row in rows), table
    assert set(COLUMNS) < set(MEMBERS)


def test_every_event_is_a_row_of_its_own():
    rows = (ROOT / "simhost" / "host" / "rows.h").read_text()
    page = (ROOT / "docs" / "ryn-sim.md").read_text()
    for event in EVENTS:
        assert len(re.findall(rf"{{EventTarget::.*}},  // {event.name}\n", rows)) == 1
        assert page.count(f"| `{event.name}` |") == 1


def test_names_and_numbers_stand_in_one_list():
    """The stand-ins have the enumerations that are written from the tool's names, and none of their own."""
    rows = (ROOT / "simhost" / "host" / "rows.h").read_text()
    for kind, prefix, table in generate.NUMBERS:
        listed = re.search(rf"enum {kind} {{(.*?)}};", rows, re.S)
        assert listed and [int(number) for number in re.findall(r"= (\d+),", listed[1])] == list(table.values())
    written = set(re.findall(r"\b(k[A-Z]\w*) = ", rows))
    for source in [*(ROOT / "simhost").rglob("*.cc"), *(ROOT / "simhost").rglob("*.h")]:
        if source.name != "rows.h":
            again = written & set(re.findall(r"\b(k[A-Z]\w*) = \d", source.read_text()))
            assert not again, f"{source}: {again} stand in simhost/host/rows.h, from tool/ryn_sim/names.py"
