"""Items of a caller's list or tuple that are no ints; on every interpreter in tests/checks/test_interpreters.py."""

import conversions


def test_items_that_are_no_ints_go_out_as_4294967295_with_type_error_pending(ryn, double):
    assert conversions.check(ryn, double) == 3 * (len(conversions.NO_INTS) + 1)
