import os
import shutil
import tempfile
from pathlib import Path

import package
import pytest


@pytest.fixture(scope="session", autouse=True)
def there_is_a_package():
    assert package.PACKAGE.exists(), f"{package.PACKAGE} is not there: script/package builds it"


@pytest.fixture(scope="session")
def folder():
    """An empty folder that goes with the tests, which pytest's own do not. It is in the build tree, and the next tests remove
    what those leave that are killed."""
    for left in package.BUILD_FOLDER.glob("test-*-*"):
        if not Path("/proc", left.name.split("-")[1]).exists():
            shutil.rmtree(left)
    with tempfile.TemporaryDirectory(prefix=f"test-{os.getpid()}-", dir=package.BUILD_FOLDER) as name:
        yield Path(name)


@pytest.fixture(scope="session")
def unpacked(folder):
    """A folder with the files of the package."""
    result = folder / "unpacked"
    package.output("dpkg-deb", "--extract", package.PACKAGE, result)
    return result
