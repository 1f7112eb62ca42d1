"""Pictures, drawn with Matplotlib, which is imported when the first one is."""

from typing import Any, Optional, Tuple

import numpy as np
from scipy import sparse

from zeph import _arrays
from zeph._factor import Factor, factorize
from zeph._pose_graph import PoseGraph

#: Colours of what is there already, of what is added or stands out, and of what is uncertain; all
#: show on light and dark.
FIRST, SECOND, THIRD = "#3b7dd8", "#e08a1e", "#2f9e6e"

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


def network(
    points: Any,
    sigma: Any,
    lines: Any = None,
    *,
    label: str = "standard deviation",
    ax: Optional[Any] = None,
) -> Any:
    """Draw points in the plane, coloured by their standard deviations, and lines between them.

    Parameters
    ----------
    points : array_like, shape (n, 2)
        x and y.
    sigma : array_like, shape (n,)
        What colours them. NaN leaves a point without colour, such as one that is held fixed.
    lines : array_like of int, shape (m, 2), optional
        Pairs of points, counted from zero.
    label : str
        What the colours stand for, with its unit.
    ax : Axes, optional
        Where to draw; a new figure if left out.

    Returns
    -------
    ax : Axes

    Examples
    --------
    >>> ax = zeph.plot.network([[0, 0], [1, 0], [1, 1]], [0.1, 0.2, 0.1], [[0, 1], [1, 2]])
    >>> ax.get_title()
    '3 points, 2 lines; largest: 0.2 at point 1'
    """
    from matplotlib.collections import LineCollection

    at, colours = _arrays.doubles(points, "points"), _arrays.doubles(sigma, "sigma")
    if at.ndim != 2 or at.shape[1] != 2:
        raise ValueError(f"points has the shape {at.shape}; it must be (n, 2)")
    n = len(at)
    if colours.shape != (n,):
        raise ValueError(f"sigma has the shape {colours.shape} for {n} points")
    ends = np.empty((0, 2), np.int64) if lines is None else _arrays.integers(lines, "lines")
    if ends.ndim != 2 or ends.shape[1] != 2:
        raise ValueError(f"lines has the shape {ends.shape}; it must be (m, 2)")
    if ends.size and not 0 <= ends.min() <= ends.max() < n:
        wrong = ends.min() if ends.min() < 0 else ends.max()
        raise ValueError(f"lines names point {wrong}; the points are numbered from 0 to {n - 1}")
    (ax,) = _axes(None if ax is None else [ax], 1, 5.5)
    size = float(np.clip(7500.0 / max(n, 1), 3.0, 60.0))
    edges = LineCollection(at[ends], colors="#8c8c8c", linewidths=0.7, alpha=0.6, zorder=1)
    ax.add_collection(edges)
    held = np.isnan(colours)
    if held.any():
        ax.plot(*at[held].T, "^", color="#8c8c8c", markersize=7, zorder=3, label="fixed")
        ax.legend(frameon=False)
    # The largest on top, as they are what one looks for.
    order = np.argsort(np.where(held, -np.inf, colours))[held.sum() :]
    drawn = ax.scatter(*at[order].T, c=colours[order], s=size, cmap=_colours(), zorder=2)
    bar = ax.figure.colorbar(drawn, ax=ax, label=label, shrink=0.8)
    bar.outline.set_visible(False)
    counted = f"{n:,} points" + (f", {len(ends):,} lines" if len(ends) else "")
    largest = f"; largest: {colours[order[-1]]:.3g} at point {order[-1]}" if order.size else ""
    ax.set_title(counted + largest)
    ax.set_aspect("equal", adjustable="datalim")
    ax.autoscale_view()
    return ax


def pose_graph(
    graph: PoseGraph,
    *,
    projection: str = "xy",
    sigmas: float = 2.0,
    enlarge: Optional[float] = None,
    ellipses: int = 60,
    ax: Optional[Any] = None,
) -> Any:
    """Draw the trajectory, the loop closures and ellipses of the positions of a pose graph.

    Parameters
    ----------
    graph : PoseGraph
    projection : {"xy", "xz", "yz", "3d"}
        How to look at a graph in space. "3d" draws in three dimensions, with the ellipsoids by their
        sections along the axes.
    sigmas : float
        Half axes of the ellipses, in standard deviations along them. In the plane, 2 hold the position
        with 86 %, 2.448 with 95 %.
    enlarge : float, optional
        By how much they are drawn larger than they are; a round number that lets them be seen if
        left out. The legend tells it.
    ellipses : int
        At most so many, evenly spread over the poses.
    ax : Axes, optional
        Where to draw, with three dimensions for "3d"; a new figure if left out.

    Returns
    -------
    ax : Axes

    Examples
    --------
    >>> ax = zeph.plot.pose_graph(zeph.pose_graph(square))
    >>> ax.get_title()
    '4 poses, 4 edges: cost 0.207'
    """
    views = {"xy": [0, 1], "xz": [0, 2], "yz": [1, 2], "3d": [0, 1, 2]}
    if projection not in views:
        raise ValueError(f"projection is {projection!r}; it must be one of {', '.join(views)}")
    if graph.dimension == 2 and projection != "xy":
        raise ValueError(f"a graph in the plane has no projection {projection!r}")
    if not (sigmas > 0.0 and (enlarge is None or enlarge > 0.0)):
        raise ValueError("sigmas and enlarge must be positive")
    view = views[projection]
    positions = graph.poses[:, : graph.dimension][:, view]
    chosen, roots = _position_roots(graph, ellipses)
    roots = sigmas * roots[:, view, :]
    extent = float(np.ptp(positions, axis=0).max()) or 1.0
    if enlarge is None:
        enlarge = _round_enlargement(roots, extent)
    curves = positions[chosen][:, None, None, :] + enlarge * _outlines(roots)
    (ax,) = _axes(None if ax is None else [ax], 1, 5.5, "3d" if len(view) == 3 else None)
    near = np.abs(graph.edges[:, 0] - graph.edges[:, 1]) == 1
    kinds = [(near, FIRST, 1.4, "trajectory"), (~near, SECOND, 0.7, "loop closures")]
    for some, colour, width, label in kinds:
        if some.any():
            _add_lines(ax, positions[graph.edges[some]], colour, width, label)
    if len(curves):
        label = f"{sigmas:g}\u03c3 of positions" + (f", {enlarge:g} \u00d7" if enlarge != 1.0 else "")
        if len(view) == 3:
            _add_lines(ax, curves.reshape(-1, *curves.shape[2:]), THIRD, 0.8, label)
        else:
            _add_ellipses(ax, curves[:, 0], label)
    shown = np.concatenate([positions, curves.reshape(-1, len(view))])
    _frame(ax, shown, ["xyz"[k] for k in view])
    ax.legend(frameon=False, ncols=3, loc="upper center", bbox_to_anchor=(0.5, -0.1), fontsize=9)
    counts = f"{len(graph.poses):,} poses, {len(graph.edges):,} edges"
    ax.set_title(f"{counts}: cost {graph.cost:.3g}")
    return ax


def _position_roots(graph: PoseGraph, most: int) -> Tuple[Any, Any]:
    """Which poses get an ellipse, and S with S S' the covariance of each one's position."""
    n, d = len(graph.poses), graph.dimension
    if most < 1:
        return np.empty(0, np.int64), np.empty((0, d, d))
    stride = max(1, -(-n // most))
    chosen = np.arange(0, n, stride)
    chosen = chosen[~graph.fixed[chosen]]
    blocks = graph.covariances()[chosen, :d, :d]
    values, vectors = np.linalg.eigh(blocks)
    roots = vectors * np.sqrt(np.maximum(values, 0.0))[:, None, :]
    if d == 3 and len(chosen):  # movements are in the pose's own frame
        from scipy.spatial.transform import Rotation

        roots = Rotation.from_quat(graph.poses[chosen, 3:]).as_matrix() @ roots
    return chosen, roots


def _outlines(roots: Any) -> Any:
    """Curves around the origin, k of them for each of m roots: m x k x corners x dimension.

    In the plane that is the ellipse that bounds the ellipsoid's shadow; in space, its three sections.
    """
    m, dimension = len(roots), roots.shape[1]
    turn = np.linspace(0.0, 2.0 * np.pi, 73)
    circle = np.stack([np.cos(turn), np.sin(turn)])
    if dimension == 2:
        values, vectors = np.linalg.eigh(roots @ roots.transpose(0, 2, 1))
        axes = vectors * np.sqrt(np.maximum(values, 0.0))[:, None, :]
        return (axes @ circle).transpose(0, 2, 1)[:, None]
    planes = [roots[:, :, pair] @ circle for pair in ([0, 1], [0, 2], [1, 2])]
    return np.stack(planes, axis=1).transpose(0, 1, 3, 2) if m else np.empty((0, 3, 73, 3))


def _round_enlargement(roots: Any, extent: float) -> float:
    """1, 2 or 5 times a power of ten that makes the largest ellipse about a twelfth of the picture."""
    largest = float(np.linalg.norm(roots, ord=2, axis=(1, 2)).max()) if len(roots) else 0.0
    wanted = extent / (24.0 * largest) if largest > 0.0 else 1.0
    if not 1.0 < wanted < 1e300:
        return 1.0
    power = 10.0 ** np.floor(np.log10(wanted))
    return float(power * max(step for step in (1.0, 2.0, 5.0) if step * power <= wanted))


def _add_lines(ax: Any, lines: Any, colour: str, width: float, label: str) -> None:
    style = dict(colors=colour, linewidths=width, label=label, alpha=0.9)
    if lines.shape[-1] == 3:
        from mpl_toolkits.mplot3d.art3d import Line3DCollection

        ax.add_collection3d(Line3DCollection(lines, **style))
    else:
        from matplotlib.collections import LineCollection

        ax.add_collection(LineCollection(lines, **style))


def _add_ellipses(ax: Any, curves: Any, label: str) -> None:
    from matplotlib.collections import PolyCollection
    from matplotlib.colors import to_rgba

    faces = to_rgba(THIRD, 0.25)
    ax.add_collection(
        PolyCollection(curves, facecolors=faces, edgecolors=THIRD, label=label, zorder=3)
    )


def _frame(ax: Any, shown: Any, names: Any) -> None:
    """Equal scales along all axes, which collections do not see to by themselves."""
    low, high = shown.min(axis=0), shown.max(axis=0)
    margin = 0.03 * float((high - low).max() or 1.0)
    for own, name, lower, upper in zip("xyz", names, low - margin, high + margin):
        getattr(ax, f"set_{own}label")(name)
        getattr(ax, f"set_{own}lim")(lower, upper)
    if len(names) == 3:
        ax.set_box_aspect(high - low + 2 * margin)
        for axis in (ax.xaxis, ax.yaxis, ax.zaxis):
            axis.set_pane_color((0.5, 0.5, 0.5, 0.05))
    else:
        ax.set_aspect("equal", adjustable="datalim")


def _colours() -> Any:
    """From blue to orange, every one of which shows on light and dark."""
    from matplotlib.colors import LinearSegmentedColormap

    return LinearSegmentedColormap.from_list("zeph", [FIRST, "#8f79b8", "#c9727c", SECOND])


def _axes(
    given: Optional[Any], count: int, height: float = 0.0, projection: Optional[str] = None
) -> Any:
    if given is not None:
        return given
    from matplotlib import pyplot

    size = (5.0 * count + 1.0, height or (5.0 if count > 1 else 4.0))
    return pyplot.subplots(
        1,
        count,
        figsize=size,
        layout="constrained",
        squeeze=False,
        subplot_kw={"projection": projection},
    )[1][0]


def _cells(A: Any) -> Any:
    """Where A has entries, on a grid of at most CELLS x CELLS cells."""
    entries = sparse.coo_matrix(A)
    n = A.shape[0]
    size = min(n, CELLS)
    cells = np.zeros((size, size), dtype=bool)
    cells[entries.row.astype(np.int64) * size // n, entries.col.astype(np.int64) * size // n] = True
    return cells
