"""What ctest expects of pytest. For a conftest.py to import."""

import signal

import pytest

ALL_SKIPPED = 77  # SKIP_RETURN_CODE in CMakeLists.txt


def pytest_configure():
    # a time-out or an impatient user ends the run as Ctrl-C does: with everything cleared away
    signal.signal(signal.SIGTERM, signal.default_int_handler)


def pytest_sessionfinish(session, exitstatus):
    reports = session.config.pluginmanager.get_plugin("terminalreporter").stats
    if exitstatus == pytest.ExitCode.OK and reports.get("skipped") and not reports.get("passed"):
        session.exitstatus = ALL_SKIPPED
