"""Proxies from the environment: the dot says what a browser behind the same proxy would find, whatever state that is in. Further
kinds of proxies: test_proxies_long.py."""

import time

import network
import pytest
from behind_proxies import (CYCLE, LIMIT, NAMED, OFFLINE_WAIT, RECOVERED_WITHIN, RETRY, SLACK, check_far_away, notice,
                            recover, use)

RED_WITHIN = CYCLE + LIMIT + RETRY + LIMIT + 2 * SLACK


def addresses_of_clients(lab):
    return {connection["address"] for endpoint in lab.servers.both for connection in endpoint.connections()}


@pytest.mark.parametrize("scheme, where", [*((scheme, "far") for scheme in NAMED), ("http", "here"), ("socks5", "here")])
def test_behind_a_proxy_that_works_the_dot_is_green(lab, scheme, where):
    proxy = use(lab, scheme, where)
    lab.link.set(rtt_ms=20)
    lab.start(within=3)
    lab.area.click("Check Connection Now")
    # over a kept connection; one answer may come while the machine is busy
    lab.area.wait_for(lambda state: state.milliseconds and state.milliseconds < 40, 4 * CYCLE)
    clients = proxy.clients()
    assert {client["kind"] for client in clients} == {scheme.removesuffix("h")}
    assert {client["named"] for client in clients} == {NAMED[scheme]}
    if where == "far":
        assert addresses_of_clients(lab) & {lab.link.near} == set(), "nobody went past the proxy"


@pytest.mark.parametrize("variable", ["all_proxy", "ALL_PROXY", "HTTPS_PROXY"])
def test_each_of_the_usual_variables_names_the_proxy(lab, variable):
    proxy = use(lab, "http", variable=variable)
    lab.start(within=3)
    assert proxy.clients() and lab.link.near not in addresses_of_clients(lab)


@pytest.mark.parametrize("address", ["http://127.0.0.1:99999", "socks5://127.0.0.1:3128 "])
def test_nobody_goes_past_a_proxy_whose_address_is_none(lab, address):
    lab.program.environment["https_proxy"] = address
    lab.start(until="red", within=RED_WITHIN)
    assert not addresses_of_clients(lab)


@pytest.mark.parametrize("exception", ["name", "domain", "*"])
def test_names_that_the_environment_excepts_are_asked_directly(lab, exception):
    proxy = use(lab, "http")
    proxy.set("dead")
    excepted = {"name": ",".join(network.ENDPOINT_NAMES),
                "domain": ",".join("." + name.split(".", 1)[1] for name in network.ENDPOINT_NAMES), "*": "*"}[exception]
    lab.program.environment["no_proxy"] = excepted
    lab.start(within=3)
    assert not proxy.clients()
    assert lab.link.near in addresses_of_clients(lab)


def test_one_name_that_is_excepted_goes_directly_and_the_other_by_the_proxy(lab):
    proxy = use(lab, "http")
    lab.program.environment["no_proxy"] = network.ENDPOINT_NAMES[0]
    lab.start(within=3)
    time.sleep(1)
    assert {client["host"] for client in proxy.clients()} == {network.ENDPOINT_NAMES[1]}
    assert {connection["address"] for connection in lab.servers.first.connections()} == {lab.link.near}


def without_names(lab):
    """Whoever looks up a name here learns nothing."""
    lab.network.names_from_dns()
    lab.servers.answer_dns(False)


@pytest.mark.parametrize("scheme", ["http", "socks4a", "socks5h"])
def test_a_proxy_that_looks_up_the_names_makes_do_without_a_resolver_here(lab, scheme):
    use(lab, scheme)
    without_names(lab)
    lab.start(within=3)
    assert not [packet for packet in lab.link.trace("up") if packet["far"] == network.DNS_ADDRESS]


def test_a_proxy_that_is_given_addresses_depends_on_the_resolver_here(lab):
    proxy = use(lab, "socks5")
    without_names(lab)
    lab.start(until="red", within=RED_WITHIN)
    assert not [client for client in proxy.clients() if client["host"]]
    lab.servers.answer_dns(True)
    lab.area.wait_for("green", RECOVERED_WITHIN)


@pytest.mark.parametrize("scheme, mode", [
    ("http", ("dead",)), ("http", ("silent",)), ("http", ("slow", 20)), ("http", ("refuse",)), ("socks5", ("silent",)),
    ("socks5", ("refuse",))], ids=str)
def test_a_proxy_that_breaks_turns_the_dot_red_and_one_that_recovers_green(lab, scheme, mode):
    proxy = use(lab, scheme)
    lab.start(within=3)
    notice(lab, proxy, mode)
    recover(lab, proxy)


def test_a_start_behind_a_proxy_that_says_nothing_keeps_the_schedule(lab):
    proxy = use(lab, "socks5h")
    proxy.set("silent")
    red = lab.start(until="red", within=LIMIT + RETRY + LIMIT + 2 * SLACK)
    first = proxy.clients()[0]["time"]
    again = lab.area.wait_for("yellow", OFFLINE_WAIT + LIMIT + SLACK, since=red.time)
    print(f"red {red.time - first:.2f} s after the first word to the proxy, yellow again {again.time - first:.2f} s")
    assert red.time - first < LIMIT + RETRY + LIMIT + SLACK
    lab.area.wait_for("red", RETRY + LIMIT + SLACK, since=again.time)  # the fourth silent probe
    recover(lab, proxy)


@pytest.mark.parametrize("scheme, mode", [("http", ("silent",)), ("socks4a", ("slow", 5)), ("socks5", ("silent",))], ids=str)
def test_the_program_ends_at_once_while_its_proxy_is_not_answering(lab, scheme, mode):
    proxy = use(lab, scheme)
    proxy.set(*mode)
    lab.program.start()
    lab.area.wait_for(lambda state: state.dot, 3)
    time.sleep(1)
    assert proxy.clients()
    code, seconds = lab.program.end()
    assert code == 0
    assert seconds < 1


def test_a_long_way_to_the_proxy_is_slow_and_not_offline(lab):
    check_far_away(lab, "socks5")
