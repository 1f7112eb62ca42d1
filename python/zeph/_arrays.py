"""What people have, as the arrays that the extension takes; views where they fit already."""

import operator
from typing import Any

import numpy as np
import numpy.typing as npt
from scipy import sparse

from zeph import _core

LARGEST_SIZE = 2**31 - 1


def doubles(values: Any, name: str) -> npt.NDArray[np.float64]:
    """A float64 array in column-major order; not copied if it is one."""
    if sparse.issparse(values):
        raise TypeError(f"{name} is sparse; give a dense array, {name}.toarray()")
    array = np.asarray(values)
    require_real(array.dtype, name)
    return np.asarray(array, dtype=np.float64, order="F")


def integers(values: Any, name: str) -> npt.NDArray[np.int64]:
    """An int64 array of the shape of values, for indices."""
    array = np.asarray(values)
    if array.size == 0:
        return np.zeros(array.shape, dtype=np.int64)
    if array.dtype.kind not in "iu":
        raise TypeError(f"{name} must be integers, not {array.dtype}")
    if array.dtype == np.uint64 and int(array.max()) > np.iinfo(np.int64).max:
        raise ValueError(f"{name} has the value {array.max()}, which is no index")
    return np.ascontiguousarray(array, dtype=np.int64).reshape(array.shape)


def scalar(value: Any, name: str) -> int:
    try:
        return operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an integer, not {type(value).__name__}") from None


def require_real(dtype: "np.dtype[Any]", name: str) -> None:
    if dtype.kind not in "biuf":
        raise TypeError(f"{name} has values of type {dtype}; they must be real numbers")


def compressed(A: Any, name: str) -> Any:
    """A in compressed columns, or rows if it has them, with sorted indices and no duplicates.

    Zeros that are stored stay stored. A itself is never changed.
    """
    if not sparse.issparse(A):
        A = np.asarray(A)
        require_real(A.dtype, name)
        if A.ndim != 2:
            raise ValueError(f"{name} has {A.ndim} dimensions; a matrix has two")
        A = sparse.csc_matrix(A.astype(np.float64, copy=False))
    require_real(A.dtype, name)
    if max(A.shape) > LARGEST_SIZE:  # before SciPy takes memory for so many columns
        raise ValueError(f"{name} is {_times(A.shape)}; the largest size is {LARGEST_SIZE}")
    if A.format not in ("csc", "csr"):
        A = A.tocsc()
    require_indices(A, name)
    if A.dtype != np.float64:
        A = A.astype(np.float64)
    if not A.has_canonical_format:
        A = A.copy()
        A.sum_duplicates()
    return A


def require_indices(A: Any, name: str) -> None:
    """What SciPy does not check, and would read or write beyond its arrays for."""
    outer, inner = A.shape if A.format == "csr" else A.shape[::-1]
    starts, indices = A.indptr, A.indices
    ascending = len(starts) == outer + 1 and starts[0] == 0 and bool(np.all(np.diff(starts) >= 0))
    if not ascending or starts[-1] > min(len(indices), len(A.data)):
        raise ValueError(f"the index pointers of {name} must rise from 0 to its number of entries")
    used = indices[: starts[-1]]
    if used.size and (used.min() < 0 or used.max() >= inner):
        wrong = used.min() if used.min() < 0 else used.max()
        raise ValueError(f"{name} has the index {wrong}; it must be from 0 to {inner - 1}")


def core_matrix(A: Any) -> _core.Matrix:
    """A matrix from compressed() for the extension."""
    used = A.indptr[-1]
    width = np.int32 if A.indptr.dtype == A.indices.dtype == np.int32 else np.int64
    return _core.make_matrix(
        A.shape[0],
        A.shape[1],
        np.ascontiguousarray(A.indptr, dtype=width),
        np.ascontiguousarray(A.indices[:used], dtype=width),
        np.ascontiguousarray(A.data[:used], dtype=np.float64),
        A.format == "csr",
    )


class Pattern:
    """The positions of a matrix from compressed(), and values of others put in their order."""

    def __init__(self, A: Any) -> None:
        # Copies: SciPy changes the arrays of a matrix in place.
        self.shape, self.format = A.shape, A.format
        self.indptr = A.indptr.copy()
        self.indices = A.indices[: A.indptr[-1]].copy()

    def values_of(self, B: Any, name: str) -> npt.NDArray[np.float64]:
        """The values of B, whose entries must all have a place here; zeros where it has none."""
        if B.shape != self.shape:
            raise ValueError(f"{name} is {_times(B.shape)}; the matrix was {_times(self.shape)}")
        B = B.asformat(self.format)
        used = B.indptr[-1]
        if np.array_equal(B.indptr, self.indptr) and np.array_equal(B.indices[:used], self.indices):
            return np.ascontiguousarray(B.data[:used])
        ours, theirs = _keys(self), _keys(B)
        place = np.searchsorted(ours, theirs)
        new = place == len(ours)
        new[~new] = ours[place[~new]] != theirs[~new]
        if new.any():
            outer, inner = divmod(int(theirs[np.argmax(new)]), max(self.shape))
            row, col = (outer, inner) if self.format == "csr" else (inner, outer)
            raise ValueError(
                f"{name} has an entry at ({row}, {col}), where the matrix had none; "
                "factorize it anew"
            )
        values = np.zeros(len(ours))
        values[place] = B.data[:used]
        return values


def _keys(A: Any) -> npt.NDArray[np.int64]:
    outer = np.repeat(np.arange(len(A.indptr) - 1, dtype=np.int64), np.diff(A.indptr))
    keys: npt.NDArray[np.int64] = outer * max(A.shape) + A.indices[: A.indptr[-1]]
    return keys


def _times(shape: Any) -> str:
    return " x ".join(str(n) for n in shape)
