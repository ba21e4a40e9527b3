"""The speed test through proxies: the same figures, the same deadlines, and nothing that runs on behind the proxy. Further
kinds of proxies: test_proxies_long.py."""

import pytest
from behind_proxies import (check_cancel, check_far_away_speed_test, check_speed_test, check_unanswered_speed_test,
                            check_upload_from_here, fall_asleep, quit_the_program)


@pytest.mark.parametrize("scheme", ["http", "socks4a", "socks5"])
def test_a_test_through_a_proxy_that_works_has_both_figures_and_ends_at_its_deadline(lab, scheme):
    check_speed_test(lab, scheme)


@pytest.mark.parametrize("scheme, mode", [("http", ("silent",)), ("socks5", ("slow", 20)), ("socks5", ("dead",))])
def test_a_proxy_that_does_not_answer_fails_both_phases_and_is_left_at_their_deadlines(lab, scheme, mode):
    check_unanswered_speed_test(lab, scheme, mode)


@pytest.mark.parametrize("scheme", ["http", "socks5"])
def test_a_proxy_that_is_seconds_away_does_no_harm(lab, scheme):
    check_far_away_speed_test(lab, scheme)


@pytest.mark.parametrize("scheme, mode, end", [
    ("http", ("silent",), fall_asleep), ("socks5", ("slow", 20), fall_asleep), ("http", ("slow", 20), quit_the_program),
    ("socks5", ("silent",), quit_the_program)])
def test_a_test_whose_proxy_says_nothing_is_cancelled_at_once(lab, scheme, mode, end):
    check_cancel(lab, scheme, mode, end)


def test_an_upload_through_a_proxy_on_this_machine_shows_no_more_than_has_left_the_machine(lab):
    check_upload_from_here(lab, "http")
