"""The errors of the package: their kinds, fields and texts, and that copies of them say the same."""

import builtins
import copy
import pickle

import pytest

import ryn
from ryn import errors

EVERY_ERROR = [
    errors.platform_error("Ryn_Get_Port_Stats", (0, 3), 5),
    errors.platform_error("Ryn_Get_Port_Stats", (0, 3), 0x0BAD0003),
    errors.platform_error("Ryn_Set_Dev_Affinity", ("lunic0", 1), 0x0BAD0007),
    ryn.NotFound("there is no switch 'x'"),
    ryn.Gone("port dvs-1/3 is gone"),
    ryn.Ambiguous("switch 'x' is more than one"),
    ryn.InvalidResponse("Ryn_Get_Mirror_Conf", (0,), "a record reaches past the answer"),
    ryn.NotApplied("lro", True, False, 1.0),
    ryn.PlatformNotFound("libryn.so cannot be loaded", "libryn.so", ["/a", "/b"]),
    errors.TimeoutError("Ryn_SetLRO", (0, 1, 2, 1), 5.0),
    errors.TimeoutError("Ryn_SetLRO", (0, 1, 2, 1), 5.0, "Ryn_GetLRO"),
]


@pytest.mark.parametrize("error", EVERY_ERROR, ids=lambda error: type(error).__name__)
def test_every_error_is_an_error_of_the_package(error):
    assert isinstance(error, ryn.Error)


@pytest.mark.parametrize("error", EVERY_ERROR, ids=lambda error: type(error).__name__)
@pytest.mark.parametrize("copied", [copy.copy, lambda error: pickle.loads(pickle.dumps(error))])
def test_copies_say_the_same(error, copied):
    twin = copied(error)
    assert (type(twin), str(twin), vars(twin)) == (type(error), str(error), vars(error))


@pytest.mark.parametrize(
    "status, kind, says",
    [
        (0x0BAD0003, ryn.NotFound, "not found"),
        (0x0BAD0007, ryn.BadParameter, "bad parameter"),
        (5, ryn.PlatformError, "failed"),
        (0xFFFFFFFF, ryn.PlatformError, "failed"),
    ],
)
def test_the_two_documented_statuses_have_kinds_and_the_text_has_everything(status, kind, says):
    error = errors.platform_error("Ryn_Set_Dev_Affinity", ["lunic0", 1], status)
    assert type(error) is kind
    assert (error.operation, error.arguments, error.status) == ("Ryn_Set_Dev_Affinity", ("lunic0", 1), status)
    assert str(error) == f"Ryn_Set_Dev_Affinity('lunic0', 1): {says} (status 0x{status:08x})"


def test_kinds_are_builtin_ones_too():
    assert issubclass(ryn.PlatformNotFound, ImportError)
    assert issubclass(ryn.NotFound, LookupError)
    assert issubclass(ryn.NotFound, ryn.PlatformError)
    assert issubclass(ryn.BadParameter, ryn.PlatformError)
    assert issubclass(ryn.Gone, ryn.NotFound)
    assert issubclass(ryn.Ambiguous, LookupError)
    assert issubclass(ryn.TimeoutError, builtins.TimeoutError)


def test_a_star_import_leaves_the_builtin_timeout_error_alone():
    names: dict = {}
    exec("from ryn import *", names)
    assert "TimeoutError" not in names
    assert names["Host"] is ryn.Host


def test_a_look_up_that_found_nothing_has_no_operation():
    error = ryn.NotFound("there is no switch 'x'")
    assert (error.operation, error.arguments, error.status) == (None, None, None)


def test_the_time_out_says_what_hangs_and_that_a_change_may_still_happen():
    own = errors.TimeoutError("Ryn_SetLRO", (0, 1, 2, 1), 5.0)
    assert (own.operation, own.arguments, own.seconds, own.refused) == ("Ryn_SetLRO", (0, 1, 2, 1), 5.0, None)
    assert str(own) == "Ryn_SetLRO(0, 1, 2, 1) has not returned for 5.0 s; what it was to change may still happen"
    other = errors.TimeoutError("Ryn_SetLRO", (0, 1, 2, 1), 6.5, "Ryn_GetLRO")
    assert str(other) == "Ryn_GetLRO was not called: Ryn_SetLRO(0, 1, 2, 1) has not returned for 6.5 s"
