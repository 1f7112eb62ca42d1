"""A bar for what takes longer than a moment, in terminals and notebooks."""

import sys
import time
from contextlib import contextmanager
from typing import Any, Callable, Iterator, Optional, Union

Progress = Union[None, bool, Callable[[str, float], Any]]

PATIENCE = 0.3  # seconds without a bar
WIDTH = 30


class Bar:
    """Draws the stage and its share on standard error."""

    def __init__(self) -> None:
        self._stage = ""
        self._since = 0.0
        self._drawn = 0

    def __call__(self, stage: str, share: float) -> None:
        if stage != self._stage:
            self.close()
            self._stage, self._since = stage, time.monotonic()
        if time.monotonic() - self._since >= PATIENCE:
            done = int(share * WIDTH)
            line = f"{stage:<14} |{'#' * done}{' ' * (WIDTH - done)}| {share:4.0%}"
            sys.stderr.write("\r" + line)
            sys.stderr.flush()
            self._drawn = len(line)

    def close(self) -> None:
        if self._drawn:
            sys.stderr.write("\r" + " " * self._drawn + "\r")
            sys.stderr.flush()
        self._stage, self._drawn = "", 0


def callback(progress: Progress) -> Optional[Callable[[str, float], Any]]:
    if progress is None or progress is False:
        return None
    if progress is True:
        return Bar()
    if callable(progress):
        return progress
    raise TypeError("progress must be True, or a function of a stage and the share of it done")


@contextmanager
def closing(asked: Optional[Callable[[str, float], Any]]) -> Iterator[None]:
    """Wipes the bar, if that is what was asked for, when the work is done."""
    try:
        yield
    finally:
        if isinstance(asked, Bar):
            asked.close()
