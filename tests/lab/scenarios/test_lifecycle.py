"""Start and end, and a desktop that lacks something."""

import os
import signal
import time

import pytest


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_cleanly_and_the_wire_is_silent_after(lab, how):
    lab.link.set(rtt_ms=20)
    lab.start()
    code, seconds = lab.program.end(how)
    assert code == 0
    assert seconds < 1
    time.sleep(0.3)  # the farewells of the connections
    lab.link.reset()
    time.sleep(2)
    assert lab.link.bytes() == 0


def test_a_signal_in_the_middle_of_a_probe_ends_it_too(lab):
    lab.link.set(hole=True)
    lab.program.start()
    time.sleep(1.5)
    code, seconds = lab.program.end()
    assert (code, seconds < 1) == (0, True)


def test_without_a_session_bus_it_says_so_in_one_line(lab):
    lab.program.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={lab.network.folder}/nothing-here"
    lab.program.start()
    assert lab.program.wait(10) == 1
    lines = lab.program.said().splitlines()
    assert len(lines) == 1
    assert "session bus" in lines[0].lower()


def test_it_takes_no_arguments_not_even_those_that_its_toolkit_would(lab):
    lab.program.arguments = ["-platform", "nonsense", "--help"]
    lab.start()


def test_it_ends_cleanly_when_its_session_bus_dies(lab):
    lab.start()
    os.kill(lab.session_bus.pid, signal.SIGKILL)
    assert lab.program.wait(1) == 0
    time.sleep(0.3)  # the farewells of the connections
    lab.link.reset()
    time.sleep(2)
    assert lab.link.bytes() == 0


def test_a_system_bus_is_not_needed(lab):
    lab.program.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={lab.network.folder}/nothing-here"
    lab.start()


def test_a_corrupt_settings_file_counts_as_empty_and_is_kept_until_something_is_stored(lab):
    garbage = b"\x00\xff[General\ndidOnboard=maybe\nshowTraffic=\x01\x02"
    lab.program.settings_file.write_bytes(garbage)
    assert lab.start().traffic is not None
    assert lab.program.settings_file.read_bytes() == garbage
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(lambda state: state.milliseconds and state.traffic is None, 1)
    assert b"showTraffic=false" in lab.program.settings_file.read_bytes()


def test_a_second_start_ends_at_once_and_leaves_the_first_alone(lab):
    lab.start()
    second = lab.program.start_another()
    assert second.wait(2) == 0
    assert lab.program.running
    assert lab.area.now.dot == "green"
