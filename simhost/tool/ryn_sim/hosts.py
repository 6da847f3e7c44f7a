"""Commands on a host as a whole: init, info, export, reset, rm."""

from __future__ import annotations

import argparse
import json
import os
import sys
from typing import TYPE_CHECKING, Any

from . import names, paths, units
from .errors import BadInput, Failed, nearest
from .store import Store
from .table import Progress, counted, print_json, print_table

if TYPE_CHECKING:
    from .compile import Rows


def source(what: str | None) -> tuple[str, str, str]:
    """A description's text, its name in messages, and the profile's name that goes into the store."""
    if what == "-":
        return sys.stdin.read(), "standard input", "standard input"
    known = paths.profiles()
    if what is None or what in known:
        name = what or "default"
        return paths.read_data(f"profiles/{name}.yaml"), f"{name}.yaml", name
    if "/" not in what and not what.endswith((".yaml", ".yml")) and not os.path.exists(what):
        raise BadInput(f'there is no profile "{what}", nor a file of that name{nearest(what, known)}')
    try:
        with open(what, encoding="utf-8") as file:
            return file.read(), what, os.path.basename(what)
    except OSError as error:
        raise BadInput(f"{what}: {error.strerror}") from None
    except UnicodeDecodeError:
        raise BadInput(f"{what}: not a text in UTF-8") from None


def compiled(text: str, name: str, profile: str, seed: int | None = None) -> Rows:
    """The rows of a host that is described by this text."""
    from .compile import compiled as compile_document
    from .document import Document

    document = Document(text, name)
    if seed is not None and isinstance(document.value, dict):
        document.value["seed"] = seed
    with Progress("compiling") as progress:
        return compile_document(document, profile, progress)


def _inserts(rows: Rows, text: str, profile: str, seed: int | None) -> str:
    """What fills the store. The description goes along for a reset, unless it is a shipped profile as it is."""
    from .compile import literal, sql

    shipped = profile in paths.profiles() and seed is None
    kept = "" if shipped else text
    return sql(rows) + f"\nINSERT INTO origin (id, yaml, seed) VALUES (1, {literal(kept)}, {literal(seed)});\n"


def make(path: str, what: str | None, seed: int | None = None, replace: bool = False) -> Rows:
    """Makes a host from a profile's name, a file, or "-" for standard input."""
    text, name, profile = source(what)
    return make_from_text(path, text, name, profile, seed, replace)


def make_from_text(
    path: str, text: str, name: str, profile: str, seed: int | None = None, replace: bool = False
) -> Rows:
    """Makes a host from a description in YAML. name: what messages call it; profile: what the host says it is from."""
    from .store import create

    rows = compiled(text, name, profile, seed)
    create(path, _inserts(rows, text, profile, seed), replace=replace)
    return rows


def list_profiles() -> list[dict[str, str]]:
    """The shipped profiles, each with a line about it."""
    found = []
    for name in paths.profiles():
        lines = paths.read_data(f"profiles/{name}.yaml").splitlines()
        about = next((line[6:].strip() for line in lines if line.startswith("about:")), "")
        found.append({"profile": name, "about": about})
    return found


def init_command(options: argparse.Namespace) -> None:
    """Makes a host, or only checks, compiles or lists what one could be made from."""
    if options.list:
        if options.what is not None or options.seed is not None:
            raise BadInput("init --list: nothing is expected after it")
        print_json(list_profiles()) if options.json else print_table(list_profiles(), ["profile", "about"])
        return
    text, name, profile = source(options.what)
    if options.sql:
        from .compile import sql

        if options.json:
            raise BadInput("init: --json means nothing with --sql")
        sys.stdout.write(sql(compiled(text, name, profile, options.seed)))
        return
    called = paths.host_of(options.path)
    if not options.check and not options.force and os.path.exists(options.path):
        raise Failed(f'the host "{called}" exists already ({options.path}); replace it with --force')
    if options.check:
        rows = compiled(text, name, profile, options.seed)
    else:
        rows = make_from_text(options.path, text, name, profile, options.seed, options.force)
    counts = {"switches": len(rows["sw"]), "ports": len(rows["port"]), "conversations": len(rows["conversation"])}
    what = ", ".join(counted(number, noun) for noun, number in counts.items())
    if options.json:
        facts = {"host": called, "profile": profile, "state": options.path, "made": not options.check}
        print_json(facts | counts)
    elif options.check:
        print(f"{name} is right: {what}")
    else:
        print(f'made the simulated host "{called}" from {name}:\n  {what}\n  {options.path}')


_MODELLED = """\
Every operation of both platform libraries answers from one model of the host.
Counters are exact sums of the described traffic over the host's clock. Settings
have effects and last.
Modelled: cores and what packets cost them, links and rings, fast and slow path,
flow cache and offload, MAC tables, teaming, mirror copies, network queues, the
balancer, faults and events.
Not modelled: traffic that reacts to loss, real hardware's speed and quirks.
Made up: what fields mean that the platform leaves open, and all names of
hardware."""


def info_command(options: argparse.Namespace) -> None:
    """Prints what is simulated."""
    facts = info(Store(options.path))
    if options.json:
        print_json(facts)
        return
    age = units.age_text(round(facts["time"] * 10**9))
    pace = f" at {facts['speed']:g} times real time" if facts["speed"] != 1 else ""
    print(f"Simulated host {facts['host']}" + (f": {facts['about']}" if facts["about"] else ""))
    print(f"  made from   {facts['profile'] or 'an unnamed description'}, seed {facts['seed']}")
    print(f"  kept in     {facts['state']}")
    print(f"  host time   {age}, {facts['clock']}{pace}")
    what = [counted(facts[noun], noun) for noun in ("cores", "nics", "switches", "ports", "conversations")]
    print(f"  inventory   {', '.join(what)}".replace(" nic", " NIC"))
    print(f"  goes wrong  {counted(facts['faults'], 'faults')}, {counted(facts['events'], 'events')}")
    found = f"{facts['libraries']} (version {facts['libraries_version'] or 'unknown'})"
    print("  stand-ins   " + (found if facts["libraries"] else "not built"))
    print("  module      " + (facts["module"] or "as Python finds it"))
    print("  all hosts   " + (", ".join(facts["hosts"]) or "-"))
    print(f"\n{_MODELLED}")


def info(store: Store) -> dict[str, Any]:
    """What is simulated, from where, and how far."""
    from . import clock

    host, time = store.row("SELECT * FROM host"), clock.state(store)
    tables = {
        "cores": "lcore",
        "nics": "nic",
        "switches": "dvs",
        "datapath_switches": "sw",
        "ports": "port",
        "conversations": "conversation",
        "faults": "fault",
        "events": "event",
    }
    libraries: str | None = None
    module: str | None = None
    try:
        libraries = paths.libraries()
        module = paths.module_folder()
    except Failed:
        pass
    return {
        "simulated": True,
        "host": host["name"],
        "about": host["description"],
        "profile": host["profile"],
        "seed": host["seed"],
        "state": store.path,
        "time": time["time"],
        "clock": time["mode"],
        "speed": time["speed"],
        "libraries": libraries,
        "libraries_version": _library_version(libraries),
        "module": module,
        "operations": len(names.OPERATIONS),
        **{noun: store.row(f"SELECT COUNT(*) FROM {table}")[0] for noun, table in tables.items()},
        "hosts": paths.all_hosts(),
    }


def _library_version(libraries: str | None) -> str | None:
    """What the stand-in says of itself, in the text that it exports for that."""
    if libraries is None:
        return None
    import ctypes

    try:
        library = ctypes.CDLL(os.path.join(libraries, "libryn.so"))
        return ctypes.string_at(ctypes.addressof(ctypes.c_char.in_dll(library, "ryn_sim_version"))).decode()
    except (OSError, ValueError, AttributeError, UnicodeDecodeError):
        return None


def export_command(options: argparse.Namespace) -> None:
    """Writes the host's description."""
    from .export import describe
    from .yaml_text import to_yaml

    description = describe(Store(options.path))
    if options.json:
        text = json.dumps(description, indent=2, ensure_ascii=False) + "\n"
    else:
        text = to_yaml(description)
    if options.file == "-":
        sys.stdout.write(text)
        return
    try:
        with open(options.file, "w", encoding="utf-8") as file:
            file.write(text)
    except OSError as error:
        raise Failed(f"{options.file}: {error.strerror}") from None


def reset_command(options: argparse.Namespace) -> None:
    """Puts the host back to its beginning."""
    reset(Store(options.path))
    called = paths.host_of(options.path)
    print_json({"reset": called}) if options.json else print(f'put the simulated host "{called}" back to its beginning')


def reset(store: Store) -> None:
    """Puts a host back to its beginning; programs that have it open go on with it."""
    from .store import refill

    profile = store.row("SELECT profile FROM host")[0]
    origin = store.rows("SELECT * FROM origin")
    text, seed = (origin[0]["yaml"], origin[0]["seed"]) if origin else ("", None)
    if not text and profile not in paths.profiles():
        raise Failed(f'the description that this host was made from ("{profile}") is not known here')
    text = text or paths.read_data(f"profiles/{profile}.yaml")
    refill(store, _inserts(compiled(text, profile, profile, seed), text, profile, seed))


def rm_command(options: argparse.Namespace) -> None:
    """Removes the host."""
    from .store import in_use, remove

    called = paths.host_of(options.path)
    if not os.path.exists(options.path):
        if not options.force:
            raise paths.missing(options.path)
        if options.json:
            print_json({"removed": None})
        return
    if not options.force:
        Store(options.path).close()  # what is not a store stays where it is
        if in_use(options.path):
            raise Failed(f'processes have the simulated host "{called}" open; remove it with --force')
    remove(options.path)
    print_json({"removed": called}) if options.json else print(f'removed the simulated host "{called}"')
