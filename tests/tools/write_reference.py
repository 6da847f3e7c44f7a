"""Makes what is made from the description of the methods (libryn/reference): the type stub, the manual page, the lists
of methods in the README and in docs/ryn.md, and docs/methods.md, whose examples are run on a frozen simulated host.
./dev docs runs it.
"""

from __future__ import annotations

import ast
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "libryn"))

from reference.methods import METHODS, TOPICS  # noqa: E402
from reference.model import Argument, Field, Idiom, Method, Record  # noqa: E402
from reference.records import RECORDS  # noqa: E402

STUB = ROOT / "libryn/stubs/_libryn.pyi"
MANUAL = ROOT / "libryn/_libryn.3"
METHODS_PAGE = ROOT / "docs/methods.md"
README = ROOT / "README.md"
README_BEGIN = "<!-- The methods by task: ./dev docs writes them. -->\n"
RYN_PAGE = ROOT / "docs/ryn.md"
RYN_BEGIN = "<!-- The calls that do what a method does: ./dev docs writes them. -->\n"
END = "<!-- The methods end. -->\n"
SOURCE = "libryn/reference"

IDIOMS = {idiom: idiom.name.lower() for idiom in Idiom}


def of_topic(topic: str) -> list[Method]:
    return [method for method in METHODS if method.topic == topic]


def signature(method: Method) -> str:
    return f"{method.name}({', '.join(argument.name for argument in method.arguments)})"


def sentence(text: str) -> str:
    """With a capital at its beginning, unless that is a name in code, and a full stop."""
    return text[:1].upper() + text[1:] + ("" if text.endswith(".") else ".")


def meaning(argument: Argument) -> str:
    if argument.unit == "I" and argument.greatest is not None:
        return f"{argument.meaning}, 0 to {argument.greatest}"
    return argument.meaning


def listed(items: tuple[str, ...]) -> str:
    """Whole sentences one after another; phrases with semicolons between."""
    if all(item.endswith(".") for item in items):
        return " ".join(items)
    return "; ".join(item.rstrip(".") for item in items) + "."


def visible(text: str) -> str:
    return "`" + text.replace("\n", "\\n").replace("{}", "...") + "`" if text else "nothing"


def records_of(method: Method) -> list[Record]:
    """The records that a method returns or takes, the outer ones first."""
    named = {record.name: record for record in RECORDS}
    found: list[Record] = []
    types = [method.returns, *(argument.type for argument in method.arguments)]
    while types:
        for name in re.findall(r"\b_(\w+)", types.pop(0)):
            record = named["UplinkCounters" if name == "UplinkCounter" else name]
            if record not in found:
                found.append(record)
                types += [field.type for field in record.fields]
    return found


# The stub

STUB_HEAD = '''\
"""Types of the module `_libryn`, for editors and type checkers; docs/methods.md says more.

Made from {source} by ./dev docs. The names with an underscore exist for type checkers only.

Switches are numbered 0 to 15 (swID), ports of a switch 0 to 127 (rynPortID). `None` in place of a result means failure:
the reason is on standard error. Arguments that are refused, and a few failures, raise a SystemError.
"""

from typing import Literal, Optional, TypedDict

'''


def stub_record(record: Record) -> str:
    if record.shape == "pairs":
        names = ", ".join(f'"{field.key}"' for field in record.fields)
        if record.name == "UplinkCounters":
            literal = f"_UplinkCounter = tuple[\n    Literal[{names}],\n    int,\n]\n"
            return re.sub(r"Literal\[(.*)\]", _wrapped_literal, literal)
        pairs = "".join(f'    tuple[Literal["{field.key}"], int],\n' for field in record.fields)
        return f"_{record.name} = tuple[\n{pairs}]\n"
    if record.shape == "tuple":
        items = "".join(f"    {field.checked_type()},  # {field.key}: {field.meaning}\n" for field in record.fields)
        return f"_{record.name} = tuple[\n{items}]\n"

    def lines(fields: list) -> str:
        return "".join(stub_key(field) for field in fields)

    always = [field for field in record.fields if not field.optional]
    optional = [field for field in record.fields if field.optional]
    if not optional:
        return f"class _{record.name}(TypedDict):\n{lines(always)}"
    return (
        f"class _{record.name}Always(TypedDict):\n{lines(always)}\n"
        f"class _{record.name}(_{record.name}Always, total=False):\n{lines(optional)}"
    )


def stub_key(field: Field) -> str:
    line = f"    {field.key}: {field.checked_type()}  # {field.meaning}\n"
    if len(line) <= 121:
        return line
    choices = re.findall(r'"[^"]*"', field.type)
    return (
        f"    # {field.meaning}\n    {field.key}: Literal[\n" + "".join(f"        {c},\n" for c in choices) + "    ]\n"
    )


def _wrapped_literal(match: re.Match) -> str:
    body = textwrap.fill(match.group(1), 110, initial_indent=8 * " ", subsequent_indent=8 * " ")
    return f"Literal[\n{body},\n    ]"


def stub_method(method: Method) -> str:
    if method.arguments:
        names = [f"{argument.name}: {argument.checked_type()}" for argument in method.arguments]
        line = f"def {method.name}({', '.join(names)}, /) -> {method.checked_returns()}: ..."
        if len(line) > 120:
            line = (
                f"def {method.name}(\n    " + ",\n    ".join([*names, "/"]) + f",\n) -> {method.checked_returns()}: ..."
            )
    else:
        line = f"def {method.name}(*ignored: object) -> {method.checked_returns()}: ..."
    return line + "\n"


def in_order_of_use(records: tuple[Record, ...]) -> list[Record]:
    """Aliases of tuples after what they consist of: unlike classes they are evaluated in their order."""
    return sorted(records, key=lambda record: record.shape == "tuple" and "_LB" in str(record.fields))


def stub() -> str:
    parts = [STUB_HEAD.format(source=SOURCE)]
    for record in in_order_of_use(RECORDS):
        parts.append(stub_record(record) + "\n")
    for topic in TOPICS:
        parts.append(f"# {topic}\n")
        parts += [stub_method(method) for method in of_topic(topic)]
        parts.append("\n")
    return "".join(parts).rstrip("\n") + "\n"


# docs/methods.md


def examples() -> dict[str, str]:
    """What the example of each method shows, on a frozen host of its own made from the default profile."""
    shown: dict[str, str] = {}
    with tempfile.TemporaryDirectory() as folder:
        environment = {name: value for name, value in os.environ.items() if not name.startswith("RYN_SIM_")}
        environment.update(RYN_SIM_LIBS=str(_build() / "simhost"), PYTHONHASHSEED="0")
        tool = ["/usr/bin/python3", str(ROOT / "simhost/tool/ryn-sim"), "--state", os.path.join(folder, "host.db")]

        def run(*command: str, text: str = "") -> str:
            done = subprocess.run(
                [*tool, *command], input=text, env=environment, text=True, capture_output=True, timeout=120
            )
            if done.returncode:
                raise RuntimeError(f"{command}: {done.stderr}")
            return done.stdout + done.stderr

        run("init", "--force")
        run("clock", "freeze")
        for method in METHODS:
            run("reset")
            run("clock", "freeze")
            run("clock", "step", "60s")
            shown[method.name] = run("run", "--", "/usr/bin/python3", "-c", _session(method.example))
    return shown


def _build() -> pathlib.Path:
    return pathlib.Path(os.environ.get("RYN_BUILD") or ROOT / "build")


def _session(calls: tuple[str, ...]) -> str:
    """A script that runs the calls as the interactive interpreter does; a long result is cut."""
    return textwrap.dedent(
        f"""
        import contextlib, io, pprint
        from _libryn import *
        for call in {calls!r}:
            print(">>>", call, flush=True)
            printed = io.StringIO()
            with contextlib.redirect_stdout(printed):
                result = eval(call)
                if result is not None:
                    pprint.pprint(result, width=108, sort_dicts=False, compact=True)
            lines = printed.getvalue().splitlines()
            if lines:
                print(*[line if len(line) <= 112 else line[:108] + " ..." for line in lines[:12]], sep="\\n")
            if len(lines) > 12:
                print("...")
        """
    )


def kept_examples(page: str) -> dict[str, str]:
    """The examples that stand in a page."""
    found = re.findall(r"^### (\w+)\n.*?^```pycon\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
    return dict(found)


PAGE_HEAD = """\
# The methods of `_libryn`

Made from [{source}](../{source}) by `./dev docs`; the examples were run on a frozen
[simulated host](ryn-sim.md), as if after `from _libryn import *`.

- Arguments are positional. An int is taken modulo 2\\*\\*32, so -1 is 4294967295, but for the addresses of
  `AddMACEntry` and `DelMACEntry`, which have 64 bits. A method that is shown without arguments does not look at any.
- A *width* is that of the platform's number: `u` is unsigned; `s` is taken as signed, so a number of 2\\*\\*63 or more
  comes out negative; `low 32 of u64` is reported modulo 2\\*\\*32.
- "Deliberate" is what looks wrong and stays, since scripts rely on it.
- "Left open" is what the platform does not define; the method passes it on.

## Failures

A method that fails does one of eight things, named with each failure below:

| Name | What a script sees |
|---|---|
{idioms}

Of every method:

- Arguments of a wrong type, or too few or too many: the method's line for refused arguments, and *cause*: the
  interpreter's `TypeError` (`OverflowError`, `ValueError`) is the cause of the `SystemError`.
- An argument out of its range: the same line, and the result `None`, or `False` where the method returns a `bool` and
  takes an alias.
- The method has no memory for the platform's answer: `Failed to allocate memory.` and `None`.
- The interpreter has no memory for the result: *cause*. Where the result is built piece by piece, the cause is a
  `SystemError` with `Failed to allocate buffer.`, `Failed to set list item.` or `Failed to set dict item.`; where its
  outermost container cannot be made, a `MemoryError`, after the line named under "out of memory". A result that is a
  single value raises the `MemoryError` itself.
- `Failed to find dvs ID ...`, `Format of property ...` and the like name the alias or the property in place of `...`.

"""


def page(shown: dict[str, str]) -> str:
    idioms = "\n".join(f"| *{name}* | {idiom.value} |" for idiom, name in IDIOMS.items())
    parts = [PAGE_HEAD.format(source=SOURCE, idioms=idioms), "## By task\n\n", by_task("")]
    for topic in TOPICS:
        parts.append(f"\n## {topic}\n")
        parts += [entry(method, shown[method.name]) for method in of_topic(topic)]
    return "".join(parts)


def by_task(target: str) -> str:
    """A table of the methods by task, with links to their entries in a page."""
    rows = [
        f"| {topic} | {', '.join(f'[{method.name}]({target}#{method.name.lower()})' for method in of_topic(topic))} |"
        for topic in TOPICS
    ]
    return "| To | use |\n|---|---|\n" + "\n".join(rows) + "\n"


def entry(method: Method, shown: str) -> str:
    parts = [f"\n### {method.name}\n\n`{signature(method)}`\n\n{method.summary}"]
    if method.getter == "none":
        parts.append(" No method reads it back.")
    elif method.getter:
        parts.append(f" [{method.getter}](#{method.getter.lower()}) reads it back.")
    parts.append("\n\n")
    if method.arguments:
        parts += [f"- `{argument.name}`: {meaning(argument)}\n" for argument in method.arguments]
        parts.append("\n")
    if method.returns != "None":
        parts.append(f"Returns {method.result}.\n\n")
    for record in records_of(method):
        parts.append(table_of(record))
    parts.append(failures_of(method))
    for title, items in (("Deliberate", method.oddities), ("Left open", method.open)):
        if items:
            parts.append(f"{title}: {listed(items)}\n\n")
    operations = ", ".join(f"`{operation}`" for operation in method.operations)
    if method.fallback:
        operations += "; without a property " + ", ".join(f"`{operation}`" for operation in method.fallback)
    parts.append(f"Platform: {operations}.\n")
    if method.ryn:
        parts.append(f"In `ryn`: `{method.ryn}`.\n")
    parts.append(f"\n```pycon\n{shown}```\n")
    return "".join(parts)


def table_of(record: Record) -> str:
    titles = {"dict": "Key", "tuple": "Item", "pairs": "Name"}
    rows = []
    for position, field in enumerate(record.fields):
        key = f"{position}: {field.key}" if record.shape == "tuple" else f"`{field.key}`"
        choices = re.findall(r'"([^"]*)"', field.type) if field.type.startswith("Literal") else []
        words = field.meaning + (": " + ", ".join(f"`{choice}`" for choice in choices) if choices else "")
        rows.append(f"| {key} | {field.width} | {words} |")
    head = f"{sentence(record.about)[:-1]}:\n\n| {titles[record.shape]} | Width | Meaning |\n|---|---|---|\n"
    return head + "\n".join(rows) + "\n\n"


def failures_of(method: Method) -> str:
    rows = []
    if method.arguments:
        rows.append(f"| the arguments are refused | {visible(method.refuses)} | *{_refusal(method)}*, *cause* |")
    for failure in method.failures:
        rows.append(f"| {failure.when} | {visible(failure.prints)} | *{IDIOMS[failure.sees]}* |")
    if method.memory and method.memory.prints:
        rows.append(f"| out of memory | {visible(method.memory.prints)} | *cause* |")
    return "| When | Prints | Idiom |\n|---|---|---|\n" + "\n".join(rows) + "\n\n"


def _refusal(method: Method) -> str:
    if method.refusal is False:
        return IDIOMS[Idiom.FALSE]
    return IDIOMS[Idiom.SAME if method.returns == "None" else Idiom.NONE]


# The manual page


def roff(text: str) -> str:
    """Escapes; code in back quotes becomes bold."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    text = re.sub(r"`([^`]*)`", r"\\fB\1\\fR", text)
    return re.sub(r"(?m)^([.'])", r"\\&\1", text)


def manual() -> str:
    lines = [
        f'.\\" Made from {SOURCE} by ./dev docs.',
        '.TH _LIBRYN 3 "" libryn "Python modules"',
        ".SH NAME",
        "_libryn \\- inspect and tune a host's fast\\-path virtual switch",
        ".SH SYNOPSIS",
        ".B import _libryn",
        ".SH DESCRIPTION",
        roff(
            "The module has plain functions with positional arguments. Switches have numbers from 0 to 15 (swID), the"
            " ports of a switch numbers from 0 to 127 (rynPortID). An int is taken modulo 2**32, so -1 is 4294967295."
            " Functions shown without arguments do not look at any. The types of all results are in the stub that comes"
            " with the module."
        ),
        ".SH FAILURES",
        "A function that fails does one of eight things, named in parentheses with each failure below:",
    ]
    for idiom, name in IDIOMS.items():
        lines += [".TP", f".I {name}", roff(sentence(idiom.value))]
    lines += [
        ".PP",
        roff(
            "Arguments of a wrong type or number print the function's line for refused arguments and raise a"
            " SystemError whose cause is the interpreter's own error (cause)."
        ),
    ]
    for topic in TOPICS:
        lines += [f".SH {roff(topic).upper()}"]
        for method in of_topic(topic):
            lines += manual_entry(method)
    lines += [
        ".SH ENVIRONMENT",
        ".TP",
        ".B LD_LIBRARY_PATH",
        roff("where libryn.so and libjorPublic.so, the two platform libraries, are looked for first"),
        ".SH SEE ALSO",
        ".BR ryn\\-sim (1)",
        "",
    ]
    return "\n".join(lines)


def manual_entry(method: Method) -> list[str]:
    names = ", ".join(f"\\fI{argument.name}\\fB" for argument in method.arguments)
    texts = [method.summary]
    texts += [f"`{argument.name}`: {meaning(argument)}." for argument in method.arguments]
    if method.returns != "None":
        texts.append(f"Returns {method.result}.")
    for record in records_of(method):
        keys = ", ".join(f"`{field.key}`" for field in record.fields)
        texts.append(f"{sentence(record.about)[:-1]}: {keys}.")
    if method.refuses:
        texts.append(f"Refused arguments: {visible(method.refuses)} ({_refusal(method)}).")
    for failure in method.failures:
        texts.append(f"{sentence(failure.when)[:-1]}: {visible(failure.prints)} ({IDIOMS[failure.sees]}).")
    if method.oddities:
        texts.append(f"Deliberate: {listed(method.oddities)}")
    if method.open:
        texts.append(f"Left open by the platform: {listed(method.open)}")
    return [".TP", f"\\fB{method.name}({names})\\fR", *"\n.br\n".join(map(roff, texts)).split("\n")]


# The README


def with_table(page: pathlib.Path, mark: str, table: str) -> str:
    """The page with a table between the mark and the end of it."""
    head, begin, rest = page.read_text(encoding="utf-8").partition(mark)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        raise ValueError(f"{page.name} lacks the mark {(END if begin else mark).strip()!r}")
    return f"{head}{mark}\n{table}\n{END}{tail}"


def calls_of_ryn() -> str:
    rows = [
        f"| [{method.name}](methods.md#{method.name.lower()}) | `{method.ryn}` |"
        for topic in TOPICS
        for method in of_topic(topic)
    ]
    return "| Method | In `ryn` |\n|---|---|\n" + "\n".join(rows) + "\n"


def written(shown: dict[str, str]) -> dict[pathlib.Path, str]:
    """What each file must hold, given the examples' output."""
    return {
        STUB: stub(),
        MANUAL: manual(),
        METHODS_PAGE: page(shown),
        README: with_table(README, README_BEGIN, by_task("docs/methods.md")),
        RYN_PAGE: with_table(RYN_PAGE, RYN_BEGIN, calls_of_ryn()),
    }


def check_description() -> None:
    for method in METHODS:
        for call in method.example:
            ast.parse(call)
        if not method.example:
            raise ValueError(f"{method.name} has no example: add one to its row in {SOURCE}/methods.py")


if __name__ == "__main__":
    check_description()
    for path, text in written(examples()).items():
        path.write_text(text, encoding="utf-8")
