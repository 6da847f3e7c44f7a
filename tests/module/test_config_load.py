"""The load of the switch configuration when the shared object is loaded, and the log hooks."""

import ctypes
import os
import re
import subprocess
import sys

import pytest
from harness import NULL, Call, python, run
from memory import native_bytes
from method_table import METHODS

LOAD = ["DVSState_ConfigReset", "DVSQOB_StateGet", "DVSState_ConfigDeserialize"]
STATUSES = [1, 0x0BAD0003, 0x0BAD0007, 0x80000000, 0xFFFFFFFF]

RESET, STATE_GET = Call(LOAD[0]), Call(LOAD[1], stateIsNull=1)


def deserialize(state: bytes | None) -> Call:
    return Call(LOAD[2], state=state, length=len(state or b""))


@pytest.fixture
def load_config(native):
    function = native["DVSLoadConfig"]
    function.restype = ctypes.c_uint32
    return function


# When the load happens


def prints(code: str, **environment: str) -> list[str]:
    """What the code prints in a fresh interpreter, which has nothing to say on standard error."""
    done = python(f"import harness\n{code}", **environment)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout.splitlines()


def test_configuration_is_loaded_when_the_object_is_not_by_the_import(ryn):
    code = (
        f"import ctypes; ctypes.PyDLL({ryn.__file__!r})\n"
        "double = harness.set_up(); print(double.ops())\n"
        "import _libryn; print(double.ops())"
    )
    assert prints(code) == [repr(LOAD), repr(LOAD)]


def test_configuration_is_loaded_once_per_process():
    code = (
        "import importlib, sys, _libryn\n"
        "importlib.reload(_libryn); del sys.modules['_libryn']; import _libryn\n"
        "print(harness.set_up().ops())"
    )
    assert prints(code) == [repr(LOAD)]


def test_methods_do_not_load_it_again(ryn, double):
    for method in METHODS:
        double.reset()
        method.script(double)
        run(getattr(ryn, method.name), *method.args)
        assert not set(LOAD) & set(double.ops()), method.name


def test_constructor_does_nothing_but_load(native, double):
    native.LibraryInit()
    assert double.calls() == [RESET, STATE_GET, deserialize(None)]


# What the load does, step by step


@pytest.mark.parametrize("state", [b"", b"\0", b"state\0\xff", bytes(range(256)) * 16])
def test_state_is_handed_on_as_it_came(load_config, double, state):
    double.answer("DVSQOB_StateGet", area=state)
    assert load_config() == 0
    assert double.calls() == [RESET, STATE_GET, deserialize(state)]


@pytest.mark.parametrize("status", STATUSES)
@pytest.mark.parametrize("step", range(3), ids=LOAD)
def test_load_ends_at_the_step_that_fails_with_its_status(load_config, double, step, status):
    double.answer("DVSQOB_StateGet", area=b"state")
    double.answer(LOAD[step], status=status, area=b"state" if step == 1 else None)
    assert load_config() == status
    assert double.calls() == [RESET, STATE_GET, deserialize(b"state")][: step + 1]


def test_a_failure_does_not_stay(load_config, double):
    double.answer("DVSState_ConfigReset", status=5, times=1)
    assert [load_config(), load_config()] == [5, 0]


STATE_SIZE = 1 << 20


@pytest.mark.skipif(native_bytes() == 0, reason="a sanitizer's allocator tells nothing")
@pytest.mark.parametrize(
    "answers, freed",
    [
        ({}, True),
        ({"DVSState_ConfigDeserialize": 5}, True),  # whatever the last step returned
        ({"DVSQOB_StateGet": 5}, False),  # a block that came with a failure is not ours
    ],
)
def test_the_state_is_freed_behind_a_fetch_that_succeeded(load_config, double, answers, freed):
    state = bytes(STATE_SIZE)
    double.recording(False)
    double.answer("DVSQOB_StateGet", area=state, status=answers.get("DVSQOB_StateGet", 0))
    double.answer("DVSState_ConfigDeserialize", status=answers.get("DVSState_ConfigDeserialize", 0))
    load_config()
    before = native_bytes()
    for _ in range(4):
        load_config()
    lost = native_bytes() - before
    assert lost < STATE_SIZE / 2 if freed else lost >= 4 * STATE_SIZE


# A host on which nothing answers


@pytest.mark.parametrize(
    "load",
    [
        "reset=0xffffffff",
        "stateget=1",
        "stateget=0x0bad0007,state=00ff",
        "deserialize=5,state=00ff",
        "reset=1,stateget=2,deserialize=3",
    ],
)
def test_import_succeeds_silently_when_the_load_fails(load):
    """Afterwards no switch has the alias, which only then is told."""
    code = (
        "import _libryn\ndouble = harness.set_up(); print(double.ops()[-1])\n"
        "print(harness.run(_libryn.GetLBAlgorithm, 'dvs-1') == "
        "harness.Outcome(None, 'Failed to find dvs ID for dvs alias dvs-1.\\n'))"
    )
    last = LOAD[0] if load.startswith("reset") else LOAD[1] if load.startswith("stateget") else LOAD[2]
    assert prints(code, RYN_DOUBLE_LOAD=load) == [last, "True"]


def test_no_method_raises_when_every_operation_fails(ryn, double):
    operations = {call.op for method in METHODS for call in method.calls} | {
        "DVSState_SwitchFindByAlias",
        "DVSState_HostPropLookup",
        "DVSState_GlobalPropLookup",
        "DVSQOB_PortDataGet",
        "Ryn_GetCurrentLBData",
        "Ryn_GetSwitchNUMATeam",
        "Ryn_GetSwitchBurstSize",
        *LOAD,
    } - {"DVSQOB_DataFree"}
    for operation in operations:
        double.answer(operation, status=0xFFFFFFFF)
    for method in METHODS:
        outcome = run(getattr(ryn, method.name), *method.args)
        assert outcome.error is None, method.name
        # Without a switch, nothing is asked of the datapath. The list of cores goes on after its message.
        assert outcome.stderr or method.name == "InitMbufFastslabs"
        assert outcome.value in (None, False, NULL, ()), method.name


@pytest.mark.parametrize("library", ["libryn.so", "libjorPublic.so"])
def test_without_a_platform_library_the_import_names_it(double, tmp_path, library):
    """The loader's own answer: the module cannot be loaded, and the script learns why."""
    for name in {"libryn.so", "libjorPublic.so"} - {library}:
        (tmp_path / name).symlink_to(double.folder / name)
    done = subprocess.run(
        [sys.executable, "-c", "import _libryn"],
        text=True,
        capture_output=True,
        env={**os.environ, "LD_LIBRARY_PATH": str(tmp_path)},
    )
    assert done.returncode == 1
    assert f"ImportError: {library}: cannot open shared object file" in done.stderr


# The log hooks


@pytest.mark.parametrize("hook", ["Log", "Warning", "Panic"])
@pytest.mark.parametrize("arguments", [(), (None,), (b"text\n",), (b"%s%s%n",), (b"%d", 5), (1,), (b"%s", *8 * [1])])
def test_log_hooks_do_nothing(native, double, capfd, hook, arguments):
    function = native[hook]
    function.restype = None
    function(*(ctypes.c_void_p(a) if isinstance(a, int) else a for a in arguments))
    assert capfd.readouterr() == ("", "")
    assert double.calls() == []


def test_the_switch_state_library_finds_the_log_hooks_while_the_object_is_loaded():
    code = "import _libryn\nprint(harness.set_up().ops())"
    assert prints(code, RYN_DOUBLE_LOAD="log=1") == [repr(["Log", "Warning", "Panic", *LOAD])]


def test_the_hooks_that_it_finds_are_those_of_the_module(ryn, tmp_path):
    """Python loads the object with local scope; the library still resolves them to the object that loaded it."""
    prints("import _libryn", RYN_DOUBLE_LOAD="log=1", LD_DEBUG="bindings", LD_DEBUG_OUTPUT=str(tmp_path / "bindings"))
    bindings = "".join(file.read_text() for file in tmp_path.glob("bindings*"))
    for hook in ("Log", "Warning", "Panic"):
        assert re.search(
            rf"binding file \S*/libjorPublic\.so \[0\] to {re.escape(ryn.__file__)} \[0\]: " rf"normal symbol `{hook}'",
            bindings,
        ), hook
