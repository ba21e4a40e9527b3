"""Files and descriptors that cannot be had while the program runs: what its user sees. Settings: test_systems.py."""

import itertools
import resource
import shutil
import time
from pathlib import Path

import pytest
from hostility import LARGEST_SHARE, OVER_WITHIN
from support.processes import wait_until

CYCLE, LIMIT = 5, 3
# seconds: what counts here is whether it happens
BUSY = 10
SETTINGS = "[General]\ndidOnboard=true\n"


def start_after(lab, script):
    """Starts the program where these shell commands have changed the file system as it sees it."""
    lab.program.starter = ["sh", "-ec", script + '\nexec "$0"']
    lab.start()


def inside(lab, path):
    """The path as the program sees it."""
    return Path(f"/proc/{lab.program.pid}/root{path}")


def full_disk(folder, mode=1777):
    return f"mkdir -p {folder}; mount -t tmpfs -o size=64k,mode={mode} none {folder}; cat /dev/zero >{folder}/rest 2>/dev/null || true"


def is_at_work(lab):
    """It draws, obeys and checks."""
    asked = time.monotonic()
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY, since=asked)
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("green", BUSY)
    assert lab.servers.requests(asked)


def shows_no_traffic(state):
    return state.milliseconds and state.traffic is None


def test_settings_that_cannot_be_written_hold_for_as_long_as_it_runs(lab):
    folder = lab.program.settings_file.parent
    start_after(lab, f"mount --bind {folder} {folder}; mount -o remount,bind,ro {folder}")
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    assert lab.program.settings_file.read_text() == SETTINGS
    is_at_work(lab)


AUTOSTART_FAULTS = {
    "read-only": "mkdir -p {0}; mount --bind {0} {0}; mount -o remount,bind,ro {0}",
    "full": full_disk("{0}"),
    "a file in its place": "touch {0}",
    "a pipe in its place": "mkfifo {0}",
    "a folder in the place of its file": "mkdir -p {0}/com.vorn.skylet.desktop/full",
}


@pytest.mark.parametrize("fault", AUTOSTART_FAULTS)
def test_launch_at_login_that_cannot_be_stored_stays_as_it_is(lab, fault):
    start_after(lab, AUTOSTART_FAULTS[fault].format(lab.program.home / "config/autostart"))
    before = lab.area.menu()["Launch at Login"].checked
    for _ in range(2):
        lab.area.click("Launch at Login")
        time.sleep(0.5)
        assert lab.area.menu()["Launch at Login"].checked == before
    is_at_work(lab)


LOG_FAULTS = {
    "a link to a file": "echo precious >{0}/precious; ln -s {0}/precious /tmp/skylet.log",
    "a link to nothing": "ln -s {0}/nothing /tmp/skylet.log",
    "a second name of a file": "echo precious >/tmp/precious; ln /tmp/precious /tmp/skylet.log",
    "a pipe": "mkfifo /tmp/skylet.log",
    "a folder": "mkdir /tmp/skylet.log",
    "a device": "mknod /tmp/skylet.log c 1 7",
    "no room": full_disk("/tmp"),
    "a folder that is read-only": "mount -t tmpfs -o ro none /tmp",
}


@pytest.mark.parametrize("fault", LOG_FAULTS)
def test_a_log_that_cannot_be_written_is_left_out(lab, fault):
    start_after(lab, LOG_FAULTS[fault].format(lab.program.home))
    assert not (lab.program.home / "nothing").exists()
    assert {file.name for file in inside(lab, "/tmp").glob("skylet.log*")} <= {"skylet.log"}
    for precious in (lab.program.home / "precious", inside(lab, "/tmp/precious")):
        assert not precious.exists() or precious.read_text() == "precious\n"
    is_at_work(lab)


def test_without_room_for_pictures_they_go_over_the_bus_until_there_is_some(lab):
    folder = lab.program.environment["XDG_RUNTIME_DIR"]
    # one that anybody may write to is none to the program
    start_after(lab, full_disk(folder, mode=700))
    is_at_work(lab)
    assert not list(inside(lab, folder).rglob("*.png"))
    (inside(lab, folder) / "rest").unlink()
    lab.area.click("Pause Automatic Checks")
    pictures = wait_until(lambda: list(inside(lab, folder).rglob("*.png")), BUSY, "a picture in the folder")
    assert all(picture.read_bytes().endswith(b"IEND\xaeB`\x82") for picture in pictures), "one is not whole"
    assert lab.program.end()[0] == 0


def test_a_runtime_folder_that_is_cleaned_up_gets_its_pictures_again(lab):
    lab.start()
    folder = Path(lab.program.environment["XDG_RUNTIME_DIR"])
    for entry in folder.iterdir():
        shutil.rmtree(entry) if entry.is_dir() else entry.unlink()
    is_at_work(lab)
    assert lab.program.end()[0] == 0
    assert not list(folder.rglob("*.png"))


def test_a_home_that_vanishes_is_missed_by_nobody(lab):
    lab.start()
    shutil.rmtree(lab.program.home / "config")
    (lab.program.home / "config").touch()
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    lab.area.click("Launch at Login")
    time.sleep(0.5)
    assert not lab.area.menu()["Launch at Login"].checked
    is_at_work(lab)


def no_descriptors(lab):
    """The program gets no more of them than it has. As often as it gives one back this has to be called again."""
    held = {int(entry.name) for entry in Path(f"/proc/{lab.program.pid}/fd").iterdir()}
    first_free = next(number for number in itertools.count() if number not in held)
    _, hard = resource.prlimit(lab.program.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(lab.program.pid, resource.RLIMIT_NOFILE, (first_free, hard))


def enough_descriptors(lab):
    _, hard = resource.prlimit(lab.program.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(lab.program.pid, resource.RLIMIT_NOFILE, (1024, hard))


def starve(lab, seconds, until=lambda state: False):
    """Keeps it without descriptors for so long, or until the status area shows a state that `until` accepts."""
    begun = time.monotonic()
    while time.monotonic() < begun + seconds and not any(until(state) for state in lab.area.since(begun)):
        no_descriptors(lab)
        time.sleep(0.02)
    return lab.area.since(begun)


def test_without_a_descriptor_to_be_had_it_is_offline_and_green_again_once_there_are_some(lab):
    lab.link.set(rtt_ms=20)
    lab.start()
    time.sleep(1)
    before = lab.program.descriptors()
    lab.link.set(hole=True)  # until it has given its connections up
    lab.area.click("Check Connection Now")
    starve(lab, 3 * BUSY, lambda state: state.dot == "red")
    starve(lab, 1)
    lab.link.set(hole=False)
    calm = lab.program.cost()
    shown = starve(lab, BUSY)
    spent = lab.program.cost()
    assert {state.dot for state in shown} == {"red", "yellow"}
    print(f"processor {(spent.cpu_s - calm.cpu_s) / (spent.time - calm.time):.1%}")
    assert (spent.cpu_s - calm.cpu_s) / (spent.time - calm.time) < LARGEST_SHARE
    lab.area.click("Launch at Login")
    lab.area.click("Show Live Traffic")
    lab.area.click("About Skylet")
    time.sleep(1)
    assert lab.program.settings_file.read_text() == SETTINGS
    enough_descriptors(lab)
    lab.area.wait_for("green", OVER_WITHIN + LIMIT)
    is_at_work(lab)
    time.sleep(CYCLE)
    assert lab.program.descriptors() <= before + 4


def test_a_speed_test_without_a_descriptor_to_be_had_fails_and_the_next_one_does_not(lab):
    lab.serve_speed_test()
    lab.link.set(rtt_ms=20, rate_kbit=20000)
    lab.start()
    time.sleep(1)
    no_descriptors(lab)
    lab.area.click("Run Speed Test")
    assert "failed" in starve(lab, 3 * BUSY, lambda state: "failed" in state.label)[-1].label
    enough_descriptors(lab)
    lab.area.click("Run Speed Test")
    began = time.monotonic()
    lab.area.wait_for(lambda state: "Mbps" in state.label and state.time > began, 3 * BUSY)
