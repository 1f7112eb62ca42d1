"""Factors of sparse matrices, and what their inverses hold: variances at the price of a factorisation.

>>> import zeph
>>> A = [[4.0, -1.0, 0.0], [-1.0, 4.0, -1.0], [0.0, -1.0, 4.0]]     # or any SciPy sparse matrix
>>> zeph.variances(A).round(4)
array([0.2679, 0.2857, 0.2679])
"""

from zeph._errors import AccuracyWarning, Error, NotPositiveDefiniteError, SingularMatrixError
from zeph import plot
from zeph._core import __version__
from zeph._adjustment import Adjustment, least_squares
from zeph._factor import (
    Factor,
    Report,
    factorize,
    logdet,
    plan,
    read,
    selected_inverse,
    solve,
    variances,
    write,
)
from zeph._pose_graph import PoseGraph, pose_graph

__all__ = [
    "AccuracyWarning",
    "Adjustment",
    "Error",
    "Factor",
    "NotPositiveDefiniteError",
    "PoseGraph",
    "Report",
    "SingularMatrixError",
    "factorize",
    "least_squares",
    "logdet",
    "plan",
    "plot",
    "pose_graph",
    "read",
    "selected_inverse",
    "solve",
    "variances",
    "write",
]
