"""A bar for what takes longer than a moment, in terminals and notebooks."""

import html
import sys
import time
from contextlib import contextmanager
from typing import Any, Callable, Iterator, Optional, Union

Progress = Union[None, bool, Callable[[str, float], Any]]

PATIENCE = 0.3  # seconds without a bar
REFRESH = 0.1  # seconds between two pictures of it
WIDTH = 30


class Bar:
    """Draws the stage and its share: in the cell of a notebook, or on a terminal's last line.

    Where standard error is neither, as in a file, it draws nothing.
    """

    def __init__(self) -> None:
        self._since: Optional[float] = None  # when the work began
        self._drawn = 0.0  # when it was drawn last
        self._width = 0
        self._cell: Any = None

    def __call__(self, stage: str, share: float) -> None:
        now = time.monotonic()
        if self._since is None:
            self._since = now
        if now - self._since >= PATIENCE and now - self._drawn >= REFRESH:
            self._drawn = now
            self._draw(stage, share)

    def _draw(self, stage: str, share: float) -> None:
        display = _notebook()
        done = int(share * WIDTH)
        line = f"{stage:<32} |{'#' * done}{' ' * (WIDTH - done)}| {share:4.0%}"
        if display is not None:
            shown = {
                "text/plain": line,
                "text/html": f'<progress value="{share:.3f}"></progress> {html.escape(stage)}',
            }
            if self._cell is None:
                self._cell = display(shown, raw=True, display_id=True)
            else:
                self._cell.update(shown, raw=True)
        elif sys.stderr is not None and sys.stderr.isatty():
            sys.stderr.write("\r" + line.ljust(self._width))
            sys.stderr.flush()
            self._width = len(line)

    def close(self) -> None:
        if self._width:
            sys.stderr.write("\r" + " " * self._width + "\r")
            sys.stderr.flush()
        if self._cell is not None:
            self._cell.update({"text/plain": "", "text/html": ""}, raw=True)
        self._since, self._width, self._cell = None, 0, None


def _notebook() -> Any:
    """What shows something in the cell of the notebook that runs this; None outside of one."""
    IPython = sys.modules.get("IPython")
    shell = IPython.get_ipython() if IPython is not None else None
    return sys.modules["IPython.display"].display if getattr(shell, "kernel", None) else None


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
