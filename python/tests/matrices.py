"""Random matrices for the tests, and a large one."""

import numpy as np
from scipy import sparse
from scipy.spatial.transform import Rotation


def definite(n, seed=0, density=0.15):
    """Symmetric positive definite, whole, in compressed columns."""
    rng = np.random.default_rng(seed)
    half = sparse.random(n, n, density, random_state=rng, data_rvs=rng.standard_normal)
    return (half @ half.T + sparse.diags(1.0 + rng.random(n))).tocsc()


def general(n, seed=0, density=0.15):
    rng = np.random.default_rng(seed)
    return (sparse.random(n, n, density, random_state=rng) + sparse.diags(3.0 + rng.random(n))).tocsc()


def arrow(n):
    """Whose factor in the natural order is full."""
    first, rest = np.zeros(n - 1, int), np.arange(1, n)
    side = sparse.coo_matrix((np.ones(n - 1), (first, rest)), shape=(n, n))
    return (side + side.T + n * sparse.identity(n)).tocsc()


def grid(m):
    """Laplacian of an m x m x m grid, made definite."""
    line = sparse.diags([-1.0, 2.1, -1.0], [-1, 0, 1], shape=(m, m))
    return sparse.kronsum(sparse.kronsum(line, line), line).tocsc()


def rings(path, dimension, count, size=8, seed=0):
    """Writes a pose graph to path: rounds of a circle or a cylinder, each pose tied to the round before."""
    rng, d = np.random.default_rng(seed), 3 if dimension == 2 else 6
    turn = 2 * np.pi * np.arange(count) / size
    places = np.c_[3 * np.cos(turn), 3 * np.sin(turn), 0.1 * turn][:, :dimension]
    root = rng.standard_normal((d, d))
    triangle = (20 * np.eye(d) + 3 * root @ root.T)[np.triu_indices(d)]
    ends = [(k, k + 1) for k in range(count - 1)] + [(k + size, k) for k in range(count - size)]
    with open(path, "w") as file:
        for i, j in ends:
            tilt = Rotation.from_euler("z", turn[i] + np.pi / 2)
            step = tilt.inv().apply(np.pad(places[j] - places[i], (0, 3 - dimension)))[:dimension]
            off = 0.1 * rng.standard_normal(d)
            if dimension == 2:
                tag, rotated = "EDGE_SE2", [turn[j] - turn[i] + off[2]]
            else:
                about = Rotation.from_euler("z", turn[j] - turn[i]) * Rotation.from_rotvec(off[3:])
                tag, rotated = "EDGE_SE3:QUAT", about.as_quat()
            numbers = (*(step + off[:dimension]), *rotated, *triangle)
            print(tag, i, j, *(repr(float(v)) for v in numbers), file=file)
