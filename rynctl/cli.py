"""The command line: which command is meant, its options, and what becomes of errors."""

from __future__ import annotations

import argparse
import importlib
import os
import sys
from typing import Any, List, NamedTuple, NoReturn, Optional, Sequence, Tuple

from rynctl import commands
from rynctl.commands import COMMANDS, OBJECTS, SHORT, SINGLES, Command
from rynctl.errors import DONE, FAILED, INTERRUPTED, CommandError, UsageError, exit_code, is_expected, is_ryn

FORMATS = ("table", "json", "jsonl", "csv")
LONGEST = 1_000_000  # seconds; so long no option waits


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        raise UsageError(f"{message}; {self.prog} --help says more")


def parser_of(command: Command) -> Parser:
    """The parser of one command; it takes options anywhere."""
    parser = Parser(f"rynctl {command.name}", description=sentence(command.text), allow_abbrev=False)
    for argument in command.arguments:
        shown = argument.name.strip("[].") if argument.nargs else argument.name
        count: Any = argument.nargs
        parser.add_argument(argument.key, metavar=shown, nargs=count, help=argument.text)
    for option in commands.options(command):
        flags = [SHORT[option.flag], option.flag] if option.flag in SHORT else [option.flag]
        if not option.metavar:
            parser.add_argument(*flags, action="store_true", help=option.text)
        elif option.repeat:
            parser.add_argument(*flags, metavar=option.metavar, action="append", default=[], help=option.text)
        else:
            parser.add_argument(*flags, metavar=option.metavar, choices=option.choices or None, help=option.text)
    return parser


def sentence(text: str) -> str:
    return f"{text[0].upper()}{text[1:]}."


def words_of(arguments: Sequence[str]) -> Tuple[List[str], List[str]]:
    """The words that name the command, and all that is left."""
    takes_value = commands.options_with_values()
    words: List[str] = []
    rest: List[str] = []
    wanted = 1
    i = 0
    while i < len(arguments):
        each = arguments[i]
        i += 1
        if each == "--" or len(words) == wanted:
            return words, rest + list(arguments[i - 1 :])
        if each.startswith("-") and each != "-":
            rest.append(each)
            if takes_value.get(each) and i < len(arguments):
                rest.append(arguments[i])
                i += 1
        else:
            words.append(each)
            wanted = 2 if words[0] in OBJECTS else 1
    return words, rest


def command_of(words: Sequence[str]) -> Command:
    from rynctl.select import nearest

    name = words[0]
    if name not in OBJECTS and name not in SINGLES:
        known = OBJECTS + SINGLES
        raise UsageError(f"there is no {name!r}{nearest(name, known) or '; there are ' + ', '.join(known)}")
    if name in SINGLES:
        return COMMANDS[name,]
    verbs = commands.verbs(name)
    if len(words) < 2:
        raise UsageError(f"{name} needs a verb: {', '.join(verbs)}")
    if words[1] not in verbs:
        close = nearest(words[1], verbs)
        raise UsageError(f"{name} has no {words[1]!r}{close or '; it has ' + ', '.join(verbs)}")
    return COMMANDS[name, words[1]]


class Context(NamedTuple):
    """What a command works with: its row of the table, its options and arguments, the output."""

    command: Command
    options: argparse.Namespace
    arguments: List[str]  # as typed, without --host
    out: Any  # an Output

    def host(self) -> Any:
        """The host, loaded at the first call of a command."""
        import ryn

        # Only what has a timeout can be interrupted while the platform works, so there always is one.
        host = ryn.Host(timeout=seconds(self.options.timeout, "--timeout") or LONGEST)
        self.out.backend = host.backend
        return host


def seconds(text: Optional[str], name: str) -> Optional[float]:
    if text is None:
        return None
    try:
        value = float(text)
    except ValueError:
        value = -1
    if not 0 < value <= LONGEST:
        raise UsageError(f"{name} {text!r} is no number of seconds above 0 and up to {LONGEST}")
    return value


def number(text: Optional[str], name: str, lowest: int = 0, highest: int = 0xFFFFFFFF) -> Optional[int]:
    if text is None:
        return None
    try:
        value = int(text, 0)
    except ValueError:
        raise UsageError(f"{name} {text!r} is no number") from None
    if not lowest <= value <= highest:
        raise UsageError(f"{name} {text} is not within {lowest} to {highest}")
    return value


def wants_json(arguments: Sequence[str]) -> bool:
    """Whether errors are objects; asked before the options are read, which may fail themselves."""
    head = list(arguments[: arguments.index("--")] if "--" in arguments else arguments)
    pairs = zip(head, head[1:] + [""])
    return any(
        each in ("-j", "--json", "-ojson", "-ojsonl", "--output=json", "--output=jsonl")
        or (each in ("-o", "--output") and value in ("json", "jsonl"))
        for each, value in pairs
    )


def open_streams() -> None:
    """Standard streams that the caller closed: no file that is opened later may take their numbers."""
    without_output = sys.stdout is None
    for stream in (0, 1, 2):
        try:
            os.fstat(stream)
        except OSError:
            os.open(os.devnull, os.O_RDWR)  # the lowest number that is free
    sys.stdin = sys.stdin or open(0)
    sys.stdout = sys.stdout or open(1, "w")
    sys.stderr = sys.stderr or open(2, "w")
    if without_output:
        raise CommandError("standard output is closed; nothing was done")


def main(arguments: Optional[Sequence[str]] = None) -> int:
    arguments = sys.argv[1:] if arguments is None else list(arguments)
    try:
        open_streams()
        code = run(arguments)
        sys.stdout.flush()
        return code
    except KeyboardInterrupt:
        return quiet(INTERRUPTED)
    except BrokenPipeError:
        return quiet(DONE)
    except SystemExit as error:  # argparse's --help
        return error.code if isinstance(error.code, int) else FAILED
    except Exception as error:
        return report(error, wants_json(arguments))


def quiet(code: int) -> int:
    """Standard output is closed, or of no more interest: nothing is to be said of it at the end."""
    try:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
    except OSError:
        pass
    return code


def report(error: Exception, as_json: bool) -> int:
    """One line on standard error, or an object, and the exit code."""
    if not is_expected(error):
        raise error
    from rynctl.render import dumps, escaped

    message = str(error) or type(error).__name__
    if isinstance(error, OSError) and not is_ryn(error, "Error"):
        message = f"{error.strerror or message}" + (f": {error.filename}" if error.filename else "")
        quiet(FAILED)  # what could not be written is not tried again at the end
    try:
        if as_json:
            arguments = getattr(error, "arguments", None)
            fields = {
                "kind": type(error).__name__,
                "message": message,
                "operation": getattr(error, "operation", None),
                "arguments": None if arguments is None else list(arguments),
                "status": getattr(error, "status", None),
            }
            print(dumps({"error": fields}), file=sys.stderr)
        else:
            print(f"rynctl: {escaped(message)}", file=sys.stderr)
        sys.stderr.flush()
    except OSError:
        pass  # nobody listens
    return exit_code(error)


def run(arguments: List[str]) -> int:
    words, rest = words_of(arguments)
    if not words:
        return without_command(rest)
    if words == ["help"]:
        return run([*rest, "--help"])
    if len(words) == 1 and words[0] in OBJECTS and ("-h" in rest or "--help" in rest):
        from rynctl.help import object_help

        print(object_help(words[0]), end="")
        return DONE
    command = command_of(words)
    parser = parser_of(command)
    options = parse(parser, command, rest)
    if options.json:
        if options.output not in (None, "json"):
            raise UsageError(f"--json and --output {options.output} exclude each other")
        options.output = "json"
    if options.host is not None:
        from rynctl.remote import run_there

        return run_there(options.host, arguments)
    from rynctl.output import Output

    out = Output(command, options)
    module, _, function = command.run.partition(":")
    context = Context(command, options, arguments, out)
    work = getattr(importlib.import_module(module), function)
    if command.kind in ("list", "show"):
        if getattr(options, "watch", False):
            from rynctl.watch import watch

            return watch(context, work)
        if getattr(options, "interval", None) or getattr(options, "count", None):
            raise UsageError("--interval and --count belong to --watch")
        out.rows(work(context), context)
        return DONE
    code: int = work(context)
    return code


def parse(parser: Parser, command: Command, rest: List[str]) -> argparse.Namespace:
    """The options and arguments. UsageError names the nearest option to one that is unknown."""
    from rynctl.select import nearest

    known = [option.flag for option in commands.options(command)] + ["--help"]
    head = rest[: rest.index("--")] if "--" in rest else rest
    for each in head:
        flag = each.partition("=")[0]
        if flag.startswith("--") and flag not in known:
            raise UsageError(f"{command.name} has no option {flag}{nearest(flag, known)}")
    if any(argument.name == "[ARGUMENT]..." for argument in command.arguments):
        return parser.parse_args(rest)  # what follows the method is its own
    return parser.parse_intermixed_args(rest)


def without_command(rest: Sequence[str]) -> int:
    from rynctl.help import overview

    if "--version" in rest:
        from rynctl.version import VERSION

        print(f"rynctl {VERSION}")
        return DONE
    if rest and "-h" not in rest and "--help" not in rest:
        raise UsageError(f"{rest[0]} stands without a command; rynctl --help lists them")
    print(overview(), end="")
    return DONE
