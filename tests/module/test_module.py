"""The module definition and the finished shared object."""

import ctypes
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest
from harness import UNDER_ASAN, python
from method_table import METHODS

ROOT = Path(__file__).parents[2]
SUBSYSTEMS = ["dvs", "ports", "flowcache", "uplinks", "loadbal"]
METH_VARARGS = 1


class MethodDef(ctypes.Structure):
    _fields_ = [
        ("name", ctypes.c_char_p),
        ("function", ctypes.c_void_p),
        ("flags", ctypes.c_int),
        ("doc", ctypes.c_char_p),
    ]


class ModuleDefBase(ctypes.Structure):
    _fields_ = [
        ("object", ctypes.c_byte * object.__basicsize__),
        ("init", ctypes.c_void_p),
        ("index", ctypes.c_ssize_t),
        ("copy", ctypes.c_void_p),
    ]


class ModuleDef(ctypes.Structure):
    _fields_ = [
        ("base", ModuleDefBase),
        ("name", ctypes.c_char_p),
        ("doc", ctypes.c_char_p),
        ("size", ctypes.c_ssize_t),
        ("methods", ctypes.POINTER(MethodDef)),
        ("slots", ctypes.c_void_p),
        ("traverse", ctypes.c_void_p),
        ("clear", ctypes.c_void_p),
        ("free", ctypes.c_void_p),
    ]


@pytest.fixture
def definition(ryn) -> ModuleDef:
    get = ctypes.pythonapi.PyModule_GetDef
    get.argtypes, get.restype = [ctypes.py_object], ctypes.POINTER(ModuleDef)
    return get(ryn).contents


def test_definition(definition):
    assert definition.name == b"_libryn"
    assert definition.doc == b"Python binding for ryn"
    assert definition.size == -1
    assert [definition.slots, definition.traverse, definition.clear, definition.free] == 4 * [None]


def test_table_in_order(definition):
    rows = [definition.methods[i] for i in range(len(METHODS))]
    assert [(row.name.decode(), row.doc.decode(), row.flags) for row in rows] == [
        (method.name, method.doc, METH_VARARGS) for method in METHODS
    ]
    assert len({row.function for row in rows}) == len(METHODS)
    assert None not in [row.function for row in rows]
    closing = definition.methods[len(METHODS)]
    assert (closing.name, closing.function, closing.flags, closing.doc) == (None, None, 0, None)


def test_handlers_by_name(definition, native):
    """The function that each row points to, by the symbol at its address."""
    lines = tool("nm", "--demangle", "--defined-only", native._name).splitlines()
    symbols = {int(line[:16], 16): line[19:].partition("(")[0] for line in lines if line[17] in "tT"}
    addresses = {name: address for address, name in symbols.items()}
    if "PyRyn_ListLCoreIDs" not in addresses:
        pytest.skip("a stripped build")
    base = ctypes.cast(native.PyInit__libryn, ctypes.c_void_p).value - addresses["PyInit__libryn"]
    assert [symbols[definition.methods[i].function - base] for i in range(len(METHODS))] == [
        method.row.handler for method in METHODS
    ]


def test_module_holds_the_methods_and_nothing_else(ryn):
    of_every_module = {"__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__"}
    assert set(vars(ryn)) - of_every_module == {method.name for method in METHODS}
    assert ryn.__doc__ == "Python binding for ryn"
    for method in METHODS:
        function = getattr(ryn, method.name)
        assert type(function) is type(len)
        assert (function.__name__, function.__doc__, function.__module__) == (method.name, method.doc, "_libryn")
        assert function.__self__ is ryn


def test_import_warns_of_nothing():
    """A wrong version of the interface would be warned of."""
    done = python("import warnings; warnings.simplefilter('error'); import _libryn; print(_libryn.__name__)")
    assert (done.stdout, done.stderr) == ("_libryn\n", "")


def test_version_of_the_interface(native):
    """What PyInit__libryn hands to the interpreter is the 1013 of the interface that the module is written for."""
    code = subprocess.run(
        ["objdump", "-d", "--no-show-raw-insn", native._name], text=True, capture_output=True, check=True
    ).stdout
    body = re.search(r"<PyInit__libryn>:\n(.*?)\n\n", code, re.DOTALL).group(1)
    assert "$0x3f5" in body  # 1013
    assert "PyModule_Create2" in body


def test_a_second_import_is_the_same_module(ryn):
    del sys.modules["_libryn"]
    import _libryn

    assert {name: getattr(_libryn, name) for name in ("__name__", "__doc__")} == {
        "__name__": "_libryn",
        "__doc__": "Python binding for ryn",
    }
    assert _libryn.ListSwitches.__doc__ == ryn.ListSwitches.__doc__
    sys.modules["_libryn"] = ryn


# The shared object


def tool(*command: str) -> str:
    return subprocess.run(command, text=True, capture_output=True, check=True).stdout


def test_exports(plain_build):
    symbols = tool("nm", "-D", "--defined-only", "--format=posix", plain_build)
    assert (
        sorted(line.split()[0] for line in symbols.splitlines())
        == (ROOT / "tests/lists/exports.txt").read_text().split()
    )


def test_needed_libraries(plain_build):
    dynamic = tool("readelf", "--dynamic", "--wide", plain_build)
    assert set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)) == {"libryn.so", "libjorPublic.so", "libc.so.6"}
    assert "RPATH" not in dynamic and "RUNPATH" not in dynamic
    assert "BIND_NOW" in dynamic


def test_segments(plain_build):
    headers = tool("readelf", "--program-headers", "--wide", plain_build)
    assert re.search(r"GNU_STACK.* RW +0x", headers)  # not executable
    assert "GNU_RELRO" in headers
    assert not re.search(r"LOAD.* RWE ", headers)


def test_takes_nothing_from_the_platform_but_its_operations(plain_build):
    undefined = {
        line.split()[0] for line in tool("nm", "-D", "--undefined-only", "--format=posix", plain_build).splitlines()
    }
    headers = (ROOT / "platform/ryn.h").read_text() + (ROOT / "platform/jor_public.h").read_text()
    operations = set(re.findall(r"\b(\w+)\(", headers))
    platform = {name for name in undefined if name.startswith(("Ryn", "DVS"))}
    assert platform <= operations
    assert not {name for name in undefined if name.startswith("_Z")}  # nothing of the C++ runtime


# The sources


def includes(folder: str) -> list[tuple[str, str]]:
    sources = [path for suffix in (".c", ".cc", ".h") for path in (ROOT / folder).rglob(f"*{suffix}")]
    return [
        (str(path.relative_to(ROOT)), included)
        for path in sorted(sources)
        for included in re.findall(r'^#include "(.*)"', path.read_text(), re.MULTILINE)
    ]


# What the sources of each folder may include, from the bottom up: headers of these folders, not of those below them,
# and the named headers. The first row that fits a file counts.
HOST = ("platform/", "host/", "host/records/")
LAYERS = [
    ("platform/", ()),
    ("host/records/", ("host/native.h",)),
    ("host/read/", (*HOST, "host/read/")),
    ("host/change/", (*HOST, "host/change/")),
    ("host/", HOST),
    ("ryn/_core/", (*HOST, "host/read/", "host/change/", "ryn/_core/")),
    ("exporter/", (*HOST, "host/read/", "exporter/", "exporter/collect/")),
    ("ryn/_core/", (*HOST, "host/read/", "host/change/", "ryn/_core/")),
    ("exporter/", (*HOST, "host/read/", "exporter/", "exporter/collect/")),
    ("libryn/include/", ()),
    ("libryn/base/", ("host/", "libryn/base/")),
    ("libryn/dvs/", (*HOST, "host/change/properties.h", "libryn/include/", "libryn/base/", "libryn/dvs/")),
    *(
        (
            f"libryn/{name}/",
            (*HOST, "host/change/properties.h", "libryn/include/", "libryn/base/", "libryn/dvs/", f"libryn/{name}/"),
        )
        for name in SUBSYSTEMS[1:]
    ),
    ("libryn/", ("host/", "libryn/base/", *(f"libryn/{name}/{name}.h" for name in SUBSYSTEMS))),
]


@pytest.mark.parametrize("folder", ["platform", "host", "libryn", "ryn", "exporter"])
def test_includes_run_downwards(folder):
    seen = includes(folder)
    layers = [
        (path, included, next(allowed for layer, allowed in LAYERS if path.startswith(layer)))
        for path, included in seen
    ]
    assert [
        (path, included)
        for path, included, allowed in layers
        if included not in allowed and included.rpartition("/")[0] + "/" not in allowed
    ] == []
    assert seen or folder == "platform"  # finds the sources


def operations() -> set[str]:
    headers = [(ROOT / "platform" / name).read_text() for name in ("ryn.h", "jor_public.h")]
    return set(re.findall(r"\b((?:Ryn|DVS\w*?)_\w+)\(", "".join(headers)))


def test_every_operation_has_its_name():
    """host/operations.h and platform/*.h list the same operations."""
    rows = re.findall(r'char k(\w+)\[\] = "(\w+)";', (ROOT / "host/operations.h").read_text())
    named = [name for _, name in rows]
    assert operations() - set(named) == set(), "add a line for each to host/operations.h"
    assert set(named) - operations() == set(), "declare them in platform/, or remove their lines from host/operations.h"
    assert len(named) == len(set(named))
    assert [
        (constant, name)
        for constant, name in rows
        if constant != re.sub("^(Ryn|DVSQOB|DVSState)_", "", name).replace("_", "")
    ] == []


def called(folder: str) -> set[str]:
    """The operations that the sources of a folder, without those below it, call or hand on to be called."""
    names = [name for path in (ROOT / folder).glob("*.cc") for name in re.findall(r"\w+", path.read_text())]
    names += [name for path in (ROOT / folder).glob("*.h") for name in re.findall(r"(\w+)\(", path.read_text())]
    return operations() & set(names)


def test_every_function_of_the_host_is_tested():
    """Apart from the tests of walks and records, a row for each operation."""
    rows = re.findall(r'"((?:Ryn|DVS)\w+)"', (ROOT / "tests/native/host/operations_test.cc").read_text())
    missing = (called("host/read") | called("host/change")) - set(rows)
    assert missing == set(), "add a row for each to tests/native/host/operations_test.cc"


def test_host_reads_and_changes_apart():
    """Each operation is either read or changed with. What stands below both changes nothing but the process's own
    configuration."""
    read, change, base = called("host/read"), called("host/change"), called("host")
    assert not read & change and not change & base and not read & base
    # Nothing above host/ looks for a distributed port, and the module hands that operation on itself.
    called_above = operations() - {"DVSState_PortFind"}
    missing = called_above - (read | change | base)
    assert missing == set(), "write a function for each in host/read/ or host/change/"
    assert read | change | base == called_above
    assert {name for name in read if not re.match("Ryn_(Get|Dump|List)", name)} == set()
    assert {name for name in change if re.match("Ryn_(Get|Dump|List)", name)} == set()
    assert {name for name in base if not name.startswith(("DVSState_", "DVS_", "DVSData_"))} == {
        "DVSQOB_StateGet",
        "DVSQOB_HostPropGet",
        "DVSQOB_PortDataGet",
        "DVSQOB_DataFree",
    }


def test_a_program_of_the_readers_imports_no_changing_operation(ryn, double, tmp_path):
    """Even when it takes in every object of the two libraries."""
    if UNDER_ASAN:
        pytest.skip("the libraries are built with the sanitizers")
    build = Path(ryn.__file__).parents[1]
    (tmp_path / "main.cc").write_text("int main() { return 0; }\n")
    hooks = [
        "-Wl,--export-dynamic-symbol=Log",
        "-Wl,--export-dynamic-symbol=Warning",
        "-Wl,--export-dynamic-symbol=Panic",
    ]
    subprocess.run(
        [
            "g++",
            "-o",
            tmp_path / "main",
            tmp_path / "main.cc",
            "-Wl,--whole-archive",
            build / "host/libhost_read.a",
            build / "host/libhost_base.a",
            "-Wl,--no-whole-archive",
            *hooks,
            f"-L{double.folder}",
            f"-Wl,-rpath-link,{double.folder}",
            "-lryn",
            "-ljorPublic",
        ],
        check=True,
    )
    taken = {
        line.split()[0]
        for line in tool("nm", "-D", "--undefined-only", "--format=posix", str(tmp_path / "main")).splitlines()
    } & operations()
    assert taken == called("host/read") | called("host")
    subprocess.run([tmp_path / "main"], check=True, env={**os.environ, "LD_LIBRARY_PATH": str(double.folder)})


def test_tests_and_simulated_host_keep_clear_of_the_module():
    """They write bytes by offset from their own tables: a wrong struct must not agree with itself."""
    own = {"tests/double": ("platform/", "call.h", "script.h", "double.h"), "simhost": ("platform/", "simhost/")}
    for folder, allowed in own.items():
        for path, included in includes(folder):
            local = (ROOT / path).parent / included
            assert included.startswith(allowed) or local.exists(), path


def test_every_source_is_built():
    for folder in ("host", "libryn", "ryn", "exporter"):
        listed = set(re.findall(r"'([\w/]+\.cc)'", (ROOT / folder / "meson.build").read_text()))
        assert listed == {str(path.relative_to(ROOT / folder)) for path in (ROOT / folder).rglob("*.cc")}


def test_one_line_build(plain_build, double, tmp_path):
    """The command that CONTRIBUTING.md shows, as it stands there, against the double's libraries."""
    fenced = re.findall(r"^```sh\n(.*?)^```", (ROOT / "CONTRIBUTING.md").read_text(), re.DOTALL | re.MULTILINE)
    (command,) = [block for block in fenced if "-shared" in block]
    for folder in ["platform", "host", "libryn"]:
        (tmp_path / folder).symlink_to(ROOT / folder)
    path = os.pathsep.join([str(Path(sys.executable).parent), os.environ["PATH"]])  # the interpreter's python3-config
    done = subprocess.run(
        ["bash", "-ec", command],
        cwd=tmp_path,
        text=True,
        capture_output=True,
        env={**os.environ, "PATH": path, "PLATFORM": str(double.folder)},
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    (built,) = tmp_path.glob("_libryn*.so")
    seen = python("import _libryn; print(_libryn.__file__, _libryn.ListPorts(0))", PYTHONPATH=str(tmp_path))
    assert (seen.stdout, seen.stderr) == (f"{built} []\n", "")
