"""A host's store: making it, reading it, changing it (schema.sql says what stands in it)."""

from __future__ import annotations

import os
import sqlite3
import tempfile
import time
from contextlib import closing, contextmanager
from typing import Any, Callable, Iterator

from . import paths
from .errors import Failed
from .library import Library

SCHEMA_VERSION = 2
APPLICATION_ID = 0x52594E53


class Store:
    """An open store. Each read sees one state of the host; hold `reading()` around reads that belong together."""

    def __init__(self, path: str):
        self.path = path
        if not os.path.exists(path):
            raise paths.missing(path)
        try:
            self.db = sqlite3.connect(f"file:{_quoted(path)}?mode=rw", uri=True, timeout=5, isolation_level=None)
            self.db.row_factory = sqlite3.Row
            self.db.execute("PRAGMA foreign_keys = ON")
            self.db.execute("PRAGMA synchronous = NORMAL")
            version = self.db.execute("PRAGMA user_version").fetchone()[0]
        except sqlite3.Error as error:
            raise Failed(f"{path}: {error}") from None
        if version != SCHEMA_VERSION:
            self.db.close()
            raise Failed(
                f"{path}: not a store of this version of the simulated host; make it anew with: ryn-sim init --force"
            )

    def close(self) -> None:
        """Closes the file."""
        self.db.close()

    def rows(self, sql: str, *parameters: Any) -> list[Any]:
        """The rows of a query."""
        try:
            return self.db.execute(sql, parameters).fetchall()
        except sqlite3.Error as error:
            raise Failed(f"{self.path}: {error}") from None

    def row(self, sql: str, *parameters: Any) -> Any:
        """The one row of a query."""
        return self.rows(sql, *parameters)[0]

    @contextmanager
    def reading(self) -> Iterator[Store]:
        """A transaction in which all reads see one state of the host."""
        self.db.execute("BEGIN")
        try:
            yield self
        finally:
            self.db.execute("COMMIT")

    @contextmanager
    def writing(self) -> Iterator[sqlite3.Connection]:
        """A transaction of the tool's own, for what bears on no count: faults, the log, a reset."""
        try:
            self.db.execute("BEGIN IMMEDIATE")
            try:
                yield self.db
            except BaseException:
                self.db.execute("ROLLBACK")
                raise
            self.db.execute("COMMIT")
        except sqlite3.Error as error:
            raise Failed(f"{self.path}: {error}") from None

    def now_ns(self) -> int:
        """Host time."""
        return host_ns(self.row("SELECT * FROM clock"))

    def apply(self, sql: str) -> None:
        """Changes what bears on counts, through the stand-ins: they close the segment first, so no counter jumps."""
        if Library(self.path).apply(sql) != 0:
            raise Failed(f"{self.path}: the change was refused; nothing was changed")

    def catch_up(self) -> None:
        """Replays what is due by now, as every method does, so that what is read next is the present."""
        Library(self.path).catch_up()


def host_ns(clock: Any, wall_ns: int | None = None) -> int:
    """Host time at a wall time (else now), from the row of the clock."""
    if clock["mode"] == "freeze" or clock["base_wall_ns"] == 0:
        return int(clock["base_host_ns"])
    passed = max(0, (time.time_ns() if wall_ns is None else wall_ns) - int(clock["base_wall_ns"]))
    return int(clock["base_host_ns"]) + passed * int(clock["speed_permille"]) // 1000


def _quoted(path: str) -> str:
    from urllib.parse import quote

    return quote(path)


def create(path: str, inserts: str, replace: bool = False) -> None:
    """Makes a store from the rows of a description."""
    script = paths.read_data("schema.sql") + inserts + f"UPDATE clock SET base_wall_ns = {time.time_ns()};"

    def fill(db: sqlite3.Connection) -> None:
        db.execute("PRAGMA synchronous = OFF")
        db.executescript(f"BEGIN;{script} COMMIT;")
        db.execute("PRAGMA journal_mode = WAL")

    make_file(path, fill, replace)


def make_file(path: str, fill: Callable[[sqlite3.Connection], None], replace: bool) -> None:
    """Makes a file that is a database. It appears under its name only when it is complete."""
    folder = os.path.dirname(os.path.abspath(path))
    try:
        os.makedirs(folder, exist_ok=True)
        descriptor, temporary = tempfile.mkstemp(prefix=os.path.basename(path) + ".", dir=folder)
        os.close(descriptor)
    except OSError as error:
        raise Failed(f"{path} cannot be made: {error.strerror}") from None
    try:
        with closing(sqlite3.connect(temporary, isolation_level=None)) as db:
            fill(db)
        if replace:
            remove(path)
        os.link(temporary, path)
    except FileExistsError:
        raise Failed(f'the host "{paths.host_of(path)}" exists already ({path}); replace it with --force') from None
    except (sqlite3.Error, OSError) as error:
        raise Failed(f"{path} cannot be made: {error}") from None
    finally:
        for suffix in ("", "-wal", "-shm"):
            _unlink(temporary + suffix)


def refill(store: Store, inserts: str) -> None:
    """Puts a host back to its beginning within its store, so that processes that have it open go on with it."""
    tables = [
        row["name"]
        for row in store.rows("SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE" " 'sqlite_%'")
    ]
    with store.writing() as db:
        db.execute("PRAGMA defer_foreign_keys = ON")
        for table in tables:
            db.execute(f"DELETE FROM {table}")
        for statement in _statements(inserts):
            db.execute(statement)
        db.execute("UPDATE clock SET base_wall_ns = ?", (time.time_ns(),))


def _statements(sql: str) -> Iterator[str]:
    """The single statements of a script; a semicolon within a text does not end one."""
    part = ""
    for line in sql.splitlines(keepends=True):
        part += line
        if line.rstrip().endswith(";") and sqlite3.complete_statement(part):
            yield part
            part = ""


def in_use(path: str) -> bool:
    """Whether another process has the store open: only its last connection may leave the write-ahead mode."""
    try:
        with closing(
            sqlite3.connect(f"file:{_quoted(path)}?mode=rw", uri=True, timeout=0.2, isolation_level=None)
        ) as db:
            if db.execute("PRAGMA journal_mode = DELETE").fetchone()[0] != "delete":
                return True
            db.execute("PRAGMA journal_mode = WAL")
            return False
    except sqlite3.OperationalError as error:
        return "locked" in str(error)
    except sqlite3.Error:
        return False


def remove(path: str) -> None:
    """Removes a store and what SQLite keeps beside it."""
    for suffix in ("", "-wal", "-shm"):
        _unlink(path + suffix)


def _unlink(path: str) -> None:
    try:
        os.unlink(path)
    except FileNotFoundError:
        pass
    except OSError as error:
        raise Failed(f"{path} cannot be removed: {error.strerror}") from None
