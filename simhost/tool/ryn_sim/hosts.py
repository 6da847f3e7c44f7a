"""Commands on a host as a whole: init, info, export, reset, rm, run."""

from __future__ import annotations

import os
import sys

from . import names, paths, units
from .errors import BadInput, Failed, nearest
from .store import Store
from .table import Progress, counted, print_json, print_table


def _source(what: str | None) -> tuple[str, str, str]:
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


def compiled(text: str, name: str, profile: str, seed: int | None = None):
    """The rows of a host that is described by this text."""
    from .compile import compiled as compile_document
    from .document import Document

    document = Document(text, name)
    if seed is not None and isinstance(document.value, dict):
        document.value["seed"] = seed
    with Progress("compiling") as progress:
        return compile_document(document, profile, progress)


def _inserts(rows: dict, text: str, profile: str, seed: int | None) -> str:
    """What fills the store. The description goes along for a reset, unless it is a shipped profile as it is."""
    from .compile import literal, sql

    shipped = profile in paths.profiles() and seed is None
    kept = "" if shipped else text
    seed_text = literal(seed)
    return sql(rows) + f"\nINSERT INTO origin (id, yaml, seed) VALUES (1, {literal(kept)}, {seed_text});\n"


def init_command(options) -> None:
    from .store import create

    if options.list:
        rows = []
        for name in paths.profiles():
            about = next(
                (
                    line[6:].strip()
                    for line in paths.read_data(f"profiles/{name}.yaml").splitlines()
                    if line.startswith("about:")
                ),
                "",
            )
            rows.append({"profile": name, "about": about})
        print_json(rows) if options.json else print_table(rows, ["profile", "about"])
        return
    text, name, profile = _source(options.what)
    if options.sql:
        from .compile import sql

        sys.stdout.write(sql(compiled(text, name, profile, options.seed)))
        return
    if not options.check and not options.force and os.path.exists(options.path):
        raise Failed(
            f'the host "{paths.host_of(options.path)}" is there already ({options.path}); replace it with --force'
        )
    rows = compiled(text, name, profile, options.seed)
    counts = {"switches": len(rows["sw"]), "ports": len(rows["port"]), "conversations": len(rows["conversation"])}
    if not options.check:
        create(options.path, _inserts(rows, text, profile, options.seed), replace=options.force)
    if options.json:
        print_json(
            {
                "host": paths.host_of(options.path),
                "profile": profile,
                "state": options.path,
                "made": not options.check,
                **counts,
            }
        )
    else:
        what = ", ".join(counted(number, noun) for noun, number in counts.items())
        print(
            f"{name} is right: {what}"
            if options.check
            else f'made the simulated host "{paths.host_of(options.path)}" from {name}: {what}\nin {options.path}'
        )


_MODELLED = """\
Every operation of both platform libraries answers from one model of the host. Counters are
exact sums of the described traffic over the host's clock. Settings have effects and stay.
Modelled: cores and what packets cost them, links and rings, fast and slow path, flow cache and
offload, MAC tables, teaming, mirror copies, network queues, the balancer, faults and events.
Not modelled: traffic that reacts to what becomes of it, real hardware's speed and quirks.
Made up: what fields mean that the platform leaves open, and all names of hardware."""


def info_command(options) -> None:
    store = Store(options.path)
    host = store.row("SELECT * FROM host")
    clock = store.row("SELECT * FROM clock")
    counts = {
        table: store.row(f"SELECT COUNT(*) FROM {table}")[0]
        for table in ("lcore", "nic", "dvs", "sw", "port", "conversation", "fault", "event")
    }
    try:
        libraries = paths.libraries()
        module = paths.module_folder()
    except Failed:
        libraries = module = None
    facts = {
        "simulated": True,
        "host": host["name"],
        "about": host["description"],
        "profile": host["profile"],
        "seed": host["seed"],
        "state": options.path,
        "time": store.now_ns() / 10**9,
        "clock": "frozen" if clock["mode"] == "freeze" else "running",
        "speed": clock["speed_permille"] / 1000,
        "libraries": libraries,
        "libraries_version": _library_version(libraries),
        "module": module,
        "operations": len(names.OPERATIONS),
        "cores": counts["lcore"],
        "nics": counts["nic"],
        "switches": counts["dvs"],
        "datapath_switches": counts["sw"],
        "ports": counts["port"],
        "conversations": counts["conversation"],
        "faults": counts["fault"],
        "events": counts["event"],
        "hosts": paths.all_hosts(),
    }
    if options.json:
        print_json(facts)
        return
    print(f"Simulated host {host['name']}" + (f": {host['description']}" if host["description"] else ""))
    print(f"  made from   {host['profile'] or 'an unnamed description'}, seed {host['seed']}")
    print(f"  kept in     {options.path}")
    print(
        f"  host time   {units.age_text(store.now_ns())}, {facts['clock']}"
        + (f" at {facts['speed']:g} times the wall's speed" if facts["speed"] != 1 else "")
    )
    print(
        f"  inventory   {counts['lcore']} cores, {counts['nic']} NICs, {counts['dvs']} switches"
        f" ({counts['sw']} of the datapath), {counts['port']} ports, {counts['conversation']} conversations"
    )
    print(f"  trouble     {counts['fault']} faults, {counts['event']} events")
    print(
        "  stand-ins   "
        + (f"{libraries} (version {facts['libraries_version'] or 'unknown'})" if libraries else "not built")
    )
    print("  module      " + (module or "as Python finds it"))
    print("  all hosts   " + (", ".join(facts["hosts"]) or "-"))
    print(f"\n{_MODELLED}")


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


def export_command(options) -> None:
    from .export import describe
    from .yaml_text import to_yaml

    description = describe(Store(options.path))
    if options.json:
        import json

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


def reset_command(options) -> None:
    from .store import refill

    store = Store(options.path)
    profile = store.row("SELECT profile FROM host")[0]
    origin = store.rows("SELECT * FROM origin")
    text, seed = (origin[0]["yaml"], origin[0]["seed"]) if origin else ("", None)
    if not text and profile not in paths.profiles():
        raise Failed(f'the description that this host was made from ("{profile}") is not known here')
    text = text or paths.read_data(f"profiles/{profile}.yaml")
    refill(store, _inserts(compiled(text, profile, profile, seed), text, profile, seed))
    print(f'put the simulated host "{paths.host_of(options.path)}" back to its beginning')


def rm_command(options) -> None:
    from .store import in_use, remove

    if not os.path.exists(options.path):
        if options.force:
            return
        raise paths.missing(options.path)
    if not options.force:
        Store(options.path).close()  # what is not a store stays where it is
        if in_use(options.path):
            raise Failed(
                f'processes have the simulated host "{paths.host_of(options.path)}" open; remove it with --force'
            )
    remove(options.path)
    print(f'removed the simulated host "{paths.host_of(options.path)}"')


def run_command(options) -> None:
    command = options.arguments
    if not command:
        raise BadInput("run: expected a command after --, such as: ryn-sim run -- python3 script.py")
    if options.named and not os.path.exists(options.path):
        raise paths.missing(options.path)
    environment = dict(os.environ, RYN_SIM_STATE=options.path)
    _prepend(environment, "LD_LIBRARY_PATH", paths.libraries())
    for folder in (paths.module_folder(), paths.package_folder()):
        if folder:
            _prepend(environment, "PYTHONPATH", folder)
    sys.stdout.flush()
    try:
        os.execvpe(command[0], command, environment)
    except OSError as error:
        raise Failed(f"{command[0]}: {error.strerror}") from None


def _prepend(environment: dict, variable: str, folder: str) -> None:
    before = environment.get(variable)
    environment[variable] = f"{folder}:{before}" if before else folder
