"""Random matrices for the tests, and a large one."""

import numpy as np
from scipy import sparse


def definite(n, seed=0, density=0.15):
    """Symmetric positive definite, whole, in compressed columns."""
    rng = np.random.default_rng(seed)
    half = sparse.random(n, n, density, random_state=rng, data_rvs=rng.standard_normal)
    return (half @ half.T + sparse.diags(1.0 + rng.random(n))).tocsc()


def general(n, seed=0, density=0.15):
    rng = np.random.default_rng(seed)
    return (sparse.random(n, n, density, random_state=rng) + sparse.diags(3.0 + rng.random(n))).tocsc()


def grid(m):
    """Laplacian of an m x m x m grid, made definite."""
    line = sparse.diags([-1.0, 2.1, -1.0], [-1, 0, 1], shape=(m, m))
    return sparse.kronsum(sparse.kronsum(line, line), line).tocsc()
