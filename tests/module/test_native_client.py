"""Native clients of the module's entry points, in C11 and in C++, against the build folder and an installed tree."""

import os
import subprocess
import sys
import sysconfig
from pathlib import Path
from typing import Any

import pytest
from harness import TOOLS

ROOT = Path(__file__).parents[2]
C11 = ["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Wstrict-prototypes", "-Wconversion", "-Werror"]
CXX = ["c++", "-std=c++11", "-Wall", "-Wextra", "-Wpedantic", "-Wold-style-cast", "-Wconversion", "-Werror"]


def succeeds(*command: object, **keywords: Any) -> str:
    done = subprocess.run(list(map(str, command)), text=True, capture_output=True, timeout=120, **keywords)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.fixture
def build(double) -> Path:
    return double.folder.parents[1]


@pytest.mark.parametrize("client", ["client_c11", "client_tests"])
def test_client_that_is_linked_against_the_module(build, client):
    succeeds(build / "tests/native/client" / client, "--gtest_brief=1" if client == "client_tests" else "")


# The header


@pytest.mark.parametrize(
    "compiler, language",
    [(C11, "c"), (CXX, "c++"), (["c++", "-std=c++20", *CXX[2:]], "c++")],
    ids=["c11", "c++11", "c++20"],
)
@pytest.mark.parametrize(
    "includes",
    [["libryn.h"], ["libryn.h", "libryn.h"], ["libryn.h", "Python.h"], ["Python.h", "libryn.h"]],
    ids=" ".join,
)
def test_header_compiles_without_a_warning(tmp_path, compiler, language, includes):
    source = tmp_path / "source"
    source.write_text("".join(f"#include <{name}>\n" for name in includes) + "int nothing;\n")
    succeeds(
        *compiler,
        "-fsyntax-only",
        "-x",
        language,
        "-I",
        ROOT / "libryn/include",
        "-isystem",
        sysconfig.get_path("include"),
        source,
        env=TOOLS,
    )


# An installed tree


@pytest.fixture(scope="module")
def installed(request, tmp_path_factory) -> Path:
    tree = tmp_path_factory.mktemp("tree")
    build = request.config.ryn_double.folder.parents[1]
    succeeds("/usr/bin/meson", "install", "-C", build, "--no-rebuild", "--destdir", tree, env=TOOLS)
    return tree


def the_one(tree: Path, pattern: str) -> Path:
    (found,) = tree.rglob(pattern)
    return found


def test_header_and_module_land_in_their_places(installed, ryn):
    header, module = the_one(installed, "libryn.h"), the_one(installed, "_libryn*.so")
    prefix = header.parents[1]
    assert header == prefix / "include/libryn.h"
    assert header.read_bytes() == (ROOT / "libryn/include/libryn.h").read_bytes()
    assert module.name == Path(ryn.__file__).name == f"_libryn{sysconfig.get_config_var('EXT_SUFFIX')}"
    assert module.parent.name in ("dist-packages", "site-packages")
    assert prefix / "lib" in module.parents


def test_the_stand_ins_are_on_no_default_path(installed):
    for library in ("libryn.so", "libjorPublic.so"):
        for found in installed.rglob(library):
            assert found.parent.name not in ("lib", "lib64", "x86_64-linux-gnu"), found


def test_installed_module_is_imported_and_has_no_run_path(installed, double):
    module = the_one(installed, "_libryn*.so")
    code = "import _libryn; print(_libryn.__file__, _libryn.ListSwitches())"
    environment = {**os.environ, "PYTHONPATH": str(module.parent)}
    assert succeeds(sys.executable, "-c", code, env=environment) == f"{module} []\n"
    dynamic = succeeds("readelf", "--dynamic", "--wide", module, env=TOOLS)
    assert "RPATH" not in dynamic and "RUNPATH" not in dynamic
    needed = [line.split("[")[1].rstrip("]") for line in dynamic.splitlines() if "(NEEDED)" in line]
    assert [
        name for name in needed if not name.startswith(("libasan", "libubsan", "libstdc++", "libgcc", "libm."))
    ] == ["libryn.so", "libjorPublic.so", "libc.so.6"]


def test_client_builds_against_the_installed_tree(installed, double, tmp_path):
    header, module = the_one(installed, "libryn.h"), the_one(installed, "_libryn*.so")
    embed = succeeds("pkg-config", "--libs", f"python-{sysconfig.get_python_version()}-embed", env=TOOLS).split()
    client = tmp_path / "client"
    sanitize = ["-fsanitize=address,undefined"] if "libasan" in os.environ.get("LD_PRELOAD", "") else []
    succeeds(
        *C11,
        *sanitize,
        "-o",
        client,
        ROOT / "tests/native/client/client.c",
        "-I",
        header.parent,
        "-I",
        ROOT / "tests/double",
        "-isystem",
        sysconfig.get_path("include"),
        "-L",
        module.parent,
        f"-l:{module.name}",
        "-L",
        double.folder,
        "-lryn",
        "-ljorPublic",
        *embed,
        env=TOOLS,
    )
    succeeds(client, env={**os.environ, "LD_LIBRARY_PATH": f"{double.folder}:{module.parent}"})
