"""All kinds of proxies in all states, one after the other and over and over: minutes each."""

import time

import pytest
from behind_proxies import (NAMED, check_cancel, check_far_away, check_far_away_speed_test, check_speed_test,
                            check_unanswered_speed_test, check_upload_from_here, fall_asleep, notice, quit_the_program, recover,
                            use)


STATES = [("dead",), ("silent",), ("slow", 20), ("refuse",), ("silent",)]


@pytest.mark.parametrize("where", ["far", "here"])
@pytest.mark.parametrize("scheme", NAMED)
def test_a_proxy_that_goes_through_all_its_states_is_followed_each_time(lab, scheme, where):
    proxy = use(lab, scheme, where)
    lab.link.set(rtt_ms=20)
    lab.start(within=3)
    for state in STATES:
        notice(lab, proxy, state)
        recover(lab, proxy)
        time.sleep(3)


@pytest.mark.parametrize("seconds", [5, 20])
@pytest.mark.parametrize("scheme", NAMED)
def test_a_proxy_that_is_slow_to_connect_is_waited_for_and_what_it_has_connected_is_kept(lab, scheme, seconds):
    proxy = use(lab, scheme)
    proxy.set("slow", seconds)
    lab.program.start()
    green = lab.area.wait_for("green", seconds + 10)
    print(f"green after {green.time - lab.program.started:.1f} s")
    time.sleep(30)
    assert {state.dot for state in lab.area.since(green.time)} == {"green"}


@pytest.mark.parametrize("scheme", NAMED)
def test_minutes_of_a_silent_proxy_pile_nothing_up_and_are_over_when_they_are_over(lab, scheme):
    proxy = use(lab, scheme)
    lab.start(within=3)
    time.sleep(6)
    threads, descriptors = lab.program.threads(), lab.program.descriptors()
    notice(lab, proxy, ("silent",))
    most = (0, 0)
    for _ in range(90):
        time.sleep(1)
        most = tuple(map(max, most, (lab.program.threads(), lab.program.descriptors())))
    print(f"threads {threads}, at most {most[0]}; descriptors {descriptors}, at most {most[1]}")
    assert most[0] <= threads + 2
    assert most[1] <= descriptors + 10
    recover(lab, proxy)


@pytest.mark.parametrize("scheme", ["http", "socks4", "socks4a", "socks5h"])
def test_a_long_way_to_further_proxies_is_slow_and_not_offline(lab, scheme):
    check_far_away(lab, scheme)


@pytest.mark.parametrize("scheme", ["socks4", "socks5h"])
def test_further_proxies_that_work_have_both_figures(lab, scheme):
    check_speed_test(lab, scheme)


@pytest.mark.parametrize("mode", [("dead",), ("silent",), ("slow", 5), ("slow", 20), ("refuse",)], ids=str)
@pytest.mark.parametrize("scheme", NAMED)
def test_speed_tests_through_proxies_that_do_not_answer_fail_in_time(lab, scheme, mode):
    check_unanswered_speed_test(lab, scheme, mode)


@pytest.mark.parametrize("scheme", ["socks4", "socks4a", "socks5h"])
def test_further_proxies_that_are_seconds_away_do_no_harm(lab, scheme):
    check_far_away_speed_test(lab, scheme)


@pytest.mark.parametrize("mode", [("silent",), ("slow", 20)], ids=str)
@pytest.mark.parametrize("end", [fall_asleep, quit_the_program])
@pytest.mark.parametrize("scheme", NAMED)
def test_speed_tests_whose_proxy_says_nothing_are_cancelled_at_once(lab, scheme, end, mode):
    check_cancel(lab, scheme, mode, end)


@pytest.mark.parametrize("scheme", ["socks4", "socks4a", "socks5", "socks5h"])
def test_uploads_through_further_proxies_on_this_machine_show_no_more_than_has_left(lab, scheme):
    check_upload_from_here(lab, scheme)
