"""What is logged for whoever asks why the dot is red (README.md)."""

import time

import pytest


def sign_in_page(lab):
    for endpoint in lab.servers.both:
        endpoint.set(status=302, headers={"location": "https://portal.example/login"})


def certificate_of_its_own(lab):
    for endpoint in lab.servers.both:
        endpoint.set(certificate="self-signed")


def dead_resolver(lab):
    lab.network.names_from_dns()
    lab.servers.answer_dns(False)


REASONS = {
    "gate": (lambda lab: lab.link.set(hole=True), "timed out connecting after"),
    "resolver": (dead_resolver, "timed out looking up its name after"),
    "portal": (certificate_of_its_own, "certificate"),
    "redirect": (sign_in_page, "status 302 from https://"),
    "route": (lambda lab: lab.link.remove_default_route(), "skylet.connectivity: offline: the network path is gone"),
}


@pytest.mark.parametrize("reason", REASONS)
def test_the_log_says_why_it_is_red(lab, reason):
    lab.program.environment["QT_LOGGING_RULES"] = "skylet.*=true"
    begin, expected = REASONS[reason]
    begin(lab)
    lab.start(until="red")
    time.sleep(0.2)
    print(lab.program.said())
    assert expected in lab.program.said()
    assert "skylet.connectivity: offline: " in lab.program.said()


def test_nothing_is_logged_unless_asked_for(lab):
    sign_in_page(lab)
    lab.start(until="red")
    assert lab.program.said() == ""
