"""`rynctl raw METHOD ARGUMENT...`: a method of _libryn as it is."""

from __future__ import annotations

import ast
import os
import sys
import tempfile
from typing import TYPE_CHECKING, Any, Callable, Sequence, Tuple

from rynctl.errors import DONE, FAILED, CommandError, UsageError
from rynctl.render import dumps

if TYPE_CHECKING:
    from rynctl.cli import Context


def literal(text: str) -> Any:
    try:
        return ast.literal_eval(text)
    except (ValueError, SyntaxError, MemoryError, RecursionError):
        return text


def call(function: Callable[..., Any], arguments: Sequence[Any]) -> Tuple[Any, bytes]:
    """The result, and what the method wrote to standard error, which is passed on."""
    sys.stderr.flush()
    with tempfile.TemporaryFile() as file:
        saved = os.dup(2)
        try:
            os.dup2(file.fileno(), 2)
            try:
                result = function(*arguments)
            finally:
                os.dup2(saved, 2)
        finally:
            os.close(saved)
            file.seek(0)
            message = file.read()
            os.write(2, message)
    return result, message


def run(context: Context) -> int:
    from rynctl.cli import seconds

    limit = seconds(context.options.timeout, "--timeout")
    if limit is None:
        return run_method(context)
    return within(limit, context.options.method, lambda: main_of_child(context))


def within(limit: float, method: str, work: Callable[[], int]) -> int:
    """Does work in a process of its own, which is ended when it lasts too long: methods hold the interpreter's lock."""
    import select
    import signal

    ended, alive = os.pipe()  # ends when the child does
    child = os.fork()
    if not child:
        os.close(ended)
        os._exit(work())
    os.close(alive)
    in_time = bool(select.select([ended], [], [], limit)[0])
    if not in_time:
        os.kill(child, signal.SIGKILL)
    status = os.waitpid(child, 0)[1]
    if not in_time:
        raise CommandError(f"{method} has not returned for {limit} s; what it was to change may still happen")
    if os.WIFSIGNALED(status):
        raise CommandError(f"{method} was ended by signal {os.WTERMSIG(status)}")
    return os.WEXITSTATUS(status)


def main_of_child(context: Context) -> int:
    from rynctl.cli import report, wants_json

    try:
        code = run_method(context)
        sys.stdout.flush()
        return code
    except BrokenPipeError:
        return DONE
    except Exception as error:
        return report(error, wants_json(context.arguments))


def run_method(context: Context) -> int:
    import ryn
    from rynctl.select import nearest

    options, out = context.options, context.out
    module = ryn.raw
    methods = [name for name in dir(module) if not name.startswith("_")]
    if options.method not in methods:
        raise UsageError(f"_libryn has no method {options.method!r}{nearest(options.method, methods)}")
    out.backend = ryn.Host().backend
    if out.format not in ("json", "jsonl"):
        out.name_simulated()
    arguments = [literal(text) for text in options.argument]
    try:
        result, message = call(getattr(module, options.method), arguments)
    except (TypeError, ValueError, OverflowError) as error:
        raise UsageError(f"{options.method}: {error}") from None
    except SystemError as error:
        cause = error.__cause__
        if isinstance(cause, (TypeError, ValueError, OverflowError)):
            raise UsageError(f"{options.method}: {cause}") from None
        raise CommandError(f"{options.method}: {cause or error}") from None
    except Exception as error:
        raise CommandError(f"{options.method}: {type(error).__name__}: {error}") from None
    if out.format in ("json", "jsonl"):
        print(dumps(out.envelope(result) if out.format == "json" else result))
    else:
        show(result, out.format)
    return FAILED if result is None and message else DONE


def show(result: Any, output: str) -> None:
    from rynctl import render
    from rynctl.columns import Column

    rows = result if isinstance(result, list) else [result]
    if rows and all(isinstance(each, dict) for each in rows) and len({tuple(each) for each in rows}) == 1:
        columns = [Column(key, "int" if isinstance(value, int) else "any", "") for key, value in rows[0].items()]
        if output == "csv":
            render.write_csv(columns, rows, sys.stdout)
        else:
            lines = render.sheet(columns, rows) if isinstance(result, dict) else render.table(columns, rows)
            print("\n".join(lines))
    elif output == "csv":
        render.write_csv([Column("value", "any", "")], [{"value": each} for each in rows], sys.stdout)
    elif isinstance(result, str):
        print("\n".join(map(render.escaped, result.splitlines())))
    elif result is not None:
        print(render.escaped(repr(result)))
