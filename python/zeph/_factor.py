"""The factor of a matrix and the shortcuts around it."""

import os
from dataclasses import dataclass
from typing import Any, Tuple, TypeVar, Union

import numpy as np
import numpy.typing as npt
from scipy import sparse

from zeph import _arrays, _core, _progress
from zeph._errors import warn

METHODS = ("auto", "cholesky", "lu")
ORDERINGS = ("auto", "amd", "nested_dissection", "natural")

Scratch = Union[str, "os.PathLike[str]", None]
Doubles = npt.NDArray[np.float64]
_Result = TypeVar("_Result")


@dataclass(frozen=True)
class Report:
    """What a factor is and what it took; from `plan`, what it would take."""

    method: str  #: "cholesky" or "lu"
    reason: str  #: why that one
    ordering: str  #: the one taken; stays "auto" with LU
    unknowns: int  #: rows of A
    groups: int  #: after unknowns with equal neighbourhoods are taken together
    entries_of_a: int  #: positions of the whole matrix, both triangles
    entries_of_l: int  #: of the Cholesky factor, or of L and U together
    operations: float  #: multiplications and additions of the factorisation
    bytes: float  #: of memory that the factor takes
    scratch_bytes: float  #: of the file that holds its panels, if there is one
    seconds_ordering: float  #: wall time, as all that follow
    seconds_analysis: float  #: assembly and symbolic work, ordering left out
    seconds_factorisation: float  #: of the last factorisation or refactorisation
    seconds_inverse: float  #: of the last `variances` of all unknowns
    threads: int  #: that the Cholesky method works on
    condition_estimate: float  #: units scaled away; 0 until estimated by `variances`
    identity_residual: float  #: of A times the computed entries of its inverse; 0 until `variances`
    relative_error_estimate: float  #: the largest of any variance; 0 until `variances`
    backward_error: float  #: of the last `solve`, componentwise; 0 until then
    uncertain_variances: int  #: by LU, that cancel to nearly nothing: no digit of them is certain
    first_uncertain: int  #: the first of these, or -1
    last_error_estimate: float  #: estimated relative error of the last result of any kind
    worst_unknown: int  #: where that is largest, or -1


class Factor:
    """A factorised square matrix A and what can be asked of it; made by `factorize`.

    Functions that only ask may be called from several threads at once, and their results have the
    same bits whatever the number of threads.

    Raises
    ------
    ValueError, TypeError
        For arguments that do not fit in shape, type or value.
    SingularMatrixError
        Where no digit of a result could be trusted.
    MemoryError
        Before or when memory runs out.

    KeyboardInterrupt
        On Ctrl-C, while it works. The factor can be asked again.

    Warns
    -----
    AccuracyWarning
        Where the estimated relative error of a result exceeds 1e-6, with the unknown concerned.
    """

    def __init__(
        self,
        A: Any,
        *,
        method: str = "auto",
        ordering: Any = "auto",
        threads: int = 0,
        progress: _progress.Progress = None,
        memory_limit: float = 0.0,
        scratch: Scratch = None,
    ) -> None:
        callback = _progress.callback(progress)
        options = _options(method, ordering, threads, callback, memory_limit, scratch)
        is_array = type(A).__name__.endswith("_array")
        A = _arrays.compressed(A, "A")
        with _progress.closing(callback):
            core = _core.make_factor(_arrays.core_matrix(A), options)
        self._take(core, _arrays.Pattern(A), is_array, callback)

    def _take(self, core: _core.Factor, pattern: Any, is_array: bool, callback: Any) -> None:
        self._core, self._pattern, self._callback = core, pattern, callback
        self._result = sparse.csc_array if is_array else sparse.csc_matrix
        made = self.report
        self._size = made.unknowns
        kind = "Cholesky" if made.method == "cholesky" else "LU"
        order = "" if made.ordering == "auto" else f", ordering {made.ordering}"
        n = made.unknowns
        self._text = f"<zeph.Factor of {n} x {n}: {kind}{order}, {made.entries_of_l} entries>"

    def __repr__(self) -> str:
        return self._text

    @property
    def shape(self) -> Tuple[int, int]:
        """Rows and columns of A."""
        return self._size, self._size

    @property
    def report(self) -> Report:
        """What the factor is and what it took, as a `Report`."""
        return Report(**self._core.report())

    def _judged(self, result: _Result) -> _Result:
        for sentence in self._core.warnings():
            warn(sentence)
        return result

    def solve(self, b: Any) -> Doubles:
        """Solve A x = b.

        Parameters
        ----------
        b : array_like, shape (n,) or (n, k)
            One or several right-hand sides, dense. Not copied if float64 in column-major order.

        Returns
        -------
        x : ndarray, of the shape of b

        Examples
        --------
        >>> zeph.factorize([[4.0, 1.0], [1.0, 3.0]]).solve([1.0, 2.0]).round(4)
        array([0.0909, 0.6364])
        """
        right = _arrays.doubles(b, "b")
        n = self.shape[0]
        if right.ndim not in (1, 2) or right.shape[0] != n:
            raise ValueError(f"b has the shape {right.shape}; it must be ({n},) or ({n}, k)")
        with _progress.closing(self._callback):
            return self._judged(self._core.solve(right))

    def variances(self, indices: Any = None) -> Doubles:
        """Diagonal of the inverse of A, all of it or at some indices.

        Parameters
        ----------
        indices : array_like of int, optional
            Counted from zero. A few of them cost a small part of all.

        Returns
        -------
        variances : ndarray, shape (n,) or of the shape of indices

        Notes
        -----
        All together cost about twice the factorisation. Their accuracy is checked; `report` then
        says how far they may be off.

        Examples
        --------
        >>> F = zeph.factorize([[4.0, 1.0], [1.0, 3.0]])
        >>> F.variances().round(4)
        array([0.2727, 0.3636])
        >>> F.variances([1]).round(4)
        array([0.3636])
        """
        if indices is not None:
            return self.covariance(indices, indices)
        with _progress.closing(self._callback):
            return self._judged(self._core.variances())

    def selected_inverse(self) -> Any:
        """All entries of the inverse of A on the pattern of its Cholesky factor.

        Returns
        -------
        Z : csc_matrix, or csc_array where A is a sparse array
            Both triangles; every position of A is among them. Not for LU: `covariance` gives
            single entries there.

        Examples
        --------
        >>> zeph.selected_inverse([[4.0, 1.0], [1.0, 3.0]]).toarray().round(4)
        array([[ 0.2727, -0.0909],
               [-0.0909,  0.3636]])
        """
        with _progress.closing(self._callback):
            values, rows, starts = self._judged(self._core.selected_inverse())
        return self._result((values, rows, starts), shape=self.shape)

    def covariance(self, rows: Any, cols: Any) -> Doubles:
        """Entries (rows[k], cols[k]) of the inverse of A.

        Parameters
        ----------
        rows, cols : array_like of int
            Counted from zero; broadcast against each other.

        Returns
        -------
        values : ndarray, of the broadcast shape

        Examples
        --------
        >>> zeph.factorize([[4.0, 1.0], [1.0, 3.0]]).covariance([0, 1], 0).round(4)
        array([ 0.2727, -0.0909])
        """
        r, c = np.broadcast_arrays(
            _arrays.integers(rows, "rows"), _arrays.integers(cols, "cols")
        )
        with _progress.closing(self._callback):
            return self._judged(self._core.covariance(np.ravel(r), np.ravel(c))).reshape(r.shape)

    def covariance_block(self, indices: Any) -> Doubles:
        """Rows and columns `indices` of the inverse of A, dense.

        Parameters
        ----------
        indices : array_like of int, shape (k,)

        Returns
        -------
        block : ndarray, shape (k, k)

        Examples
        --------
        >>> zeph.factorize([[4.0, 1.0], [1.0, 3.0]]).covariance_block([1, 0]).round(4)
        array([[ 0.3636, -0.0909],
               [-0.0909,  0.2727]])
        """
        wanted = _arrays.integers(indices, "indices")
        if wanted.ndim != 1:
            raise ValueError(f"indices has {wanted.ndim} dimensions; a list has one")
        with _progress.closing(self._callback):
            return self._judged(self._core.covariance_block(wanted))

    def slogdet(self) -> Tuple[int, float]:
        """Sign of the determinant of A, and the logarithm of its absolute value.

        Examples
        --------
        >>> sign, log = zeph.factorize([[0.0, 2.0], [2.0, 0.0]]).slogdet()
        >>> sign, round(log, 4)
        (-1, 1.3863)
        """
        return self._judged(self._core.slogdet())

    def logdet(self) -> float:
        """Logarithm of the determinant of A; ValueError where that is negative (see `slogdet`).

        Examples
        --------
        >>> round(zeph.factorize([[4.0, 1.0], [1.0, 3.0]]).logdet(), 4)
        2.3979
        """
        sign, log = self.slogdet()
        if sign < 0:
            raise ValueError("the determinant is negative; slogdet() gives its sign and logarithm")
        return log

    def sample(self, count: int, seed: int) -> Doubles:
        """Columns distributed as N(0, inverse of A), for definite A.

        Parameters
        ----------
        count : int
            How many.
        seed : int
            From 0 to 2**64 - 1. The same numbers for the same seed on every machine, whatever
            count is.

        Returns
        -------
        x : ndarray, shape (n, count)

        Examples
        --------
        >>> x = zeph.factorize([[4.0, 0.0], [0.0, 1.0]]).sample(10000, seed=1)
        >>> x.std(axis=1).round(1)
        array([0.5, 1. ])
        """
        columns, start = _arrays.scalar(count, "count"), _arrays.scalar(seed, "seed")
        if columns < 0:
            raise ValueError(f"count is {columns}; it must not be negative")
        if columns * self.shape[0] >= 2**60:
            raise MemoryError(f"{columns} samples of {self.shape[0]} values are beyond any memory")
        if not 0 <= start < 2**64:
            raise ValueError(f"seed is {start}; it must be from 0 to 2**64 - 1")
        with _progress.closing(self._callback):
            return self._judged(self._core.sample(columns, start))

    def trace_inverse_times(self, B: Any) -> float:
        """Trace of the inverse of A times a sparse B of its shape.

        Only the entries of the inverse where the transpose of B has some are computed.

        Examples
        --------
        >>> round(zeph.factorize([[4.0, 1.0], [1.0, 3.0]]).trace_inverse_times(np.eye(2)), 4)
        0.6364
        """
        matrix = _arrays.core_matrix(_arrays.compressed(B, "B"))
        with _progress.closing(self._callback):
            return self._judged(self._core.trace_inverse_times(matrix))

    def refactorize(self, A2: Any) -> None:
        """Take the values of another matrix with the pattern of A, without ordering and analysis.

        Parameters
        ----------
        A2 : sparse matrix or array_like
            All its entries must be at positions that A had; where it has none there, zeros are
            taken.

        Notes
        -----
        If it raises after the values were taken, as for a singular A2, the factor can only be
        refactorized until that succeeds.

        Examples
        --------
        >>> F = zeph.factorize([[4.0, 1.0], [1.0, 3.0]])
        >>> F.refactorize([[2.0, 0.0], [0.0, 5.0]])
        >>> F.variances()
        array([0.5, 0.2])
        """
        if self._pattern is None:
            raise ValueError("the factor belongs to the result of least_squares; factorize anew")
        values = self._pattern.values_of(_arrays.compressed(A2, "A2"), "A2")
        with _progress.closing(self._callback):
            self._core.refactorize(values)


def factorize(
    A: Any,
    *,
    method: str = "auto",
    ordering: Any = "auto",
    threads: int = 0,
    progress: _progress.Progress = None,
    memory_limit: float = 0.0,
    scratch: Scratch = None,
) -> Factor:
    """Factorise a square sparse matrix.

    Parameters
    ----------
    A : sparse matrix, sparse array or array_like, shape (n, n)
        Any SciPy format, index width and real type. A symmetric matrix has both its triangles.
    method : {"auto", "cholesky", "lu"}
        "auto" takes Cholesky for symmetric positive definite matrices and LU for all others;
        "cholesky" raises NotPositiveDefiniteError instead.
    ordering : {"auto", "amd", "nested_dissection", "natural"} or array_like of int
        Order of elimination of the Cholesky method, or the rows of A in that order.
    threads : int
        0 takes all processors. Results do not depend on it.
    progress : bool or callable, optional
        True draws a bar. A function is called with the stage and the share of it that is done,
        from 0 to 1, and returns False to stop, which raises zeph.Error.
    memory_limit : float
        Bytes that the factor may take together with what a call takes beside it; more is refused
        with MemoryError before it is taken. 0 for what the machine or the container has.
    scratch : str or path, optional
        A folder on a disk. A Cholesky factor that is predicted not to fit into memory lies in a
        file there, which has no name and is gone with the factor. Results keep their bits.

    Returns
    -------
    Factor

    Examples
    --------
    >>> from scipy import sparse
    >>> A = sparse.diags([-1.0, 4.0, -1.0], [-1, 0, 1], shape=(1000, 1000))
    >>> F = zeph.factorize(A)
    >>> F
    <zeph.Factor of 1000 x 1000: Cholesky, ordering amd, 1999 entries>
    >>> F.variances()[:3].round(4)
    array([0.2679, 0.2872, 0.2886])
    """
    return Factor(
        A,
        method=method,
        ordering=ordering,
        threads=threads,
        progress=progress,
        memory_limit=memory_limit,
        scratch=scratch,
    )


def solve(A: Any, b: Any, **options: Any) -> Doubles:
    """Solve A x = b once; options as for `factorize`, which serves several questions better.

    Examples
    --------
    >>> zeph.solve([[4.0, 1.0], [1.0, 3.0]], [1.0, 2.0]).round(4)
    array([0.0909, 0.6364])
    """
    return Factor(A, **options).solve(b)


def variances(A: Any, **options: Any) -> Doubles:
    """Diagonal of the inverse of A; options as for `factorize`.

    Examples
    --------
    >>> zeph.variances([[4.0, 1.0], [1.0, 3.0]]).round(4)
    array([0.2727, 0.3636])
    """
    return Factor(A, **options).variances()


def selected_inverse(A: Any, **options: Any) -> Any:
    """Inverse of A on the pattern of its Cholesky factor; options as for `factorize`.

    Examples
    --------
    >>> zeph.selected_inverse([[4.0, 0.0], [0.0, 2.0]]).toarray()
    array([[0.25, 0.  ],
           [0.  , 0.5 ]])
    """
    return Factor(A, **options).selected_inverse()


def logdet(A: Any, **options: Any) -> float:
    """Logarithm of the determinant of A; options as for `factorize`.

    Examples
    --------
    >>> round(zeph.logdet([[4.0, 1.0], [1.0, 3.0]]), 4)
    2.3979
    """
    return Factor(A, **options).logdet()


def plan(
    A: Any,
    *,
    method: str = "auto",
    ordering: Any = "auto",
    threads: int = 0,
    memory_limit: float = 0.0,
    scratch: Scratch = None,
) -> Report:
    """What `factorize` would take, as a `Report` of predictions: nothing is factorised.

    Examples
    --------
    >>> zeph.plan([[4.0, 1.0], [1.0, 3.0]]).entries_of_l
    3
    """
    matrix = _arrays.core_matrix(_arrays.compressed(A, "A"))
    options = _options(method, ordering, threads, None, memory_limit, scratch)
    return Report(**_core.plan(matrix, options))


def read(path: Union[str, "os.PathLike[str]"]) -> Any:
    """Read a sparse matrix from a Matrix Market file, or triplets "row,col,value" from a .csv file.

    Returns
    -------
    A : csc_matrix
        With both triangles of what is stored as symmetric; duplicates are summed.

    Examples
    --------
    >>> zeph.write(path, [[4.0, 0.0], [0.0, 2.0]])
    >>> zeph.read(path).toarray()
    array([[4., 0.],
           [0., 2.]])
    """
    rows, cols, r, c, values = _core.read(os.fspath(path))
    return sparse.csc_matrix((values, (r, c)), shape=(rows, cols))


def write(path: Union[str, "os.PathLike[str]"], A: Any) -> None:
    """Write a sparse matrix to a file of the form that `read` takes, whole or not at all."""
    _core.write(os.fspath(path), _arrays.core_matrix(_arrays.compressed(A, "A")))


def _options(
    method: str,
    ordering: Any,
    threads: int,
    callback: Any,
    memory_limit: float = 0.0,
    scratch: Scratch = None,
) -> _core.Options:
    if method not in METHODS:
        raise ValueError(f"method is {method!r}; it must be one of {', '.join(METHODS)}")
    permutation = np.empty(0, dtype=np.int64)
    if isinstance(ordering, str):
        if ordering not in ORDERINGS:
            names = ", ".join(ORDERINGS)
            raise ValueError(f"ordering is {ordering!r}; it must be one of {names}, or an array")
    else:
        permutation, ordering = _arrays.integers(ordering, "ordering"), "given"
    count = _arrays.scalar(threads, "threads")
    if not 0 <= count < 2**31:
        raise ValueError(f"threads is {count}; it must be a number of threads, or 0 for all")
    limit = float(memory_limit)
    if not limit >= 0.0:
        raise ValueError(f"memory_limit is {memory_limit}; it must be bytes, or 0 for no limit")
    folder = "" if scratch is None else os.fspath(scratch)
    return _core.make_options(method, ordering, permutation, count, callback, limit, folder)
