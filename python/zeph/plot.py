"""Pictures, drawn with Matplotlib, which is imported when the first one is."""

from typing import Any, Optional

import numpy as np
from scipy import sparse

from zeph import _arrays
from zeph._factor import Factor, factorize

#: Colours of what is there already and of what is added or stands out; both show on light and dark.
FIRST, SECOND = "#3b7dd8", "#e08a1e"

#: Cells of a picture of a pattern, along each side; larger matrices are drawn by blocks.
CELLS = 400


def spy(A: Any, *, axes: Optional[Any] = None, **options: Any) -> Any:
    """Draw the pattern of A beside that of its Cholesky factor, in A's order, and count the fill.

    Parameters
    ----------
    A : sparse matrix, sparse array or array_like, shape (n, n)
        Symmetric positive definite.
    axes : two Axes, optional
        Where to draw; a new figure if left out.
    **options
        As for `factorize`.

    Returns
    -------
    axes : two Axes

    Notes
    -----
    The factor is drawn as L + L.T with its rows and columns where A has them: what is added to A is
    its fill, in the second colour.

    Examples
    --------
    >>> left, right = zeph.plot.spy([[4.0, 1.0, 1.0], [1.0, 4.0, 0.0], [1.0, 0.0, 4.0]])
    >>> right.get_title()
    'Factor: 5 entries, no fill'
    """
    from matplotlib.colors import ListedColormap

    left, right = _axes(axes, 2)
    factor = factorize(A, **options)
    theirs = _cells(_arrays.compressed(A, "A"))
    ours = _cells(factor.selected_inverse())
    n, report = factor.shape[0], factor.report
    fill = report.entries_of_l - (report.entries_of_a + n) // 2
    for ax, picture in ((left, np.where(theirs, 1, 0)), (right, np.where(theirs, 1, 2 * ours))):
        ax.imshow(
            np.where(picture == 0, np.nan, picture),
            cmap=ListedColormap([FIRST, SECOND]),
            vmin=1,
            vmax=2,
            extent=(-0.5, n - 0.5, n - 0.5, -0.5),
            interpolation="nearest",
        )
    left.set_title(f"A: {n:,} rows, {report.entries_of_a:,} entries")
    added = f"{fill:,} of them fill" if fill else "no fill"
    right.set_title(f"Factor: {report.entries_of_l:,} entries, {added}")
    return left, right


def variances(F: Any, *, indices: Any = None, sigma: bool = True, ax: Optional[Any] = None) -> Any:
    """Draw the standard deviations, or the variances, of the unknowns, with the largest marked.

    Parameters
    ----------
    F : Factor or matrix
        A matrix is factorised first.
    indices : array_like of int, optional
        Which unknowns; all if left out.
    sigma : bool
        Standard deviations; variances if false.
    ax : Axes, optional
        Where to draw; a new figure if left out.

    Returns
    -------
    ax : Axes

    Examples
    --------
    >>> zeph.plot.variances([[4.0, 1.0], [1.0, 3.0]]).get_title()
    'Largest: 0.603 at unknown 1'
    """
    factor = F if isinstance(F, Factor) else factorize(F)
    values = factor.variances(indices)
    at = np.arange(len(values)) if indices is None else np.asarray(indices)
    if sigma and values.size and values.min() < 0:
        raise ValueError("some variances are negative: A is not definite; ask for sigma=False")
    heights = np.sqrt(values) if sigma else values
    (ax,) = _axes(None if ax is None else [ax], 1)
    marks = dict(marker=".", markersize=3, linestyle="none") if len(at) > 100 else dict(marker="o")
    ax.plot(at, heights, color=FIRST, **marks)
    if heights.size:
        top = int(np.argmax(heights))
        ax.plot([at[top]], [heights[top]], "o", color=SECOND)
        ax.set_title(f"Largest: {heights[top]:.3g} at unknown {at[top]}")
        # From zero, lest small differences look large, and with room above the largest.
        ax.set_ylim(min(0.0, 1.1 * heights.min()), 1.1 * max(heights.max(), 0.0) or None)
    ax.set_xlabel("unknown")
    ax.set_ylabel("standard deviation" if sigma else "variance")
    return ax


def _axes(given: Optional[Any], count: int) -> Any:
    if given is not None:
        return given
    from matplotlib import pyplot

    size = (5.0 * count + 1.0, 5.0 if count > 1 else 4.0)
    return pyplot.subplots(1, count, figsize=size, layout="constrained", squeeze=False)[1][0]


def _cells(A: Any) -> Any:
    """Where A has entries, on a grid of at most CELLS x CELLS cells."""
    entries = sparse.coo_matrix(A)
    n = A.shape[0]
    size = min(n, CELLS)
    cells = np.zeros((size, size), dtype=bool)
    cells[entries.row.astype(np.int64) * size // n, entries.col.astype(np.int64) * size // n] = True
    return cells
