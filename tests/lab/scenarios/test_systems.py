"""Systems that lack something or are at fault: no room on the disk, no home, no display, buses that are mute or cut, a session manager."""

import ctypes
import json
import os
import signal
import socket
import sys
from pathlib import Path

import network
import pytest
from support.processes import Tool, wait_until

SESSION_MANAGER = Path(__file__).parents[1] / "session_manager.py"
RESTART_NEVER = "3"
# seconds: what counts here is whether it happens
BUSY = 10


def shows_no_traffic(state):
    return state.milliseconds and state.traffic is None


def as_the_program_sees(lab, path):
    return Path(f"/proc/{lab.program.pid}/root{path}")


def test_a_full_disk_leaves_the_settings_as_they_were_and_the_choice_holds(lab):
    folder = lab.program.settings_file.parent
    lab.program.starter = ["sh", "-c", f"""
        mount -t tmpfs -o size=64k none {folder} && printf '[General]\\ndidOnboard=true\\n' >{folder}/skylet.ini
        cat /dev/zero >{folder}/rest 2>/dev/null
        exec "$0" """]
    lab.start()
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    place = as_the_program_sees(lab, folder)
    assert (place / "skylet.ini").read_text() == "[General]\ndidOnboard=true\n"
    assert sorted(path.name for path in place.iterdir()) == ["rest", "skylet.ini"]
    (place / "rest").unlink()
    lab.area.click("Show Live Traffic")
    wait_until(lambda: "showTraffic=true" in (place / "skylet.ini").read_text(), BUSY, "it is stored once there is room")


@pytest.mark.parametrize("make", [Path.mkdir, os.mkfifo, Path.touch])
def test_nothing_beside_the_settings_holds_up_a_toggle(lab, make):
    make(lab.program.settings_file.with_name("skylet.ini.lock"))
    lab.start()
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    assert "showTraffic=false" in lab.program.settings_file.read_text()


def test_settings_that_are_kept_elsewhere_stay_a_link(lab):
    file, elsewhere = lab.program.settings_file, lab.program.home / "dotfiles.ini"
    file.rename(elsewhere)
    file.symlink_to(elsewhere)
    lab.start()
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    assert file.is_symlink()
    assert "showTraffic=false" in elsewhere.read_text()


def leave_without_home(lab, user_database):
    """The program has neither HOME nor XDG_CONFIG_HOME; /etc/passwd is the text given."""
    (network.ETC_NETNS / lab.network.client.name / "passwd").write_text(user_database)
    for name in ("HOME", "XDG_CONFIG_HOME"):
        del lab.program.environment[name]


def entries_of(folder):
    return {path.name for path in folder.iterdir()} if folder.exists() else set()


def test_without_home_everything_is_where_the_user_database_says(lab):
    leave_without_home(lab, f"root:x:0:0::{lab.program.home}/elsewhere:/bin/sh\n")
    before = entries_of(Path("/.config"))
    lab.start()
    for choice in ("Show Live Traffic", "Launch at Login"):
        lab.area.click(choice)
    config = lab.program.home / "elsewhere/.config"
    wait_until(lambda: entries_of(config) == {"skylet", "autostart"}, BUSY, "both are stored")
    assert entries_of(Path("/.config")) == before


def test_without_any_home_nothing_is_written(lab):
    leave_without_home(lab, "nobody:x:65534:65534::/nonexistent:/bin/sh\n")
    before = entries_of(Path("/.config"))
    lab.start()
    for choice in ("Show Live Traffic", "Launch at Login"):
        lab.area.click(choice)
    lab.area.wait_for(shows_no_traffic, BUSY)
    assert not lab.area.menu()["Launch at Login"].checked
    assert entries_of(Path("/.config")) == before


@pytest.mark.parametrize("environment", [
    {"QT_QPA_PLATFORM": "xcb", "DISPLAY": ":99"}, {"QT_QPA_PLATFORM": "wayland", "WAYLAND_DISPLAY": "nothing-here"},
    {"QT_QPA_PLATFORM": "nonsense"}, {"DISPLAY": ":99"}, {}])
def test_without_a_display_it_says_so_and_ends_with_one(lab, environment):
    del lab.program.environment["QT_QPA_PLATFORM"]
    lab.program.environment |= environment
    lab.program.start()
    assert lab.program.wait(BUSY) == 1
    last = lab.program.said().splitlines()[-1]
    assert last.startswith("skylet: ")
    assert "display" in last


NOBODY_READS = 'mkfifo "$TMPDIR/pipe"; : <"$TMPDIR/pipe" & exec >"$TMPDIR/pipe" 2>&1; wait'


@pytest.mark.parametrize("shell", ["exec <&- >&- 2>&-", "ulimit -f 0", NOBODY_READS],
                         ids=["no standard streams", "no file may grow", "who read its output has gone"])
def test_it_runs_as_any_launcher_starts_it(lab, shell):
    lab.program.starter = ["sh", "-c", f'{shell}; exec "$0"']
    lab.start()
    lab.area.click("About Skylet")  # of which Qt has something to say
    lab.area.click("Show Live Traffic")
    lab.area.wait_for(shows_no_traffic, BUSY)
    assert lab.program.end()[0] == 0


@pytest.mark.parametrize("environment", [
    {"XDG_RUNTIME_DIR": "/nonexistent"}, {"XDG_RUNTIME_DIR": "/dev/null"}, {"XDG_RUNTIME_DIR": "/proc"},
    {"FONTCONFIG_FILE": "/dev/null"}])
def test_it_runs_without_a_runtime_folder_and_without_fonts(lab, environment):
    lab.program.environment |= environment
    lab.start()
    second = lab.program.start_another()
    assert second.wait(BUSY) == 0
    assert lab.program.end()[0] == 0


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_a_mute_system_bus_holds_up_neither_the_start_nor_the_end(lab, how):
    path = lab.network.folder / "mute"
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(path))
        listener.listen()
        lab.program.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={path}"
        lab.start()
        client, _ = listener.accept()
        with client:
            assert lab.program.end(how)[0] == 0


def test_a_mute_session_bus_is_waited_for_and_that_is_said(lab):
    os.kill(lab.session_bus.pid, signal.SIGSTOP)
    try:
        lab.program.start()
        wait_until(lambda: "session bus, which does not answer" in lab.program.said(), 3 * BUSY, "it says so")
    finally:
        os.kill(lab.session_bus.pid, signal.SIGCONT)
    lab.area.wait_for(lambda state: state.milliseconds, BUSY)


def test_a_system_bus_that_comes_late_is_found(lab):
    logind = lab.logind()
    address = lab.network.folder / "late"
    lab.program.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={address}"
    lab.start()
    assert not logind.inhibitors()
    address.symlink_to(lab.system_bus.address.removeprefix("unix:path="))
    wait_until(lambda: logind.inhibitors() == [("sleep", "delay")], 3 * BUSY, "the suspend is held up")


def sockets_of(process):
    """Duplicates of a process's open sockets."""
    libc = ctypes.CDLL(None, use_errno=True)
    pidfd_getfd = 438
    handle = os.pidfd_open(process)
    for entry in sorted(Path(f"/proc/{process}/fd").iterdir(), key=lambda path: int(path.name)):
        if os.readlink(entry).startswith("socket:"):
            yield socket.socket(fileno=libc.syscall(pidfd_getfd, handle, int(entry.name), 0))
    os.close(handle)


@pytest.mark.parametrize("which", [0, 1])
def test_it_ends_when_any_of_its_connections_to_the_session_bus_is_cut(lab, which):
    lab.start()
    bus = lab.session_bus.address.removeprefix("unix:path=")
    connections = [held for held in sockets_of(lab.program.pid) if held.family == socket.AF_UNIX and held.getpeername() == bus]
    assert len(connections) == 2, "the item has one of its own"
    connections[which].shutdown(socket.SHUT_RDWR)
    assert lab.program.wait(BUSY) == 0


def test_a_session_manager_is_asked_not_to_start_it_again(lab):
    lab.start_screen()
    with lab.network.client.popen([sys.executable, SESSION_MANAGER], kind=Tool) as manager:
        lab.program.environment["SESSION_MANAGER"] = manager.ask("address")
        lab.start()
        clients = wait_until(lambda: [client for client in json.loads(manager.ask("clients")) if "RestartStyleHint" in client],
                             BUSY, "the session manager has been told")
        assert [client["RestartStyleHint"] for client in clients] == [[RESTART_NEVER]]
        assert lab.program.end()[0] == 0
