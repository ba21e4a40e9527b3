"""The package under test, and what can be asked of it without installing it."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

SOURCE = Path(__file__).parents[2]
PACKAGE = Path(os.environ["SKYLET_PACKAGE"])
BUILD_FOLDER = Path(os.environ["SKYLET_CLEAN_ROOT"]).parent
VERSION = os.environ["SKYLET_PACKAGE_VERSION"]
# that of a test's children: nothing of the environment around it gets to them
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "HOME": "/nonexistent"}


def needs(*tools):
    """Skips the test on a machine that lacks one of them."""
    for tool in tools:
        if not shutil.which(tool, path=ENVIRONMENT["PATH"]):
            pytest.skip(f"{tool} is not installed: script/packages package-test")


def output(*command, **options):
    """What the command prints. It fails the test if it fails."""
    needs(command[0])
    done = subprocess.run([*map(str, command)], **{"text": True, "env": ENVIRONMENT} | options, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert done.returncode == 0, f"{command}: {done.stdout}"
    return done.stdout


def field(name, package=PACKAGE):
    """A field of the package's control file."""
    return output("dpkg-deb", "--field", package, name).strip()


def alternatives(relation):
    """[[name, ...], ...] of a relation such as Depends, without the versions."""
    return [[name.split("(")[0].strip() for name in group.split("|")] for group in field(relation).split(",")]
