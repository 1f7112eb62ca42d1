"""Least squares with the standard deviations that belong to them."""

import os
from dataclasses import dataclass
from typing import Any, Dict, Optional

import numpy as np
import numpy.typing as npt

from zeph import _arrays, _core, _progress
from zeph._factor import Factor, Scratch, _options

Doubles = npt.NDArray[np.float64]


@dataclass(frozen=True)
class Adjustment:
    """What least squares make of m observations of n unknowns.

    Standard deviations follow from those given; where these are right only up to a common factor,
    multiply by sqrt(variance_factor). Pickled without its factor.
    """

    x: Doubles  #: the unknowns
    sigma: Doubles  #: their standard deviations
    residuals: Doubles  #: y - J x
    residual_sigma: Doubles  #: their standard deviations; 0 where the redundancy is
    redundancy: Doubles  #: share of an error of an observation that shows in its residual
    leverage: Doubles  #: 1 - redundancy
    normalized_residuals: Doubles  #: N(0, 1) for right observations; NaN for unchecked ones
    variance_factor: float  #: about 1; NaN where m = n
    degrees_of_freedom: int  #: m - n
    suspect: Optional[int]  #: observation with the largest normalised residual
    factor: Optional[Factor]  #: of the normal matrix, for covariances of the unknowns
    sigma_given: bool = True  #: False where 1 was taken for all observations

    def __getstate__(self) -> Dict[str, Any]:
        return {**self.__dict__, "factor": None}

    def report(
        self, path: Any, *, title: str = "Least-squares adjustment", rows: int = 500
    ) -> None:
        """Write everything on one HTML page that needs nothing but a browser.

        Figures, the test of the variance factor, the suspected blunder, charts, and tables that
        sort by a click. The file appears whole or not at all.

        Parameters
        ----------
        path : path-like
            The page, for example "report.html".
        title : str
        rows : int
            Longer tables show so many rows: the largest normalised residuals and the largest
            standard deviations.
        """
        factor, callback = None, None
        if self.factor is not None:
            factor, callback = self.factor._core, self.factor._callback
        found = {**self.__dict__, "factor": None}
        with _progress.closing(callback):
            _core.write_report(os.fspath(path), found, factor, title, self.sigma_given, rows)


def least_squares(
    J: Any,
    y: Any,
    sigma: Any = None,
    *,
    ordering: Any = "auto",
    threads: int = 0,
    progress: _progress.Progress = None,
    memory_limit: float = 0.0,
    scratch: Scratch = None,
) -> Adjustment:
    """Adjust observations y = J x + errors by least squares.

    Parameters
    ----------
    J : sparse matrix, sparse array or array_like, shape (m, n)
        Design matrix, m >= n.
    y : array_like, shape (m,)
        Observations.
    sigma : float or array_like, shape (m,), optional
        Their standard deviations; 1 if left out.
    ordering, threads, progress, memory_limit, scratch
        As for `factorize`.

    Returns
    -------
    Adjustment

    Examples
    --------
    Two heights above a benchmark, levelled as 1.0 and 2.1 from it and as 1.0 between them:

    >>> a = zeph.least_squares([[1, 0], [0, 1], [-1, 1]], [1.0, 2.1, 1.0], 0.1)
    >>> a.x.round(3), a.sigma.round(3)
    (array([1.033, 2.067]), array([0.082, 0.082]))
    >>> a.redundancy.round(3), a.degrees_of_freedom
    (array([0.333, 0.333, 0.333]), 1)
    """
    callback = _progress.callback(progress)
    options = _options("auto", ordering, threads, callback, memory_limit, scratch)
    observations = _vector(y, "y")
    sigmas = np.empty(0) if sigma is None else np.atleast_1d(_vector(sigma, "sigma"))
    is_array = type(J).__name__.endswith("_array")
    matrix = _arrays.core_matrix(_arrays.compressed(J, "J"))
    with _progress.closing(callback):
        found = _core.least_squares(matrix, np.atleast_1d(observations), sigmas, options)
    factor = Factor.__new__(Factor)
    factor._take(found.pop("factor"), None, is_array, callback)
    factor._judged(None)
    return Adjustment(**found, factor=factor, sigma_given=sigma is not None)


def _vector(values: Any, name: str) -> Doubles:
    array = _arrays.doubles(values, name)
    if array.ndim > 1:
        raise ValueError(f"{name} has the shape {array.shape}; it must have one dimension")
    return array
