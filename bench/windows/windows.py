"""What the windows cost, measured on a virtual screen. See README.md."""

import os
import subprocess
import sys
from contextlib import ExitStack
from pathlib import Path

TESTS = Path(__file__).resolve().parents[2] / "tests"
sys.path[:0] = [str(TESTS), str(TESTS / "ui")]
from desktop_session import Session  # noqa: E402
from support.processes import processor_seconds  # noqa: E402

WATCHED = ("idle", "animation", "blank-animation")
WATCH_TIME = 10.5  # seconds, with the start


def main():
    with ExitStack() as stack:
        session = Session(stack)
        for what, scale in (("frame", 1), ("frame", 2), ("idle", 1), ("animation", 1), ("blank-animation", 1),
                            ("animation", 2), ("blank-animation", 2), ("memory", 1)):
            before = processor_seconds(session.screen.pid)
            environment = session.environment | {"QT_SCALE_FACTOR": str(scale)}
            output = subprocess.run([os.environ["SKYLET_WINDOWS_BENCH"], what], env=environment, check=True, text=True,
                                    capture_output=True).stdout
            server = processor_seconds(session.screen.pid) - before
            server_share = f"; the X server {server / WATCH_TIME * 100:.1f} %" if what in WATCHED else ""
            print(f"scale {scale}: {output.strip()}{server_share}", flush=True)


if __name__ == "__main__":
    main()
