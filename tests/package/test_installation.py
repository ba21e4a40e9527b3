"""A stranger's Debian: install, start, upgrade, remove, purge. To be run by `clean_root run`, where there is no network."""

import os
import shutil
import subprocess
from contextlib import ExitStack
from pathlib import Path

import package
import pytest
from desktop import StatusArea
from package import PACKAGE, SOURCE, VERSION, alternatives, field, output
from support import message_bus
from support.processes import Child, wait_until

LOWER_VERSION = f"{VERSION}~before"
# which the version after it has no more
OBSOLETE = "usr/share/doc/skylet/obsolete"
# a folder that every system has; what is mounted there is seen by this process and its children alone
MOUNT_POINT = Path("/mnt")
USER = "stranger"
# what the program writes itself while it runs, as the user
WRITTEN = {"tmp/skylet.log", *(f"home/{USER}/.config{path}" for path in ("", "/skylet", "/skylet/skylet.ini"))}
TRAFFIC = "Show Live Traffic in Menu Bar   (e.g. ↓12.4M ↑210K)"
README = (SOURCE / "README.md").read_text()
# what package management and the system keep for themselves
NOT_LOOKED_AT = ("proc", "dev", "var/lib/dpkg", "var/lib/apt", "var/cache", "var/log", "run")


class CleanRoot:
    """A bare Debian in memory; the folder that it is made from is not touched. `beside` it there is room for other files."""

    def __init__(self, stack):
        output("mount", "-t", "tmpfs", "tmpfs", MOUNT_POINT)
        stack.callback(output, "umount", "--recursive", "--lazy", MOUNT_POINT)
        for folder in ("upper", "work", "root"):
            (MOUNT_POINT / folder).mkdir()
        self.path, self.beside = MOUNT_POINT / "root", MOUNT_POINT
        # not by name alone: commas and colons in a path would end the options
        lower = MOUNT_POINT / "lower"
        lower.mkdir()
        output("mount", "--bind", "--options", "ro", os.environ["SKYLET_CLEAN_ROOT"], lower)
        output("mount", "-t", "overlay", "overlay", "-o", f"lowerdir={lower},upperdir={MOUNT_POINT}/upper,"
               f"workdir={MOUNT_POINT}/work", self.path)
        output("mount", "-t", "proc", "proc", self.path / "proc")
        output("mount", "--rbind", "/dev", self.path / "dev")
        # maintainers' scripts would start services
        (self.path / "usr/sbin/policy-rc.d").write_text("#!/bin/sh\nexit 101\n")
        (self.path / "usr/sbin/policy-rc.d").chmod(0o755)
        self.run("useradd", "--create-home", USER)
        self.home = self.path / "home" / USER

    def command(self, *command, user="root", **environment):
        home = "/root" if user == "root" else f"/home/{user}"
        words = [f"{key}={value}" for key, value in {"HOME": home, "PATH": package.ENVIRONMENT["PATH"], "LANG": "C.UTF-8",
                                                     "DEBIAN_FRONTEND": "noninteractive", **environment}.items()]
        # the user's number is that inside: chroot looks the name up there
        return ["chroot", f"--userspec={user}", self.path, "env", "-i", *words, *command]

    def run(self, *command, **options):
        return output(*self.command(*command, **options))

    def apt(self, *arguments):
        return self.run("apt-get", "--quiet", "--yes", "--no-install-recommends", *arguments)

    def install(self, deb):
        """As a user would who has downloaded it."""
        shutil.copy(deb, self.path / "root" / deb.name)
        self.apt("install", f"/root/{deb.name}")
        (self.path / "root" / deb.name).unlink()

    def state(self):
        """What dpkg knows of the package: ("installed", version), or None."""
        done = subprocess.run([*map(str, self.command("dpkg-query", "--show", "--showformat=${db:Status-Status} ${Version}",
                                                      "skylet"))], capture_output=True, text=True, check=False)
        return tuple(done.stdout.split()) if done.returncode == 0 and done.stdout else None

    def paths(self):
        """Everything that is there, but for NOT_LOOKED_AT."""
        found = set()
        for folder, folders, files in os.walk(self.path):
            inside = os.path.relpath(folder, self.path)
            names = [os.path.normpath(os.path.join(inside, name)) for name in folders + files]
            folders[:] = [name for name in folders if os.path.normpath(os.path.join(inside, name)) not in NOT_LOOKED_AT]
            found.update(names)
        return found


class Session:
    """The user's desktop: a screen, the session bus that the package's dependencies brought, and a status area."""

    def __init__(self, root, stack):
        self._root, self._stack = root, stack
        screen = stack.enter_context(Child(["Xvfb", ":0", "-nolock", "-nolisten", "tcp", "-nolisten", "unix", "-displayfd", "1"],
                                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL))
        assert screen.stdout.readline(), "the screen did not start"
        folder = root.path / "run/session"
        folder.mkdir()
        shutil.chown(folder, *[int(root.run("id", which, USER)) for which in ("--user", "--group")])
        folder.chmod(0o700)
        (root.path / "run/session.conf").write_text(message_bus.configuration("/run/session/bus"))
        daemon = stack.enter_context(Child(
            root.command("dbus-daemon", "--nofork", "--config-file=/run/session.conf", "--print-address", user=USER),
            stdout=subprocess.PIPE))
        assert daemon.stdout.readline(), "the session bus did not start"
        self.area = StatusArea(self, stack, root.path)

    def connect(self):
        return message_bus.connect(f"unix:path={self._root.path}/run/session/bus")

    def start(self, **environment):
        """The program as the desktop entry names it."""
        entry = (self._root.path / "usr/share/applications/com.vorn.skylet.desktop").read_text()
        line, = (line for line in entry.splitlines() if line.startswith("Exec="))
        return self._stack.enter_context(Child(
            self._root.command(line.removeprefix("Exec="), user=USER, DISPLAY=":0", XDG_RUNTIME_DIR="/run/session",
                               DBUS_SESSION_BUS_ADDRESS="unix:path=/run/session/bus", XDG_CURRENT_DESKTOP="GNOME",
                               **environment),
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True))


@pytest.fixture(name="stack")
def _stack():
    with ExitStack() as stack:
        yield stack


@pytest.fixture(name="root")
def _root(stack):
    assert os.getpid() < 100 and "SKYLET_CLEAN_ROOT" in os.environ, "this is to be run by clean_root"
    return CleanRoot(stack)


@pytest.fixture(name="lower_package")
def _lower_package(root):
    """The same under a lower version, with a file that is not in this one."""
    folder = root.beside / "lower-version"
    output("dpkg-deb", "--raw-extract", PACKAGE, folder)
    control = folder / "DEBIAN/control"
    control.write_text(control.read_text().replace(f"\nVersion: {VERSION}\n", f"\nVersion: {LOWER_VERSION}\n"))
    (folder / OBSOLETE).write_text("of the lower version\n")
    result = root.beside / "lower-version.deb"
    output("dpkg-deb", "--root-owner-group", "--build", folder, result)
    return result


def own_paths():
    """The paths in the package, relative to the root."""
    return {os.path.normpath(line.split()[5]) for line in output("dpkg-deb", "--contents", PACKAGE).splitlines()} - {"."}


def test_it_installs_starts_upgrades_and_goes_without_a_trace(root, stack, lower_package):
    root.apt("satisfy", field("Depends"))
    before = root.paths()
    root.install(lower_package)
    assert root.state() == ("installed", LOWER_VERSION)
    session = Session(root, stack)

    program = session.start()
    # no network: nothing can be asked, and the program says so
    session.area.wait_for(lambda state: state.dot == "red" and state.word == "Offline", 15)
    assert "/libqxcb.so" in Path("/proc", str(program.pid), "maps").read_text(), "it is on the screen"
    assert session.area.menu()["About Skylet"].has_icon, "it finds its own icon"
    assert session.start().wait(5) == 0, "a second start ends at once"
    assert program.poll() is None
    session.area.click(TRAFFIC)
    wait_until(lambda: not session.area.menu()[TRAFFIC].checked, 2, "a setting is changed")

    root.install(PACKAGE)
    assert root.state() == ("installed", VERSION)
    assert root.paths() - before - WRITTEN <= own_paths() <= root.paths()
    assert program.poll() is None, "an upgrade does not end what runs"
    assert session.start().wait(5) == 0, "the new version finds the old one"
    session.area.click("Quit")
    assert program.wait(5) == 0
    # Newer versions of Qt mention there that the system has no portal.
    assert [line for line in program.stdout.read().splitlines() if not line.startswith("qt.qpa.")] == []
    wait_until(lambda: session.area.now.dot is None, 2, "the item is gone")
    upgraded = session.start(LANGUAGE="he")
    session.area.wait_for(lambda state: state.dot == "red" and "אין רשת" in state.word, 15)
    checks = [entry.checked for entry in session.area.menu().values() if entry.checked is not None]
    assert checks == [False, False, False], "the setting is kept"

    root.apt("remove", "skylet")
    assert upgraded.poll() is None, "nor does the removal"
    upgraded.terminate()
    assert upgraded.wait(5) == 0
    check_that_it_went_without_a_trace(root, before)
    root.install(PACKAGE)
    root.apt("purge", "skylet")
    check_that_it_went_without_a_trace(root, before)
    root.run("rm", "-rf", *removed_by_hand(), user=USER)
    assert root.paths() - before <= {f"home/{USER}/.config"}


def removed_by_hand():
    """What the README tells the user to remove."""
    command, = (line for line in README.splitlines() if line.startswith("rm -rf "))
    return [word.replace("~", f"/home/{USER}") for word in command.split()[2:]]


def check_that_it_went_without_a_trace(root, before):
    """But for the files that its documents name: those that it wrote itself, as the user."""
    assert root.state() is None
    now = root.paths()
    assert before <= now
    assert now - before <= WRITTEN


def test_one_command_installs_it_with_all_that_it_needs(root):
    shutil.copy(PACKAGE, root.path / "root/skylet.deb")
    plan = root.apt("install", "--simulate", "/root/skylet.deb")
    installed = {line.split()[1] for line in plan.splitlines() if line.startswith("Inst ")}
    # what nothing else on a bare Debian would bring
    assert {"skylet", "ca-certificates", "dbus-user-session", "libqt6widgets6"} <= installed


def test_what_it_recommends_can_be_installed_beside_it(root):
    shutil.copy(PACKAGE, root.path / "root/skylet.deb")
    plan = root.run("apt-get", "--simulate", "--quiet", "install", "--install-recommends", "/root/skylet.deb")
    installed = {line.split()[1] for line in plan.splitlines() if line.startswith("Inst ")}
    for group in alternatives("Recommends"):
        assert installed & set(group), f"none of {group}"


def test_every_alternative_that_it_names_is_a_package_of_debian(root):
    names = {name for group in alternatives("Recommends") for name in group}
    known = root.run("apt-cache", "show", "--no-all-versions", *sorted(names))
    assert {line.split()[1] for line in known.splitlines() if line.startswith("Package: ")} == names


def test_it_is_alone_without_any_network(root):
    devices = root.run("cat", "/proc/net/dev").splitlines()[2:]
    assert [line.split(":")[0].strip() for line in devices] == ["lo"]
    assert root.run("cat", "/proc/net/route").splitlines()[1:] == []
