import shutil

import pytest
from support.ctest import pytest_configure, pytest_sessionfinish  # noqa: F401

NEEDED = ["Xvfb", "openbox", "xdotool", "xprop", "xwininfo", "import", "dbus-daemon"]


def pytest_collection_modifyitems(items):
    if missing := [tool for tool in NEEDED if not shutil.which(tool)]:
        for item in items:
            item.add_marker(pytest.mark.skip(reason=f"not installed: {', '.join(missing)}"))
