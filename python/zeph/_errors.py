"""Exceptions of the module; shapes, types and values that do not fit raise ValueError or TypeError."""

from typing import Optional


class Error(Exception):
    """What goes wrong with a matrix or a file, in one sentence; base of the others."""

    row: Optional[int] = None


class NotPositiveDefiniteError(Error):
    """The Cholesky factorisation broke down at `row`, counted from zero."""


class SingularMatrixError(Error):
    """The matrix has no inverse to working precision."""
