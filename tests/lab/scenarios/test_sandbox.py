"""Behind the filter that flatpak puts before the message buses, with the permissions of the manifest, and with less."""

import json
import shutil
import subprocess
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

import pytest
from support.processes import BARE_ENVIRONMENT, Child, Tool, wait_until

TESTS = Path(__file__).parents[2]
MANIFEST = TESTS.parent / "packaging/flatpak/com.vorn.skylet.yml"
# seconds: what counts here is whether it happens, and the filter takes its time on a busy machine
BUSY = 10
INHIBITOR = ("sleep", "delay")
STATUS_AREA, SCREEN_LOCK = "--talk-name=org.kde.StatusNotifierWatcher", "--talk-name=org.gnome.Shell.ScreenShield"
LOGIND = "--system-talk-name=org.freedesktop.login1"
# an argument of the manifest's: the bus that it is about, and what the filter calls it
RULES = {"--talk-name": ("session", "talk"), "--own-name": ("session", "own"),
         "--system-talk-name": ("system", "talk"), "--system-own-name": ("system", "own")}


@pytest.fixture(name="manifest", scope="module")
def _manifest():
    for tool in ("flatpak-builder", "xdg-dbus-proxy"):
        if not shutil.which(tool):
            pytest.skip(f"{tool} is not installed")
    with tempfile.TemporaryDirectory() as folder:  # where it would leave a folder of its own
        return json.loads(subprocess.run(["flatpak-builder", "--show-manifest", MANIFEST], stdout=subprocess.PIPE, check=True,
                                         env=BARE_ENVIRONMENT, cwd=folder).stdout)


def filter_of(lab, bus, which, rules):
    """Puts a filter before the bus; the program gets no other from now on. Returns its process."""
    path = lab.network.folder / f"{which}-filter"
    child = Child(["xdg-dbus-proxy", bus.address, path, "--filter", *rules])
    wait_until(path.exists, 5, f"the filter of the {which} bus is there")
    lab.program.environment[f"DBUS_{which.upper()}_BUS_ADDRESS"] = f"unix:path={path}"
    return child


@pytest.fixture(name="enter_sandbox")
def _enter_sandbox(lab, manifest):
    """A function that lets the program have what the manifest says, `without` some of its arguments."""
    with ExitStack() as stack:
        def enter(without=()):
            # what flatpak grants to each application by itself
            name = manifest["id"]
            rules = {"session": [f"--own={name}", f"--own={name}.*", "--call=org.freedesktop.portal.*=*",
                                 "--broadcast=org.freedesktop.portal.*=@/org/freedesktop/portal/*"], "system": []}
            for argument in set(manifest["finish-args"]) - set(without):
                option, _, value = argument.partition("=")
                if option in RULES:
                    bus, rule = RULES[option]
                    rules[bus].append(f"--{rule}={value}")
            stack.enter_context(filter_of(lab, lab.session_bus, "session", rules["session"]))
            stack.enter_context(filter_of(lab, lab.system_bus, "system", rules["system"]))
        yield enter


def test_it_is_in_the_status_area_and_its_menu_works(lab, enter_sandbox):
    enter_sandbox()
    assert lab.start().milliseconds
    lab.area.click("Pause Automatic Checks")
    lab.area.wait_for("gray", BUSY)


def test_it_comes_back_to_a_panel_that_crashed(lab, enter_sandbox):
    enter_sandbox()
    lab.start()
    stopped = time.monotonic()
    lab.area.stop()
    lab.area.wait_for(lambda state: state.dot is None, BUSY, since=stopped)
    lab.area.start()
    lab.area.wait_for("green", BUSY)


def test_a_second_start_finds_the_first(lab, enter_sandbox):
    enter_sandbox()
    lab.start()
    assert lab.program.start_another().wait(BUSY) == 0
    assert lab.program.running


def test_it_holds_up_the_suspend_and_is_told_of_it(lab, enter_sandbox):
    logind = lab.logind()
    enter_sandbox()
    lab.start()
    wait_until(lambda: INHIBITOR in logind.inhibitors(), BUSY, "the suspend is held up")
    asleep = time.monotonic()
    logind.prepare_for_sleep(True)
    lab.area.wait_for("yellow", BUSY, since=asleep)
    wait_until(lambda: INHIBITOR not in logind.inhibitors(), BUSY, "the suspend may go on")


def test_without_the_permission_for_it_no_status_area_can_be_found(lab, enter_sandbox):
    enter_sandbox(without=[STATUS_AREA])
    lab.program.start()
    wait_until(lambda: lab.servers.requests(), 11, "it runs")
    time.sleep(1)
    assert lab.area.now.dot is None


def test_without_the_permission_for_it_no_suspend_is_heard_of(lab, enter_sandbox):
    logind = lab.logind()
    enter_sandbox(without=[LOGIND])
    lab.start()
    time.sleep(2)
    assert INHIBITOR not in logind.inhibitors()


def lay_out_as_flatpak_does(program):
    """A root of its own with the mark of the sandbox in it."""
    folders = [part for path in Path("/").iterdir() for part in (
        ("--symlink", path.readlink(), path) if path.is_symlink() else ("--dev-bind", path, path) if path.is_dir() else ())]
    program.starter = ["bwrap", "--die-with-parent", "--tmpfs", "/", *folders, "--ro-bind", "/etc/hostname", "/.flatpak-info"]


def test_launch_at_login_is_what_the_portal_says(lab, enter_sandbox):
    environment = BARE_ENVIRONMENT | {"DBUS_SESSION_BUS_ADDRESS": lab.session_bus.address, "PYTHONPATH": str(TESTS)}
    with Tool([sys.executable, TESTS / "lab/background_portal.py"], env=environment) as portal:
        enter_sandbox()
        lay_out_as_flatpak_does(lab.program)
        lab.start()

        def is_checked():
            return lab.area.menu()["Launch at Login"].checked

        portal.ask("refuse")
        lab.area.click("Launch at Login")
        wait_until(lambda: len(json.loads(portal.ask("asked"))) == 1, BUSY, "the portal is asked")
        time.sleep(1)
        assert not is_checked()
        portal.ask("grant")
        lab.area.click("Launch at Login")
        wait_until(is_checked, BUSY, "it is granted")
        lab.area.click("Launch at Login")
        wait_until(lambda: not is_checked(), BUSY, "it is taken back")
        lab.area.click("Launch at Login")
        wait_until(is_checked, BUSY, "it is granted again")
        portal.ask("refuse")
        lab.area.click("Launch at Login")
        wait_until(lambda: not is_checked(), BUSY, "the portal has switched it off, though it refuses")
        asked = json.loads(portal.ask("asked"))
    assert [request["autostart"] for request in asked] == [True, True, False, True, False]
    assert all(request["commandline"] == [str(lab.program.file)] for request in asked)


def test_these_are_all_that_the_manifest_asks_of_the_buses(manifest):
    assert {argument for argument in manifest["finish-args"] if argument.partition("=")[0] in RULES} == {STATUS_AREA, SCREEN_LOCK, LOGIND}
