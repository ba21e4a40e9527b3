"""Where the programs of the measurements are, and what several of them need."""

import os
import statistics
from pathlib import Path

FOLDER = Path(os.environ["SKYLET_BENCH"]).resolve()
REFERENCE = FOLDER / "reference/reference_program"
TRANSFER = FOLDER / "transfer/transfer_bench"
WINDOWS = FOLDER / "windows/windows_bench"


def typical(samples):
    """The mean of the middle half: finer than the median of whole milliseconds, and deaf to what else the machine does."""
    quarter = len(samples) // 4
    return statistics.mean(sorted(samples)[quarter:len(samples) - quarter])
