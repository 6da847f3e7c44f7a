"""Items of a caller's list or tuple that are not ints, and their errors.

Every interpreter goes through the same in tests/checks/test_interpreters.py.
"""

import conversions
import deferred_errors


def test_items_that_are_no_ints_go_out_as_4294967295_with_type_error_pending(ryn, double):
    assert conversions.check(ryn, double) == 3 * (len(conversions.NO_INTS) + 1)


def test_first_error_of_the_items_stays_and_the_others_are_released(ryn, double):
    deferred_errors.check(ryn, double)
