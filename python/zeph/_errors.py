"""Exceptions of the module; shapes, types and values that do not fit raise ValueError or TypeError."""

import os
import sys
import warnings
from typing import Optional


class Error(Exception):
    """What goes wrong with a matrix or a file, in one sentence; base of the others."""

    row: Optional[int] = None

    __module__ = "zeph"  # the name under which users know and catch it


class AccuracyWarning(UserWarning):
    """A result may have an estimated relative error above 1e-6; names the unknown concerned."""

    __module__ = "zeph"


class NotPositiveDefiniteError(Error):
    """The Cholesky factorisation broke down at `row`, counted from zero."""

    __module__ = "zeph"


class SingularMatrixError(Error):
    """The matrix has no inverse to working precision."""

    __module__ = "zeph"


def warn(sentence: str) -> None:
    """An AccuracyWarning at the line that called the module, whatever stands in between."""
    folder, level = os.path.dirname(__file__), 1
    frame = sys._getframe()
    while frame.f_back is not None and os.path.dirname(frame.f_code.co_filename) == folder:
        frame, level = frame.f_back, level + 1
    warnings.warn(sentence, AccuracyWarning, stacklevel=level)
