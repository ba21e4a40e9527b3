"""The same source gives the same package, wherever and whenever it is built."""

import shutil
import subprocess

import pytest
from package import PACKAGE, SOURCE

# all that the build reads
INGREDIENTS = ["CMakeLists.txt", "CMakePresets.json", "LICENSE", "cmake", "packaging", "script", "src"]


@pytest.fixture(name="second_build", scope="module")
def _second_build(folder):
    """A build folder with a package that another user, in another folder, language and part of the world has made."""
    folder = folder / "somewhere else, and with a longer name"
    folder.mkdir()
    for name in INGREDIENTS:
        copy = shutil.copytree if (SOURCE / name).is_dir() else shutil.copy2
        copy(SOURCE / name, folder / name)
    # what it would install is here already
    (folder / "script/packages").write_text("#!/bin/sh\n")
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": str(folder), "LC_ALL": "C", "TZ": "Pacific/Kiritimati",
                   # or the first build's objects would come back
                   "CCACHE_DISABLE": "1"}
    done = subprocess.run(["script/package"], cwd=folder, env=environment, umask=0o077, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    assert done.returncode == 0, done.stdout
    return folder / "build/release"


def test_two_builds_in_two_folders_give_the_same_bytes(second_build):
    second = second_build / PACKAGE.name
    if second.read_bytes() != PACKAGE.read_bytes():
        pytest.fail(_differences(PACKAGE, second, second_build.parent))


def _differences(first, second, folder):
    """What differs: files, or else how they are packed."""
    for name, package in (("first", first), ("second", second)):
        subprocess.run(["dpkg-deb", "--raw-extract", package, folder / name], check=True)
        listings = [subprocess.run(command, check=True, capture_output=True, text=True).stdout
                    for command in (["dpkg-deb", "--contents", package], ["ar", "tvO", package])]
        (folder / name / "listing").write_text("".join(listings))
    done = subprocess.run(["diff", "--recursive", "first", "second"], capture_output=True, text=True, check=False, cwd=folder)
    return done.stdout
