"""Exceptions of the module; shapes, types and values that do not fit raise ValueError or TypeError."""

from typing import Optional


class Error(Exception):
    """What goes wrong with a matrix or a file, in one sentence; base of the others."""

    row: Optional[int] = None

    __module__ = "zeph"  # the name under which users know and catch it


class NotPositiveDefiniteError(Error):
    """The Cholesky factorisation broke down at `row`, counted from zero."""

    __module__ = "zeph"


class SingularMatrixError(Error):
    """The matrix has no inverse to working precision."""

    __module__ = "zeph"
