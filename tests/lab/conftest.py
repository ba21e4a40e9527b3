import os
import signal
import tempfile
from contextlib import ExitStack

import network
import pytest
import settings
from authority import Authority
from lab import Lab
from support.ctest import pytest_configure, pytest_sessionfinish  # noqa: F401

# What is ignored here the program would ignore, too: a shell starts what is to run in the background so, and nohup.
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGHUP, signal.SIG_DFL)


def pytest_addoption(parser):
    parser.addoption("--panel", help="one of panel_kinds.KINDS, for the scenarios that are alike for all")


@pytest.fixture(scope="session")
def authority():
    """The certificates, after a look whether there can be a lab at all, and whether it would test what it is thought to."""
    if reason := settings.why_outdated():
        pytest.exit(reason, returncode=1)
    if reason := network.why_impossible():
        pytest.skip(reason)
    network.sweep()
    names = [*network.ENDPOINT_NAMES, network.PORTAL_NAME, settings.SPEEDTEST_HOST]
    with tempfile.TemporaryDirectory(prefix=f"{network.PREFIX}-{os.getpid()}-", dir=network.RUN) as folder:
        yield Authority(folder, names)


@pytest.fixture
def lab(authority):
    """A laboratory of the test's own, taken down at its end."""
    with ExitStack() as stack:
        yield Lab(authority, stack)


@pytest.fixture
def panel(lab, request):
    """The panel that --panel names."""
    return lab.start_panel(request.config.getoption("panel", skip=True))


@pytest.fixture(scope="module")
def labs(authority):
    """Makes a laboratory with each call. They last until the file's tests are done, and what takes a minute to see they can see
    all at once."""
    with ExitStack() as stack:
        yield lambda: Lab(authority, stack)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """A failure shows what the status area showed and what the program said."""
    report = (yield).get_result()
    lab_ = getattr(item, "funcargs", {}).get("lab")
    if report.when == "call" and report.failed and lab_ and lab_.program.started:
        report.sections.append(("status area", lab_.area.describe(lab_.program.started)))
        report.sections.append(("program", lab_.program.said()))
