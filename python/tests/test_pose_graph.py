"""Pose graphs and their pictures, against residuals and inverses of our own."""

import pickle

import numpy as np
import pytest
import zeph
from matrices import rings
from numpy.testing import assert_allclose
from scipy.linalg import block_diag
from scipy.spatial.transform import Rotation


def moved(pose, step):
    if len(pose) == 3:
        return pose + step
    R = Rotation.from_quat(pose[3:])
    return np.r_[pose[:3] + R.apply(step[:3]), (R * Rotation.from_rotvec(step[3:])).as_quat()]


def residual(a, b, z):
    if len(a) == 3:
        def back(angle, t):
            return np.array([[np.cos(angle), np.sin(angle)], [-np.sin(angle), np.cos(angle)]]) @ t
        turn = b[2] - a[2] - z[2]
        return np.r_[back(z[2], back(a[2], b[:2] - a[:2]) - z[:2]), np.angle(np.exp(1j * turn))]
    A, B, Z = (Rotation.from_quat(p[3:]).inv() for p in (a, b, z))
    return np.r_[Z.apply(A.apply(b[:3] - a[:3]) - z[:3]), (Z * A * B.inv()).as_rotvec()]


def model(path, graph):
    """Cost and inverse of the normal matrix where the graph stands, by central differences."""
    n, width = graph.poses.shape
    d, h = (3, 1e-6) if width == 3 else (6, 1e-6)
    rows, weights, errors = [], [], []
    for line, (i, j) in zip(path.read_text().splitlines(), graph.edges):
        numbers = np.array(line.split()[3:], dtype=float)
        omega = np.zeros((d, d))
        omega[np.triu_indices(d)] = numbers[width:]
        weights.append(omega + np.triu(omega, 1).T)
        errors.append(residual(graph.poses[i], graph.poses[j], numbers[:width]))
        J = np.zeros((d, n * d))
        for k, step in enumerate(h * np.eye(d)):
            for p in (i, j):
                ends = [[moved(graph.poses[q], s * step * (q == p)) for q in (i, j)] for s in (1, -1)]
                sides = [residual(*e, numbers[:width]) for e in ends]
                J[:, p * d + k] = (sides[0] - sides[1]) / (2 * h)
        rows.append(J)
    J, W, e = np.vstack(rows), block_diag(*weights), np.concatenate(errors)
    Z = np.zeros((n * d, n * d))
    Z[d:, d:] = np.linalg.inv((J.T @ W @ J)[d:, d:])
    return e @ W @ e, J.T @ W @ e, Z


@pytest.mark.parametrize("dimension", [2, 3])
def test_results_against_a_dense_model(dimension, tmp_path):
    path = tmp_path / "rings.g2o"
    rings(path, dimension, 20)
    start = zeph.pose_graph(path, max_iterations=0)
    graph = zeph.pose_graph(path, ordering="amd")
    d = 3 * dimension - 3
    assert start.iterations == 0 and not start.converged and graph.converged
    assert "20 poses and 31 edges" in repr(graph) and "not converged" in repr(start)
    assert graph.initial_cost == start.cost > graph.cost and len(graph.costs) == graph.iterations + 1
    assert sorted(graph.costs, reverse=True) == graph.costs
    for g in (start, graph, pickle.loads(pickle.dumps(graph))):
        cost, slope, Z = model(path, g)
        assert_allclose(g.cost, cost, rtol=1e-12)
        assert g is start or np.abs(slope[d:]).max() < 1e-4 * np.abs(Z[d:, d:]).max() ** -0.5
        for i, j in ((0, 3), (4, 4), (4, 19), (19, 4)):
            truth = Z[i * d:(i + 1) * d, j * d:(j + 1) * d]
            assert_allclose(g.covariance(i, j), truth, atol=1e-6 * np.abs(Z).max())
        assert_allclose(g.covariances()[7], g.covariance(7), rtol=1e-12)
        assert g.fixed.tolist() == [True] + 19 * [False] and g.ids.tolist() == list(range(20))
    assert np.array_equal(pickle.loads(pickle.dumps(graph)).covariance(5), graph.covariance(5))


@pytest.mark.parametrize("dimension, projection", [(2, "xy"), (3, "xy"), (3, "yz"), (3, "3d")])
def test_ellipses_are_two_sigma_wide(dimension, projection, tmp_path):
    rings(tmp_path / "r.g2o", dimension, 30)
    graph = zeph.pose_graph(tmp_path / "r.g2o")
    ax = graph.plot(projection=projection, enlarge=1.0)
    drawn = ax.collections[-1]
    view = {"xy": [0, 1], "yz": [1, 2], "3d": [0, 1, 2]}[projection]
    curves = [p.vertices for p in drawn.get_paths()] if len(view) == 2 else drawn._segments3d
    assert len(curves) == 29 * (3 if len(view) == 3 else 1)
    for k, curve in enumerate(curves):
        i = 1 + (k // 3 if len(view) == 3 else k)
        R = Rotation.from_quat(graph.poses[i, 3:]).as_matrix() if dimension == 3 else np.eye(2)
        C = (R @ graph.covariance(i)[:dimension, :dimension] @ R.T)[np.ix_(view, view)]
        off = curve - graph.poses[i, view]
        assert_allclose(np.einsum("ki,ij,kj->k", off, np.linalg.inv(C), off), 4.0, rtol=1e-9)
        if len(view) == 2:
            halves = np.linalg.norm(off, axis=1)
            assert_allclose([halves.min(), halves.max()], 2 * np.sqrt(np.linalg.eigvalsh(C)), rtol=2e-3)
    assert "30 poses" in ax.get_title() and [t.get_text() for t in ax.get_legend().get_texts()] == [
        "trajectory", "loop closures", "2\u03c3 of positions"]


def test_networks_show_every_point_and_line_in_its_colour():
    points = np.random.default_rng(0).random((9, 2))
    sigma = np.r_[np.nan, np.arange(8.0)[::-1] + 1]
    ax = zeph.plot.network(points, sigma, [[0, 1], [8, 2]])
    lines, dots = ax.collections
    assert_allclose([p.vertices for p in lines.get_paths()], points[[[0, 1], [8, 2]]])
    assert_allclose(dots.get_offsets(), points[:0:-1])
    assert_allclose(dots.get_array(), np.arange(8.0) + 1)
    assert_allclose(ax.lines[0].get_xydata(), points[:1])
    assert ax.get_title() == "9 points, 2 lines; largest: 8 at point 1"
