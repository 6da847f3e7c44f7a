"""The description of the methods (libryn/reference) against the module's behaviour, and what is made from it."""

from __future__ import annotations

import ast
import os
import re
import shutil
import subprocess
import sys
import typing
from pathlib import Path
from typing import Any, Callable

import pytest
import write_reference
from description import DESCRIPTIONS, RECORDS, Description, Field, Idiom
from harness import MISSING, NULL, TOOLS, Bytes, Double, Outcome, run
from hostile_answers import RESPONSES
from method_table import METHODS, Failure, Method

ROOT = Path(__file__).parents[2]
ROWS = "libryn/reference/methods.py"
RECORD = {record.name: record for record in RECORDS}

every_method = pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)
every_row = pytest.mark.parametrize("row", DESCRIPTIONS, ids=lambda row: row.name)


# Completeness


def test_every_method_is_described(ryn):
    """In the order of the module's table."""
    table = [name for name in vars(ryn) if not name.startswith("__")]
    described = [row.name for row in DESCRIPTIONS]
    missing = [name for name in table if name not in described]
    assert missing == [], f"add a row to {ROWS}"
    assert described == table, f"put the rows of {ROWS} into the order of the table in libryn/module.cc"
    tested = [method.name for method in METHODS]
    assert tested == table, "tests/support/method_table.py needs a row for each method, in their order"


def test_number_of_methods_in_the_readme():
    """The one place that says how many there are."""
    (number,) = re.findall(r"\b(\d+) plain methods", (ROOT / "README.md").read_text())
    assert int(number) == len(DESCRIPTIONS), "change the number in README.md"


@every_row
def test_row_is_complete(row: Description):
    setter = row.returns in ("None", "bool") and not row.name.startswith("Get")
    assert (row.getter != "") == setter, f"{ROWS}: name the getter of {row.name}, or none"
    assert row.getter in ("", "none", *(other.name for other in DESCRIPTIONS))
    assert row.topic in write_reference.TOPICS
    assert row.example and [ast.parse(call) for call in row.example]
    assert any(row.name in call for call in row.example)
    assert row.summary.endswith(".") and (row.returns == "None") == (row.result == "")
    assert (row.refuses == "") == (not row.arguments)
    texts = [argument.meaning for argument in row.arguments] + [failure.when for failure in row.failures]
    assert all(texts) and len({argument.name for argument in row.arguments}) == len(row.arguments)


def declared_operations() -> set[str]:
    headers = "".join((ROOT / "platform" / name).read_text() for name in ("ryn.h", "jor_public.h"))
    return set(re.findall(r"\b((?:Ryn|DVS)\w*_\w+)\(", headers))


def test_every_operation_is_described():
    described = {name for row in DESCRIPTIONS for name in row.all_operations()}
    declared = declared_operations()
    assert described <= declared, "platform/ declares no such operation"
    # Of the switch state, look-ups of an alias and the loading of the configuration are nobody's own.
    missing = {name for name in declared if name.startswith(("Ryn_", "DVSQOB_"))} - described - {"DVSQOB_StateGet"}
    assert missing == set(), f"add them to the operations of a row in {ROWS}"


def test_every_answer_is_tried_with_hostile_values():
    """An operation that fills an area has a row in hostile_answers.py."""
    header = (ROOT / "platform/ryn.h").read_text()
    prototypes = dict(re.findall(r"^uint32_t (Ryn_\w+)\(([^;]*)\);", header, re.MULTILINE))
    filling = {name for name, arguments in prototypes.items() if re.search(r"(?<!const )\b\w+\* ", arguments)}
    setting = {"Ryn_SetLBWeights"}  # its record is read, not filled
    tried = {response.op for response in RESPONSES}
    assert filling - setting - tried == set(), "add a Response for each to tests/support/hostile_answers.py"


# Against behaviour: arguments (their number, kinds and ranges are tried by test_every_method.py from the same rows)


# An entry's switch is made of two arguments; a port range must not run backwards.
OTHER_LIMITS = {"AddMACEntry", "DelMACEntry"}


@every_method
def test_arguments_without_a_limit_take_every_number(ryn, double: Double, method: Method):
    method.script(double)
    if method.name in OTHER_LIMITS:
        return
    for place, argument in enumerate(method.row.arguments):
        if argument.unit == "I" and argument.greatest is None:
            args = (*method.args[:place], 0xFFFFFFFF, *method.args[place + 1 :])
            assert run(getattr(ryn, method.name), *args).stderr != method.invalid, argument.name


# Against behaviour: results


def check_type(text: str, value: Any, where: str) -> None:
    """That a value is of a type as the stub writes it."""
    if text.startswith("Optional["):
        text = text[len("Optional[") : -1]
        if value is None:
            return
    if text.startswith("Literal["):
        assert value in ast.literal_eval(text[len("Literal") :]), where
    elif text.startswith("list["):
        assert type(value) is list, where
        for item in value:
            check_type(text[len("list[") : -1], item, f"{where}[]")
    elif text.startswith("tuple["):
        assert type(value) is tuple and text.endswith(", ...]"), where
        for item in value:
            check_type(text[len("tuple[") : -len(", ...]")], item, f"{where}[]")
    elif text == "_UplinkCounter":
        name, number = value
        assert type(value) is tuple and type(number) is int, where
        assert name in [field.key for field in RECORD["UplinkCounters"].fields], where
    elif text.startswith("_"):
        check_record(text[1:], value, where)
    else:
        assert type(value) is {"int": int, "str": str, "bool": bool, "None": type(None)}[text], where


def check_record(name: str, value: Any, where: str) -> None:
    record = RECORD[name]
    if record.shape == "pairs":
        assert [(pair[0], type(pair[1])) for pair in value] == [(field.key, int) for field in record.fields], where
    elif record.shape == "tuple":
        assert type(value) is tuple and len(value) == len(record.fields), where
        for field, item in zip(record.fields, value):
            check_field(field, item, f"{where}.{field.key}")
    else:
        assert type(value) is dict, where
        keys = [field.key for field in record.fields if field.key in value or not field.optional]
        assert list(value) == keys, f"{where}: the keys, or their order, are not those of {name} in records.py"
        for field in record.fields:
            if field.key in value:
                check_field(field, value[field.key], f"{where}.{field.key}")


def check_field(field: Field, value: Any, where: str) -> None:
    check_type(field.checked_type(), value, where)
    if type(value) is int:
        least, greatest = RANGES[field.width]
        assert least <= value <= greatest, where


RANGES = {
    "flag": (0, 1),
    "u8": (0, 0xFF),
    "u16": (0, 0xFFFF),
    "u32": (0, 0xFFFFFFFF),
    "low 32 of u64": (0, 0xFFFFFFFF),
    "u64": (0, (1 << 64) - 1),
    "s64": (-1 << 63, (1 << 63) - 1),
}


@every_method
def test_result_is_as_described(ryn, double: Double, method: Method):
    method.script(double)
    check_type(method.row.returns, run(getattr(ryn, method.name), *method.args).value, method.name)


# What an answer looks like that holds a number of items and is zero otherwise
LONG_ANSWERS: dict[str, tuple[str, Callable[[int], Bytes]]] = {
    "ListPortMACTable": ("Ryn_Dump_Port_MAC_Table", lambda count: Bytes(327696).u32(0, count)),
    "ListSwitchMACTable": ("Ryn_Dump_Switch_MAC_Table", lambda count: Bytes(1310736).u32(0, count)),
    "GetFlowStats": ("Ryn_Get_Flow_Stats", lambda count: Bytes(1544).u32(0, count)),
    "DumpFlowTable": ("Ryn_Dump_Flow_Table", lambda count: Bytes(10260).u32(8, 0, count, 10260)),
    "GetMirrorConf": ("Ryn_Get_Mirror_Conf", lambda count: Bytes(2048).u16(4, count)),
    "ListDevAffinity": ("Ryn_List_Dev_Affinity", lambda count: Bytes(1156).u32(0, count)),
    "GetFPOStats": ("Ryn_Get_FPO_Stats", lambda count: Bytes(1800).u32(0, count)),
}


@every_method
def test_lists_are_as_long_as_described(ryn, double: Double, method: Method):
    """As many items as the description promises at most are all there, and one more is not."""
    described = re.search(r"list.* at most ([\d,]+)|at most ([\d,]+) (entries|flows)", method.row.result)
    assert bool(described) == (method.name in LONG_ANSWERS), "add an answer to LONG_ANSWERS"
    if not described:
        return
    limit = int((described[1] or described[2]).replace(",", ""))
    operation, answer = LONG_ANSWERS[method.name]
    for count in (limit, limit + 1):
        double.answer(operation, area=answer(count))
        value = run(getattr(ryn, method.name), *method.args).value
        items = list(value.values())[-1] if isinstance(value, dict) else value
        assert (items is None and count > limit) or len(items) == limit


def all_ones(double: Double, method: Method) -> bool:
    """Numbers at their greatest, for results that are one record of numbers. Whether the method has such a result."""
    responses = [response for response in RESPONSES if response.method == method.name]
    for response in responses:
        double.answer(response.op, area=response.fills()["ones"])
    return bool(responses)


@every_method
def test_widths_are_as_described(ryn, double: Double, method: Method):
    """With every bit set, what is described as signed comes out negative and nothing else does."""
    method.script(double)
    if not all_ones(double, method):
        return
    value = run(getattr(ryn, method.name), *method.args).value
    name = method.row.returns
    if value is None or not name.startswith("_") or RECORD[name[1:]].shape != "dict":
        return
    seen = 0
    for field in RECORD[name[1:]].fields:
        if field.checked_type() == "int" and field.key in value:
            greatest = -1 if field.width == "s64" else RANGES[field.width][1]
            assert value[field.key] == greatest, f"{method.name}: {field.key} is not {field.width}"
            seen += 1
    assert seen or "list" in str(RECORD[name[1:]].fields)


# Against behaviour: failures


def idiom_of(outcome: Outcome, method: Method) -> Idiom:
    if outcome.value is NULL or outcome.error is not None:
        return Idiom.NULL if outcome.value is NULL and outcome.error is None else Idiom.CAUSE
    if not outcome.stderr and (outcome.value is None or outcome.value is False):
        return Idiom.SILENT
    if outcome.value is None:
        return Idiom.SAME if method.value is None else Idiom.NONE
    if isinstance(outcome.value, bool):
        return Idiom.TRUE if outcome.value else Idiom.FALSE
    return Idiom.PARTIAL


def fits(prints: str, stderr: str) -> bool:
    return re.fullmatch("[^\n]+".join(map(re.escape, prints.split("{}"))), stderr) is not None


def alias_gone(double: Double) -> None:
    """The property is not there, and the alias neither when it is looked up again."""
    double.answer("DVSQOB_HostPropGet", status=MISSING)
    double.answer("DVSState_SwitchFindByAlias", status=1)
    double.answer("DVSState_SwitchFindByAlias", times=1)


def failures_of(method: Method) -> list[Failure]:
    """Those of its row, and the one whose answers are counted: a row's hold for any number of calls."""
    return [*method.failures, *([Failure("alias gone", alias_gone, None)] if method.row.fallback else [])]


@every_method
def test_failures_are_as_described(ryn, double: Double, method: Method):
    """Each failure that the tests know prints a described text in the described idiom, and no other is described."""
    seen: set[str] = set()
    for failure in failures_of(method):
        double.reset()
        method.script(double)
        failure.script(double)
        args = method.args if failure.args is None else failure.args
        outcome = run(getattr(ryn, method.name), *args)
        idiom = idiom_of(outcome, method)
        found = [
            described.when
            for described in method.row.failures
            if fits(described.prints, outcome.stderr) and described.sees is idiom
        ]
        assert found, f"{ROWS} does not say of {method.name}: {failure.name}, {outcome}, {idiom}"
        seen.update(found)
    described_only = {described.when for described in method.row.failures} - seen
    assert described_only == set(), f"add a Failure of {method.name} to tests/support/method_table.py"


@every_method
def test_operations_are_as_described(double: Double, method: Method):
    reached = [call.op for call in method.calls]
    assert reached == [name for name in method.row.operations], f"{ROWS}: operations of {method.name}"
    fallback = {failure.name for failure in method.failures if failure.name.startswith("Ryn_")} - set(reached)
    assert fallback == set(method.row.fallback)


@every_method
def test_leaks_are_as_described(method: Method):
    assert bool(method.leaks) == bool(method.row.leaks)


# What is made from the description


def made() -> dict[Path, str]:
    return write_reference.written(write_reference.kept_examples(write_reference.METHODS_PAGE.read_text()))


@pytest.mark.parametrize(
    "path", ["libryn/stubs/_libryn.pyi", "libryn/_libryn.3", "docs/methods.md", "docs/ryn.md", "README.md"]
)
def test_what_is_made_is_up_to_date(path: str):
    """All but the examples' output, which was true of the simulated host when it was made."""
    missing = {row.name for row in DESCRIPTIONS} - set(
        write_reference.kept_examples(write_reference.METHODS_PAGE.read_text())
    )
    assert missing == set(), "run ./dev docs"
    assert (ROOT / path).read_text() == made()[ROOT / path], "run ./dev docs"


@every_row
def test_example_shows_the_calls(row: Description):
    shown = write_reference.kept_examples(write_reference.METHODS_PAGE.read_text())[row.name]
    assert [line[4:] for line in shown.splitlines() if line.startswith(">>> ")] == list(row.example)
    assert not re.search(r"^(\w+Error: |Failed |Traceback)", shown, re.MULTILINE)
    if row.returns != "None":
        assert shown.splitlines()[-1] != f">>> {row.example[-1]}"


def test_stub_has_no_names_that_the_module_lacks(ryn):
    tree = ast.parse(write_reference.STUB.read_text())
    defined = {
        node.name if isinstance(node, (ast.ClassDef, ast.FunctionDef)) else typing.cast(ast.Name, node.targets[0]).id
        for node in tree.body
        if isinstance(node, (ast.ClassDef, ast.FunctionDef, ast.Assign))
    }
    public = {name for name in defined if not name.startswith("_")}
    assert public == {name for name in vars(ryn) if not name.startswith("__")}


def mypy(tmp_path: Path, source: str) -> str:
    if shutil.which("mypy") is None:
        pytest.skip("mypy is not there: ./dev lint installs it")
    script = tmp_path / "script.py"
    script.write_text(source)
    environment = {**os.environ, "MYPYPATH": str(ROOT / "libryn/stubs")}
    done = subprocess.run(
        ["mypy", "--strict", "--cache-dir", os.devnull, script.name],
        cwd=tmp_path,
        env=environment,
        text=True,
        capture_output=True,
        timeout=120,
    )
    assert done.stderr == ""
    return done.stdout


def test_type_checkers_see_what_the_module_has(tmp_path: Path):
    """With the setting of MYPYPATH that the README names: types, values that are one of a few, and no more names."""
    assert "MYPYPATH=libryn/stubs" in (ROOT / "README.md").read_text()
    found = mypy(
        tmp_path,
        "import _libryn\n"
        "for port in _libryn.ListPorts(0) or []:\n"
        "    port['clientType'] == 'UPLINK'\n"
        "    port['clientType'] == 'uplink'\n"
        "    port['mac']\n"
        "_libryn.SetLBAlgorithm('dvs-1', 'cpus')\n"
        "_libryn.ListPorts(swID=0)\n"
        "_libryn.ListSwitches().sort()\n"
        "from _libryn import Port\n",
    )
    lines = [int(line.split(":")[1]) for line in found.splitlines() if ": error:" in line]
    assert sorted(lines) == [4, 5, 6, 7, 8, 9], found


def test_manual_page_is_sound(tmp_path: Path):
    if shutil.which("groff") is None:
        pytest.skip("groff is not there")
    done = subprocess.run(
        ["groff", "-man", "-Tutf8", "-ww", "-z", write_reference.MANUAL],
        text=True,
        capture_output=True,
        env=TOOLS,
        timeout=60,
    )
    assert (done.returncode, done.stderr) == (0, "")


def test_an_older_interpreter_reads_the_description():
    """The tests run there too; nothing but the standard library of 3.8 is used."""
    for path in (ROOT / "libryn/reference").glob("*.py"):
        tree = ast.parse(path.read_text(), feature_version=(3, 8))
        imported = {node.module for node in ast.walk(tree) if isinstance(node, ast.ImportFrom)}
        imported |= {name.name for node in ast.walk(tree) if isinstance(node, ast.Import) for name in node.names}
        own = {"reference.model", "reference.records"}
        assert imported - own <= {"__future__", "dataclasses", "enum", "typing"}, sys.version
