import shutil
import signal

import pytest

NEEDED = ["Xvfb", "openbox", "xdotool", "xprop", "import", "dbus-daemon"]
ALL_SKIPPED = 77  # what ctest takes for "skipped"


def pytest_configure():
    # a time-out or an impatient user ends the run as Ctrl-C does: with everything cleared away
    signal.signal(signal.SIGTERM, signal.default_int_handler)


def pytest_collection_modifyitems(items):
    if missing := [tool for tool in NEEDED if not shutil.which(tool)]:
        for item in items:
            item.add_marker(pytest.mark.skip(reason=f"not installed: {', '.join(missing)}"))


def pytest_sessionfinish(session, exitstatus):
    reports = session.config.pluginmanager.get_plugin("terminalreporter").stats
    if exitstatus == pytest.ExitCode.OK and reports.get("skipped") and not reports.get("passed"):
        session.exitstatus = ALL_SKIPPED
