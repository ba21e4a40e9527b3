"""What the build tells the lab, through the environment. See README.md for a run by hand."""

import os
from pathlib import Path


def _of_build(name):
    value = os.environ.get(f"SKYLET_LAB_{name}")
    if not value:
        raise RuntimeError(f"SKYLET_LAB_{name} is not set: run the lab with ctest, or see tests/lab/README.md")
    return value


PROGRAM = Path(_of_build("PROGRAM"))
DEMO = Path(_of_build("DEMO"))
LINK = Path(_of_build("LINK"))
WALL_CLOCK = Path(_of_build("WALL_CLOCK"))
SPEED_SERVER = Path(_of_build("SPEED_SERVER"))
SPEEDTEST = Path(_of_build("SPEEDTEST"))
SPEEDTEST_HOST = _of_build("SPEEDTEST_HOST")
ENDPOINTS = _of_build("ENDPOINTS").split()
SHOTS = Path(_of_build("SHOTS"))


def why_outdated():
    """Which source is younger than the program that was built from it; None for a program of somewhere else."""
    source = Path(__file__).parents[2]
    if not PROGRAM.is_relative_to(source):
        return None
    youngest = max(source.glob("src/**/*.*"), key=lambda path: path.stat().st_mtime)
    if youngest.stat().st_mtime <= PROGRAM.stat().st_mtime:
        return None
    return f"{PROGRAM} is older than {youngest}: build it first"
