"""The switch-state library takes Log, Warning and Panic from whatever loads it: each of the project's extensions and
programs exports them, so that it loads alone and beside the others, in any order and with either kind of binding.
"""

from __future__ import annotations

import itertools
import os
import re
import subprocess
from pathlib import Path

import pytest
from harness import UNDER_ASAN, Double, python

ROOT = Path(__file__).parents[2]
HOOKS = ["Log", "Warning", "Panic"]

# Each calls DVSState_ConfigReset, in which the double calls the hooks: _libryn when it is loaded, ryn._core when
# it is told to.
USE = {"_libryn": "import _libryn", "ryn._core": "import ryn._core; ryn._core.Platform().reload()"}
ORDERS = [order for count in (1, 2) for order in itertools.permutations(USE, count)]


@pytest.mark.parametrize("binding", ["RTLD_NOW", "RTLD_LAZY"])
@pytest.mark.parametrize("scope", ["RTLD_LOCAL", "RTLD_GLOBAL"])
@pytest.mark.parametrize("order", ORDERS, ids=" then ".join)
def test_extensions_load_alone_and_together(plain_build: str, order: tuple[str, ...], scope: str, binding: str):
    code = f"import os, sys, harness; sys.setdlopenflags(os.{binding} | os.{scope})\n"
    code += "\n".join(USE[name] for name in order)
    code += "\nprint(*(op for op in harness.Double().ops() if op in ('Log', 'Warning', 'Panic')))"
    build = Path(plain_build).parents[1]
    done = python(code, RYN_DOUBLE_LOAD="log=1", PYTHONPATH=os.pathsep.join([str(build), str(build / "libryn")]))
    assert (done.stdout.split(), done.stderr) == (HOOKS * len(order), "")


@pytest.mark.parametrize("hooks", [True, False])
@pytest.mark.parametrize("binding", ["RTLD_NOW", "RTLD_LAZY"])
def test_an_extension_without_hooks_depends_on_another(
    plain_build: str, double: Double, tmp_path: Path, hooks: bool, binding: str
):
    """What the hooks in host/ are for: without them an extension loads only after one that brings them along."""
    if UNDER_ASAN:
        pytest.skip("the extension is built without the sanitizers")
    source = tmp_path / "other.cc"
    source.write_text(
        '#include "platform/jor_public.h"\n'
        'extern "C" [[gnu::visibility("default")]] unsigned other_reset() { return DVSState_ConfigReset(); }\n'
    )
    subprocess.run(
        [
            "g++",
            "-std=c++20",
            "-shared",
            "-fPIC",
            "-fvisibility=hidden",
            f"-I{ROOT}",
            source,
            *([ROOT / "host/log_hooks.cc"] if hooks else []),
            "-o",
            tmp_path / "other.so",
            f"-L{double.folder}",
            "-ljorPublic",
        ],
        check=True,
    )

    def load(first: str) -> subprocess.CompletedProcess[str]:
        return python(
            f"import ctypes, os\n{first}\nctypes.CDLL('{tmp_path}/other.so', os.{binding}).other_reset()\n"
            "print('loaded')",
            RYN_DOUBLE_LOAD="log=1",
        )

    alone = load("")
    if hooks:
        assert (alone.stdout, alone.stderr) == ("loaded\n", "")
    else:
        assert alone.returncode != 0
        # At the import where all is bound at once, else at the first log line
        assert re.search("undefined symbol: (Log|Warning|Panic)", alone.stderr)
    assert load("import _libryn").stdout == "loaded\n"


def test_the_exporter_exports_the_hooks(plain_build: str):
    program = Path(plain_build).parents[1] / "exporter/ryn-exporter"
    if not program.exists():
        pytest.skip("this build has no exporter")
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", "--format=posix", program], text=True, capture_output=True, check=True
    ).stdout
    defined = {line.split()[0] for line in listing.splitlines()}
    assert set(HOOKS) <= defined
    done = subprocess.run(
        [program, "--once"],
        text=True,
        capture_output=True,
        timeout=60,
        env={**os.environ, "RYN_DOUBLE_LOAD": "log=1", "LD_BIND_NOW": ""},
    )
    assert "symbol lookup error" not in done.stderr
    assert "ryn_up 1" in done.stdout
