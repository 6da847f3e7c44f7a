"""The commands save, restore and clone: all of a host, what was counted so far and its history included."""

from __future__ import annotations

import argparse
import os
import sqlite3
import time
from contextlib import closing

from . import paths
from .errors import BadInput, Failed
from .store import APPLICATION_ID, SCHEMA_VERSION, Store, make_file
from .table import print_json


def save_command(options: argparse.Namespace) -> None:
    """Saves the host to a file."""
    folder = os.path.dirname(options.file)
    if folder and not os.path.isdir(folder):
        raise Failed(f"{folder}: there is no such folder")
    if os.path.exists(options.file) and not options.force:
        raise Failed(f"{options.file} exists already; replace it with --force")
    save(Store(options.path), options.file, replace=options.force)
    _say(options, f"saved the simulated host {_called(options.path)} to {options.file}", file=options.file)


def restore_command(options: argparse.Namespace) -> None:
    """Restores the host from a file."""
    restore(options.file, options.path)
    _say(options, f"restored the simulated host {_called(options.path)} from {options.file}", state=options.path)


def clone_command(options: argparse.Namespace) -> None:
    """Makes another host that is the same."""
    target = paths.state_path(options.name, None)
    if target == options.path:
        raise BadInput(f"clone: {_called(target)} is the host itself")
    clone(Store(options.path), target, replace=options.force)
    text = f"cloned the simulated host {_called(options.path)} to {_called(target)}\nin {target}"
    _say(options, text, host=options.name, state=target)


def _called(path: str) -> str:
    return f'"{paths.host_of(path)}"'


def _say(options: argparse.Namespace, text: str, **facts: str) -> None:
    if options.json:
        print_json(facts)
    else:
        print(text)


def save(store: Store, file: str, replace: bool = False) -> None:
    """Writes the host to one file. Its clock stands in there: it goes on from its time when it is restored."""

    def fill(db: sqlite3.Connection) -> None:
        store.db.backup(db)
        db.execute("PRAGMA journal_mode = DELETE")
        db.execute("UPDATE clock SET base_host_ns = ?, base_wall_ns = 0", (store.now_ns(),))

    store.catch_up()
    make_file(file, fill, replace)


def restore(file: str, path: str) -> None:
    """Puts a saved host in place of the one at `path`, if there is one; programs that have it open go on with it."""
    with closing(_saved(file)) as source:
        if os.path.exists(path):
            store = Store(path)
            try:
                source.backup(store.db)
                store.db.execute("UPDATE clock SET base_wall_ns = ?", (time.time_ns(),))
            except sqlite3.Error as error:
                raise Failed(f"{path}: {error}") from None
            return

        def fill(db: sqlite3.Connection) -> None:
            source.backup(db)
            db.execute("UPDATE clock SET base_wall_ns = ?", (time.time_ns(),))
            db.execute("PRAGMA journal_mode = WAL")

        make_file(path, fill, replace=False)


def _saved(file: str) -> sqlite3.Connection:
    """A saved host, once it is sure that it is one."""
    from urllib.parse import quote

    if not os.path.isfile(file):
        raise BadInput(f"{file}: {'is a directory' if os.path.isdir(file) else 'there is no such file'}")
    try:
        db = sqlite3.connect(f"file:{quote(os.path.abspath(file))}?mode=ro", uri=True)
        found = [
            db.execute(f"PRAGMA {name}").fetchone()[0] for name in ("application_id", "user_version", "quick_check")
        ]
    except sqlite3.Error as error:
        raise BadInput(f"{file}: {error}") from None
    if found[:2] != [APPLICATION_ID, SCHEMA_VERSION]:
        db.close()
        raise BadInput(f"{file}: not a simulated host of this version")
    if found[2] != "ok":
        db.close()
        raise BadInput(f"{file}: damaged: {found[2]}")
    return db


def clone(store: Store, path: str, replace: bool = False) -> None:
    """Makes another host that is the same, to the packet; both go their own way from here."""

    def fill(db: sqlite3.Connection) -> None:
        store.db.backup(db)
        db.execute("PRAGMA journal_mode = WAL")

    store.catch_up()
    make_file(path, fill, replace)
