"""All that the methods of the module do can be done through the package: the call that the description of a method
names makes the method's operations."""

import contextlib
from collections.abc import Iterator

import pytest
from reference.methods import METHODS

import ryn

EVERY_METHOD = pytest.mark.parametrize("method", METHODS, ids=lambda method: method.name)


def do(host: ryn.Host, code: str) -> None:
    """Evaluates an expression, or makes an assignment, with one object of each kind at hand."""
    switch = host.switch("dvs-1")
    names = {"host": host, "switch": switch, "port": switch.port(1), "uplink": switch.uplinks()[0]}
    try:
        expression = compile(code, "", "eval")
    except SyntaxError:
        with contextlib.suppress(ryn.NotApplied):  # the double keeps nothing
            exec(code, names)
        return
    with contextlib.suppress(ryn.NotApplied):
        result = eval(expression, names)
        if isinstance(result, Iterator):
            list(result)


@EVERY_METHOD
def test_the_call_makes_the_methods_operations(host, platform, method):
    assert method.ryn, f"name the call that does what {method.name} does, in its row of libryn/reference/methods.py"
    platform.double.add_switch("poll", "id-p", global_={"com.talvor.extraconfig.opaqueDvs.ryn": b"poll"})
    if method.name == "GetUplinkStats":
        platform.double.answer("Ryn_Get_Uplink_Priv_Stats_Len", area=b"\4\0\0\0")
    do(host, method.ryn)
    # What the host does not keep is not given back.
    wanted = {*method.operations, *method.fallback} - {"DVSQOB_DataFree"}
    missing = wanted - set(platform.double.ops())
    assert missing == set(), f"{method.ryn} does not call them"


@EVERY_METHOD
def test_the_call_reaches_the_switch_and_port_that_it_names(host, platform, method):
    platform.double.add_switch("poll", "id-p", global_={"com.talvor.extraconfig.opaqueDvs.ryn": b"poll"})
    do(host, method.ryn)
    for call in platform.double.calls():
        if "swID" in call.args and call.op != "Ryn_DumpLBSnapshot":
            assert call.swID == 3, call
        if "switchId" in call.args:
            assert call.switchId in ("id-1", "id-p"), call
