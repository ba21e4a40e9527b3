"""The Flatpak manifest, as far as it can be checked without the runtime, which is not on every machine."""

import configparser
import json
import os
import subprocess

import pytest
from package import ENVIRONMENT, SOURCE, output

MANIFEST = SOURCE / "packaging/flatpak/com.vorn.skylet.yml"


@pytest.fixture(name="manifest", scope="module")
def _manifest(folder):
    """The manifest as flatpak-builder reads it; what it does not know it only warns of."""
    done = subprocess.run(["flatpak-builder", "--show-manifest", MANIFEST], cwd=folder, env=ENVIRONMENT, capture_output=True,
                          text=True, check=True)
    assert done.stderr == ""
    return json.loads(done.stdout)


@pytest.fixture(name="metadata")
def _metadata(manifest, folder):
    """What flatpak makes of the permissions for the finished application. It refuses those that it does not know."""
    build = folder / "finished"
    (build / "files").mkdir(parents=True)
    (build / "metadata").write_text(f"[Application]\nname={manifest['id']}\nruntime={manifest['runtime']}/x86_64/"
                                    f"{manifest['runtime-version']}\nsdk={manifest['sdk']}/x86_64/{manifest['runtime-version']}\n")
    output("flatpak", "build-finish", build, f"--command={manifest['command']}", *manifest["finish-args"],
           env=ENVIRONMENT | {"HOME": str(folder)})
    parser = configparser.ConfigParser(interpolation=None)
    parser.read(build / "metadata")
    return {section: dict(parser[section]) for section in parser.sections() if section != "Application"}


def test_the_sandbox_opens_for_these_things_and_no_others(metadata):
    lists = {key: set(value.strip(";").split(";")) for key, value in metadata.pop("Context").items()}
    assert lists == {"shared": {"network", "ipc"}, "sockets": {"x11", "wayland", "fallback-x11"}}
    assert metadata == {"Session Bus Policy": {"org.kde.statusnotifierwatcher": "talk", "org.gnome.shell.screenshield": "talk"},
                        "System Bus Policy": {"org.freedesktop.login1": "talk"}}


def test_it_is_named_as_the_desktop_entry_and_the_program_are(manifest, unpacked):
    assert (unpacked / f"usr/share/applications/{manifest['id']}.desktop").exists()
    assert (unpacked / "usr/bin" / manifest["command"]).exists()


def test_everything_from_elsewhere_has_a_checksum_and_the_program_is_this_one(manifest):
    *others, skylet = manifest["modules"]
    for source in (source for module in others for source in module["sources"]):
        assert len(source["sha256"]) == 64 and source["url"].startswith("https://")
    source, = skylet["sources"]
    assert source["type"] == "dir"
    assert os.path.samefile(MANIFEST.parent / source["path"], SOURCE)
