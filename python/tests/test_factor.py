"""Everything a factor answers, against dense inverses."""

import doctest
import importlib
import pickle
import subprocess
import sys

import numpy as np
import pytest
import zeph
from matrices import definite, general
from numpy.testing import assert_allclose
from scipy import sparse

FORMATS = ["csc", "csr", "coo", "bsr", "dia", "dok", "lil"]


def check_everything(F, dense):
    """All that F answers against the inverse of dense."""
    n = len(dense)
    Z = np.linalg.inv(dense)
    close = dict(rtol=1e-9, atol=1e-12)
    B = np.random.default_rng(1).standard_normal((n, 3))
    assert F.shape == dense.shape
    assert_allclose(F.solve(B), Z @ B, **close)
    assert_allclose(F.solve(B[:, 0]), Z @ B[:, 0], **close)
    assert_allclose(F.variances(), np.diag(Z), **close)
    some = np.random.default_rng(2).integers(0, n, (2, 4))
    assert_allclose(F.variances(some), np.diag(Z)[some], **close)
    assert_allclose(F.covariance(some, some[:, :1]), Z[some, some[:, :1]], **close)
    assert_allclose(F.covariance_block(some[0]), Z[np.ix_(some[0], some[0])], **close)
    assert_allclose(F.slogdet(), np.linalg.slogdet(dense), rtol=1e-9)
    C = sparse.random(n, n, 0.3, random_state=3, format="csr")
    assert_allclose(F.trace_inverse_times(C), np.trace(Z @ C), **close)
    if F.report.method == "cholesky":
        S = F.selected_inverse()
        assert S.format == "csc" and S.has_sorted_indices
        r, c = S.nonzero()
        assert set(zip(*dense.nonzero())) <= set(zip(r, c))
        assert_allclose(np.asarray(S[r, c]).ravel(), Z[r, c], **close)


@pytest.mark.parametrize("n", [1, 2, 30])
@pytest.mark.parametrize("ordering", [*zeph._factor.ORDERINGS, "array"])
@pytest.mark.parametrize("method, make", [("cholesky", definite), ("lu", general), ("auto", general)])
def test_against_dense(n, ordering, method, make):
    A = make(n, seed=n)
    order = np.random.default_rng(n).permutation(n) if ordering == "array" else ordering
    check_everything(zeph.factorize(A, method=method, ordering=order), A.toarray())


@pytest.mark.parametrize("make", [definite, general])
@pytest.mark.parametrize("kind", ["matrix", "array"])
@pytest.mark.parametrize("form", FORMATS)
def test_every_format_index_width_and_type(form, kind, make):
    for dtype in (np.float64, np.float32, np.float16, np.longdouble, np.int8, np.uint64):
        dense = np.round(4 * make(20, seed=5).toarray()).astype(np.float64)
        A = getattr(sparse, f"{form}_{kind}")(dense).astype(
            np.float64 if dtype == np.float16 or dense.min() < 0 else dtype
        )
        for width in (np.int32, np.int64):
            for name in ("indices", "indptr", "offsets", "row", "col"):
                if hasattr(A, name) and form not in ("dok", "lil"):
                    setattr(A, name, getattr(A, name).astype(width))
            before = pickle.dumps(A.tocsc().toarray())
            check_everything(zeph.factorize(A), dense)
            assert pickle.dumps(A.tocsc().toarray()) == before


def test_every_memory_layout():
    A, b = definite(25), np.random.default_rng(3).standard_normal((50, 8))
    Z = np.linalg.inv(A.toarray())
    F = zeph.factorize(A)
    frozen = np.asfortranarray(b[:25])
    frozen.flags.writeable = False
    for view in (b[::2], b[:25][:, ::-2], b[25:].T.copy().T, frozen, b[::2].astype(">f8"),
                 b[:25, 3], b[:25].astype(np.float32), b[:25, :0]):
        keep = np.array(view)
        x = F.solve(view)
        assert x.dtype == np.float64 and x.shape == view.shape
        assert_allclose(x, Z @ keep, rtol=1e-9, atol=1e-12)
        assert np.array_equal(view, keep)
    assert_allclose(F.solve(list(b[:25, 0])), Z @ b[:25, 0])
    # Spare room behind the entries, entries out of order, twice and split, read-only arrays.
    cols = A.tocoo().col
    messy = sparse.coo_matrix((np.r_[A.data[::-1], 1.0, -1.0],
                               (np.r_[A.indices[::-1], 2, 2], np.r_[cols[::-1], 7, 7])))
    split = sparse.csc_matrix(
        (np.repeat(A.data / 2, 2), np.repeat(A.indices, 2), 2 * A.indptr), shape=A.shape)
    roomy = A.copy()
    roomy.data, roomy.indices = np.r_[A.data, np.nan], np.r_[A.indices, 99].astype(np.int32)
    for M in (messy, split, roomy, A.toarray(), A.toarray().T, A.toarray().tolist()):
        for array in (getattr(M, name, None) for name in ("data", "indices", "indptr")):
            if isinstance(array, np.ndarray):
                array.flags.writeable = False
        assert_allclose(zeph.variances(M), np.diag(Z), rtol=1e-9)


@pytest.mark.parametrize("make", [definite, general])
@pytest.mark.parametrize("form", ["csc", "csr"])
def test_refactorize_takes_values_wherever_they_stand(form, make):
    A = make(30, seed=4)
    F = zeph.factorize(A.asformat(form))
    scale = sparse.diags(np.linspace(1, 2, 30))
    scaled = (scale @ A @ scale).tocsc()
    fewer = sparse.diags(A.diagonal(), format="csc")
    for B in (scaled, scaled.tocoo(), scaled.tocsr()[:, :].toarray(), fewer, A):
        F.refactorize(B)
        check_everything(F, B.toarray() if sparse.issparse(B) else B)
    beyond = A.tolil()
    beyond[np.nonzero(A.toarray() == 0)[0][0], np.nonzero(A.toarray() == 0)[1][0]] = 1.0
    with pytest.raises(ValueError, match="where the matrix had none"):
        F.refactorize(beyond)
    with pytest.raises(ValueError, match="29 x 29; the matrix was 30 x 30"):
        F.refactorize(A[:-1, :-1])
    check_everything(F, A.toarray())
    with pytest.raises(zeph.SingularMatrixError if make is general else zeph.Error):
        F.refactorize(0 * A)
    with pytest.raises(ValueError, match="no numbers"):
        F.variances()
    F.refactorize(A)
    check_everything(F, A.toarray())


def test_samples_have_the_inverse_as_covariance():
    A = definite(6, density=0.4)
    x = zeph.factorize(A).sample(200_000, seed=8)
    assert_allclose(np.cov(x), np.linalg.inv(A.toarray()), atol=0.01)
    assert np.array_equal(x[:, :5], zeph.factorize(A, threads=1).sample(5, 8))


def test_doubtful_results_warn_at_the_line_that_asked(tmp_path):
    A = sparse.block_diag([definite(5), [[1.0 + 1e-10, -1.0], [-1.0, 1.0]]]).tocsc()
    F = zeph.factorize(A)
    J = [[1e-5, 0.0], [-1.0, 1.0], [0.0, 1e-5]]
    (tmp_path / "p.g2o").write_text("".join(
        f"EDGE_SE2 {ends} 3 0 0 {w} 0 0 {w} 0 {w}\n" for ends, w in (("2 5", 1e-5), ("5 7", 1e5))))
    P = zeph.pose_graph(tmp_path / "p.g2o")
    for ask, what in (
            (lambda: F.solve(np.ones(7)), "the solution .* unknown [56] "),
            (lambda: F.variances([1, 6]), "unknown 6 "), (F.variances, "unknown [56] "),
            (lambda: F.covariance_block([5]), "unknown 5 "), (F.logdet, "the determinant"),
            (F.selected_inverse, "the selected"), (lambda: F.sample(1, 1), "the samples"),
            (lambda: F.trace_inverse_times(A), "the trace"),
            (lambda: zeph.least_squares(J, np.ones(3)), "unknown"),
            (P.covariances, "pose [57] "), (lambda: P.covariance(1), "pose 5 ")):
        with pytest.warns(zeph.AccuracyWarning, match=what) as told:
            ask()
        assert len(told) == 1 and told[0].filename == __file__
    assert F.report.last_error_estimate > 1e-6 and F.report.worst_unknown in (5, 6)


def test_shortcuts_files_and_reports(tmp_path):
    A, b = definite(12), np.ones(12)
    F = zeph.factorize(A)
    assert np.array_equal(zeph.solve(A, b), F.solve(b))
    assert np.array_equal(zeph.variances(A), F.variances())
    assert (zeph.selected_inverse(A) != F.selected_inverse()).nnz == 0
    assert zeph.logdet(A) == F.logdet()
    assert zeph.plan(A, ordering="natural").entries_of_l == zeph.factorize(
        A, ordering="natural").report.entries_of_l
    assert F.report.relative_error_estimate > 0 and pickle.loads(pickle.dumps(F.report)) == F.report
    assert "12 x 12" in repr(F) and "Cholesky" in repr(F)
    for name in ("a.mtx", "a.csv"):
        zeph.write(tmp_path / name, A)
        assert (zeph.read(tmp_path / name) != A).nnz == 0
    (tmp_path / "s.mtx").write_text(
        "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 4\n2 1 -1\n2 2 3\n")
    assert zeph.read(str(tmp_path / "s.mtx")).toarray().tolist() == [[4, -1], [-1, 3]]


@pytest.mark.parametrize("sigma", [None, 0.5, "each"])
def test_least_squares_against_dense_statistics(sigma, tmp_path):
    rng = np.random.default_rng(7)
    J = sparse.vstack([sparse.random(60, 12, 0.2, random_state=rng), sparse.eye(12)]).tocsr()
    s = rng.uniform(0.5, 2, 72) if sigma == "each" else sigma
    x, each = rng.standard_normal(12), np.broadcast_to(1.0 if s is None else s, 72)
    y = J @ x + each * rng.standard_normal(72)
    y[40] += 30 * each[40]
    a = zeph.least_squares(J, y, s)
    D = J.toarray() / each[:, None]
    Z = np.linalg.inv(D.T @ D)
    hat = np.einsum("ij,jk,ik->i", D, Z, D)
    v = y - J @ (Z @ (D.T @ (y / each)))
    for ours, dense in ((a.x, Z @ (D.T @ (y / each))), (a.sigma, np.sqrt(np.diag(Z))),
                        (a.residuals, v), (a.residual_sigma, each * np.sqrt(1 - hat)),
                        (a.redundancy, 1 - hat), (a.leverage, hat),
                        (a.normalized_residuals, v / (each * np.sqrt(1 - hat))),
                        (a.variance_factor, np.sum((v / each) ** 2) / 60),
                        (a.factor.covariance([0], [3]), Z[0, 3])):
        assert_allclose(ours, dense, rtol=1e-9, atol=1e-11)
    assert (a.suspect, a.degrees_of_freedom) == (40, 60)
    unpickled = pickle.loads(pickle.dumps(a))
    assert np.array_equal(unpickled.x, a.x)
    for adjustment, condition in ((a, True), (unpickled, False)):
        adjustment.report(tmp_path / "r.html", title="<&>", rows=5)
        page = (tmp_path / "r.html").read_text(encoding="utf-8")
        assert ("<h1>&lt;&amp;&gt;</h1>" in page, "Condition of" in page) == (True, condition)
        assert ("Suspected of a blunder: observation 40." in page) == (sigma is not None)
        assert page.count("<tr") == 2 + 5 + 5
    with pytest.raises(zeph.Error, match="none/r.html"):
        a.report(tmp_path / "none" / "r.html")
    with pytest.raises(ValueError, match="factorize anew"):
        a.factor.refactorize(D.T @ D)


@pytest.mark.parametrize("name", ["zeph", "zeph._factor", "zeph._adjustment", "zeph._pose_graph", "zeph.plot"])
def test_examples(name, tmp_path):
    square = tmp_path / "square.g2o"
    square.write_text("".join(
        f"EDGE_SE2 {k} {(k + 1) % 4} 1 0 {1.5 + 0.05 * k} 100 0 0 100 0 100\n" for k in range(4)))
    names = {"zeph": zeph, "np": np, "path": tmp_path / "example.mtx", "square": square}
    failed, tried = doctest.testmod(importlib.import_module(name), extraglobs=names)
    assert tried > 0 and failed == 0


def test_pictures_count_the_fill_and_need_matplotlib_only_then():
    code = "import sys, zeph; print('matplotlib' in sys.modules)"
    assert subprocess.check_output([sys.executable, "-c", code], text=True) == "False\n"
    arrow = sparse.lil_matrix(4.0 * np.eye(9))
    arrow[0, 1:] = arrow[1:, 0] = 1.0
    left, right = zeph.plot.spy(arrow, ordering="natural")
    assert left.get_title() == "A: 9 rows, 25 entries"
    assert right.get_title() == "Factor: 45 entries, 28 of them fill"
    cells = right.images[0].get_array()
    assert (cells == 1).sum() == 25 and (cells == 2).sum() == 56
    ax = zeph.plot.variances(sparse.diags([4.0, 1.0, 16.0]), indices=[2, 1])
    assert ax.lines[0].get_xydata().tolist() == [[2, 0.25], [1, 1.0]]
    with pytest.raises(ValueError, match="sigma=False"):
        zeph.plot.variances([[1.0, 2.0], [2.0, 1.0]])
