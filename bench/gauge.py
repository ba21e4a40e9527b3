"""The gauge while it moves, beside a widget of its size that is repainted in one colour as often."""

import re
import subprocess
from contextlib import ExitStack

from desktop_session import Session
from programs import WINDOWS
from table import times


def measure(bench):
    seconds = 5 if bench.quick else 20
    with ExitStack() as stack:
        session = Session(stack)
        for scale in (1, 2):
            shares = []
            for what in ("animation", "blank-animation"):
                output = subprocess.run([WINDOWS, what, str(seconds)], env=session.environment | {"QT_SCALE_FACTOR": str(scale)},
                                        check=True, text=True, capture_output=True).stdout
                shares.append(float(re.search(r"([\d.]+) % of a core", output)[1]))
            bench.table.row(f"gauge while moving, scale {scale}, % of a core", *shares, times(1.5))
