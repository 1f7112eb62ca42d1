"""Pose graphs: where poses are most likely, and how uncertain they are there."""

import os
from typing import Any, Dict, List, Optional, Union

import numpy as np
import numpy.typing as npt

from zeph import _arrays, _core, _progress
from zeph._errors import warn
from zeph._factor import Scratch, _options

Doubles = npt.NDArray[np.float64]


class PoseGraph:
    """A pose graph with its poses where the sum of e' Omega e is least; made by `pose_graph`.

    The residual e of an edge i -> j with the measurement (R_z, t_z) is
    (R_z'(R_i'(t_j - t_i) - t_z), Log(R_z' R_i' R_j)), in 2-D with the angle wrapped to (-pi, pi]. A
    pose moves by t += R dt, R <- R Exp(dr) in 3-D and by plain addition in 2-D; covariances are those
    of (dt, dr). It can be pickled, and shared by threads.

    Attributes
    ----------
    poses : ndarray, shape (n, 3) or (n, 7)
        x, y, angle in 2-D; x, y, z, qx, qy, qz, qw in 3-D.
    ids : ndarray of int, shape (n,)
        Of the poses in the file, ascending.
    fixed : ndarray of bool, shape (n,)
        Which of them were held where they are.
    edges : ndarray of int, shape (m, 2)
        From and to, as rows of poses.
    costs : list of float
        The sum of e' Omega e at the beginning and after each iteration.
    converged : bool
        False where max_iterations were not enough.
    """

    poses: Doubles
    ids: npt.NDArray[np.int64]
    fixed: npt.NDArray[np.bool_]
    edges: npt.NDArray[np.int64]
    costs: List[float]
    converged: bool

    def __init__(self, core: _core.PoseGraph, settings: Dict[str, Any], callback: Any) -> None:
        self._core, self._settings, self._callback = core, settings, callback
        self.poses, self.ids, self.fixed = core.poses(), core.ids(), core.fixed()
        self.edges, self.costs, self.converged = core.edges(), core.costs(), core.converged()

    @property
    def initial_cost(self) -> float:
        """The sum of e' Omega e where the file has the poses."""
        return self.costs[0]

    @property
    def cost(self) -> float:
        """The sum of e' Omega e where the poses are now."""
        return self.costs[-1]

    @property
    def iterations(self) -> int:
        """Steps that were made; the last may have moved nothing."""
        return len(self.costs) - 1

    @property
    def dimension(self) -> int:
        """2 for poses in the plane, 3 for poses in space."""
        return 2 if self.poses.shape[1] == 3 else 3

    def __repr__(self) -> str:
        after = "" if self.converged else ", not converged"
        return (
            f"<zeph.PoseGraph of {len(self.poses)} poses and {len(self.edges)} edges in "
            f"{self.dimension}-D: cost {self.cost:.6g} after {self.iterations} iterations{after}>"
        )

    def covariance(self, i: int, j: Optional[int] = None) -> Doubles:
        """The covariance of pose i, or that between the poses i (rows) and j (columns).

        Parameters
        ----------
        i, j : int
            Rows of `poses`; `numpy.searchsorted(graph.ids, id)` finds that of an id.

        Returns
        -------
        C : ndarray, shape (3, 3) in 2-D and (6, 6) in 3-D
            Zero where a pose is fixed.

        Examples
        --------
        >>> graph = zeph.pose_graph(square)      # the file of the example of `pose_graph`
        >>> np.sqrt(np.diag(graph.covariance(2))).round(3)
        array([0.119, 0.111, 0.089])
        >>> graph.covariance(2, 1).round(4)
        array([[ 0.005 , -0.0009, -0.0044],
               [ 0.    ,  0.0061,  0.0023],
               [ 0.0001,  0.002 ,  0.004 ]])
        """
        first = _arrays.scalar(i, "i")
        second = first if j is None else _arrays.scalar(j, "j")
        for name, value in (("i", first), ("j", second)):
            if not 0 <= value < len(self.poses):
                last = len(self.poses) - 1
                raise ValueError(f"{name} is {value}; the poses are numbered from 0 to {last}")
        with _progress.closing(self._callback):
            return self._judged(self._core.covariance(first, second))

    def covariances(self) -> Doubles:
        """The covariances of all poses, at the price of about one factorisation.

        Returns
        -------
        C : ndarray, shape (n, 3, 3) in 2-D and (n, 6, 6) in 3-D

        Examples
        --------
        >>> graph = zeph.pose_graph(square)
        >>> np.sqrt(graph.covariances()[:, 0, 0]).round(3)      # standard deviations of x
        array([0.   , 0.089, 0.119, 0.113])
        """
        with _progress.closing(self._callback):
            return self._judged(self._core.covariances())

    def _judged(self, result: Doubles) -> Doubles:
        for sentence in self._core.warnings():
            warn(sentence)
        return result

    def plot(self, **options: Any) -> Any:
        """Draw it; options and result as for `zeph.plot.pose_graph`."""
        from zeph import plot

        return plot.pose_graph(self, **options)

    def __getstate__(self) -> Dict[str, Any]:
        return {"core": self._core.state(), "settings": self._settings}

    def __setstate__(self, state: Dict[str, Any]) -> None:
        settings = state["settings"]
        core = _core.restore_pose_graph(state["core"], _options("cholesky", callback=None, **settings))
        PoseGraph.__init__(self, core, settings, None)


def pose_graph(
    path: Union[str, "os.PathLike[str]"],
    *,
    max_iterations: int = 100,
    tolerance: float = 1e-10,
    ordering: Any = "auto",
    threads: int = 0,
    progress: _progress.Progress = None,
    memory_limit: float = 0.0,
    scratch: Scratch = None,
) -> PoseGraph:
    """Read a pose graph and move its poses to where the sum of e' Omega e is least.

    Parameters
    ----------
    path : str or path
        Records VERTEX_SE2, EDGE_SE2, VERTEX_SE3:QUAT, EDGE_SE3:QUAT and FIX, one a line. Without FIX
        the pose with the smallest id is held fixed.
    max_iterations : int
        0 leaves the poses where they are.
    tolerance : float
        It is done when a step promises less than this share of the cost.
    ordering, threads, progress, memory_limit, scratch
        As for `factorize`.

    Returns
    -------
    PoseGraph

    Raises
    ------
    Error
        With the file and the line at fault.
    SingularMatrixError
        For a pose that no edge ties to a fixed one.

    Examples
    --------
    A square walked round, with one edge that closes it:

    >>> lines = [f"EDGE_SE2 {k} {(k + 1) % 4} 1 0 {1.5 + 0.05 * k} 100 0 0 100 0 100" for k in range(4)]
    >>> _ = square.write_text("\\n".join(lines))
    >>> graph = zeph.pose_graph(square)
    >>> graph
    <zeph.PoseGraph of 4 poses and 4 edges in 2-D: cost 0.206963 after 4 iterations>
    >>> graph.poses.round(2)
    array([[ 0.  ,  0.  ,  0.  ],
           [ 1.  , -0.02,  1.51],
           [ 1.06,  0.96,  3.06],
           [ 0.07,  1.02, -1.64]])
    """
    limit = _arrays.scalar(max_iterations, "max_iterations")
    if not 0 <= limit < 2**31:
        raise ValueError(f"max_iterations is {limit}; it must not be negative")
    if not float(tolerance) >= 0.0:
        raise ValueError(f"tolerance is {tolerance}; it must not be negative")
    callback = _progress.callback(progress)
    settings = {
        "ordering": ordering,
        "threads": threads,
        "memory_limit": memory_limit,
        "scratch": scratch,
    }
    options = _options("cholesky", callback=callback, **settings)
    with _progress.closing(callback):
        core = _core.make_pose_graph(os.fspath(path), options, limit, float(tolerance))
    return PoseGraph(core, settings, callback)
