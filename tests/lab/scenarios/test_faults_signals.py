"""SIGTERM, SIGINT and SIGHUP in each state of the engine, the speed test and the windows: it ends, and takes its item along."""

import signal
import time
from pathlib import Path

import pytest
from lab import green_with_its_label
from support.processes import wait_until

SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)
# seconds: what counts here is whether it happens
BUSY = 10
RUN = "Run Speed Test"


def green(lab):
    lab.start()


def just_started(lab):
    lab.program.start()
    lab.area.wait_for(lambda state: state.dot, BUSY, since=lab.program.started)


def first_check(lab):
    lab.link.set(hole=True)
    just_started(lab)
    time.sleep(0.5)


def between_two_checks(lab):
    for endpoint in lab.servers.both:
        endpoint.set(status=500)
    lab.program.start()
    lab.area.wait_for(lambda _: "a confirming cycle follows" in lab.program.said(), BUSY, since=lab.program.started)


def offline(lab):
    for endpoint in lab.servers.both:
        endpoint.set(status=500)
    lab.start(until="red")


def without_a_path(lab):
    lab.link.remove_default_route()
    lab.start(until="red")


def names_unanswered(lab):
    lab.network.names_from_dns()
    lab.servers.answer_dns(False)
    just_started(lab)
    time.sleep(0.5)


def paused(lab):
    lab.start()
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY)


def asleep(lab):
    lab.start()
    wait_until(lambda: lab.logind_.inhibitors(), BUSY, "the suspend is held up")
    lab.logind_.prepare_for_sleep(True)
    lab.area.wait_for("yellow", BUSY)


def without_a_status_area(lab):
    lab.start()
    lab.area.stop()


def start_speed_test(lab, seconds, **behaviour):
    lab.speed.set("down", **behaviour)
    lab.start()
    lab.area.click(RUN)
    lab.area.wait_for(lambda state: "Speed test running" in state.label, BUSY)
    time.sleep(seconds)


def unanswered_speed_test(lab):
    start_speed_test(lab, 0.5, at=0, deed="stall")


def download(lab):
    start_speed_test(lab, 2)


def upload(lab):
    start_speed_test(lab, 6)


def finished_speed_test(lab):
    start_speed_test(lab, 0)
    lab.area.wait_for(lambda state: "Mbps" in state.label, 2 * BUSY)


def welcome(lab):
    lab.program.settings_file.unlink(missing_ok=True)
    lab.start()


def about(lab):
    lab.start()
    lab.area.click("About Skylet")
    time.sleep(0.3)


@pytest.fixture(name="lab")
def _lab(lab):
    lab.program.environment["QT_LOGGING_RULES"] = "skylet.connectivity=true"
    lab.link.set(rtt_ms=20, rate_kbit=4000)
    lab.speed, lab.logind_ = lab.serve_speed_test(), lab.logind()
    return lab


def make_well(lab):
    """As before the first start."""
    lab.link.set(hole=False)
    lab.network.names_from_hosts_file()
    lab.servers.answer_dns(True)
    for endpoint in lab.servers.both:
        endpoint.set()
    lab.network.client.ip(f"route replace default via {lab.link.gateway} dev wlan0 metric 100")
    lab.program.settings_file.write_text("[General]\ndidOnboard=true\n")


@pytest.mark.parametrize("reach", [
    just_started, green, first_check, between_two_checks, offline, without_a_path, names_unanswered, paused, asleep,
    without_a_status_area, unanswered_speed_test, download, upload, finished_speed_test, welcome, about], ids=lambda reach: reach.__name__)
def test_any_of_the_signals_ends_it_and_nothing_is_left(lab, reach):
    for how in SIGNALS:
        make_well(lab)
        reach(lab)
        code, seconds = lab.program.end(how)
        print(f"{how.name}: {seconds:.2f} s")
        assert code == 0
        lab.area.wait_for(lambda state: state.dot is None, BUSY)
        for folder in ("XDG_RUNTIME_DIR", "TMPDIR"):
            assert not list(Path(lab.program.environment[folder]).iterdir())
        if reach is asleep:
            lab.logind_.prepare_for_sleep(False)
        if reach is without_a_status_area:
            lab.area.start()


def test_after_any_of_them_it_starts_again_as_if_nothing_had_been(lab):
    for how in SIGNALS:
        lab.start()
        assert lab.program.end(how)[0] == 0
        lab.program.start()
        lab.area.wait_for(green_with_its_label, BUSY, since=lab.program.started)
        assert lab.program.end()[0] == 0
