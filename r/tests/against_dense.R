# Answers against R's dense inverse, over sizes, classes and routes; and what is refused.
library(Matrix)
near <- function(a, b) {
  stopifnot(all.equal(as.vector(a), as.vector(b), tolerance = 1e-10))
}
set.seed(1)
for (n in c(1, 2, 7, 40)) {
  J <- rsparsematrix(3 * n, n, density = min(1, 3 / n))
  S <- forceSymmetric(crossprod(J) + Diagonal(n), "U")  # dsCMatrix
  G <- as(rsparsematrix(n, n, density = min(1, 2 / n)) + 5 * Diagonal(n), "generalMatrix")
  b <- matrix(rnorm(2 * n), n)
  for (A in list(S, forceSymmetric(S, "L"), as(S, "generalMatrix"), as.matrix(S), as(S, "TsparseMatrix"), G,
                 t(G), Diagonal(n, 2))) {
    inverse <- base::solve(as.matrix(A))
    f <- zeph::factorize(A, threads = 2)
    near(zeph::variances(f), diag(inverse))
    near(zeph::solve(f, b), inverse %*% b)
    near(solve(f, b[, 1]), inverse %*% b[, 1])
    near(zeph::logdet(A), determinant(as.matrix(A))$modulus)
    stopifnot(attr(zeph::logdet(f), "sign") == determinant(as.matrix(A))$sign)
    if (!isSymmetric(as.matrix(A))) next
    Z <- zeph::selected_inverse(A, ordering = rev(seq_len(n)))
    stopifnot(is(Z, "dsCMatrix"), all((as.matrix(A) == 0) | (as.matrix(Z) != 0)))
    near((as.matrix(Z) - inverse)[as.matrix(Z) != 0], numeric(sum(as.matrix(Z) != 0)))
  }
}
named <- Matrix(diag(2), sparse = TRUE, dimnames = list(c("a", "b"), c("a", "b")))
stopifnot(identical(names(zeph::variances(named)), c("a", "b")),
          identical(rownames(zeph::selected_inverse(named)), c("a", "b")))

refused <- function(expression, class, sentence) {
  e <- tryCatch({ expression; NULL }, error = identity)
  if (!inherits(e, class) || !grepl(sentence, conditionMessage(e))) {
    stop("not refused as ", class, ": ", sentence, "; but ", conditionMessage(e))
  }
}
indefinite <- Matrix(c(1, 2, 2, 1), 2, sparse = TRUE)
refused(zeph::variances(indefinite, method = "cholesky"), "zeph_error_not_positive_definite", "row 1")
refused(zeph::selected_inverse(indefinite), "zeph_error_unfit", "")
refused(zeph::solve(Matrix(c(1, 1, 1, 1), 2, sparse = TRUE), 1:2), "zeph_error_singular", "")
refused(zeph::variances(Diagonal(2, c(1, NA))), "zeph_error", "")
refused(zeph::variances(rsparsematrix(2, 3, 0.5)), "error", "2 x 3")
refused(zeph::variances("A"), "error", "class character")
refused(zeph::solve(indefinite, 1:3), "error", "3 rows; A has 2")
refused(zeph::factorize(indefinite, ordering = c(1, 1)), "error", "once")
refused(zeph::factorize(indefinite, threads = -1), "zeph_error", "threads")
refused(zeph::variances(unserialize(serialize(zeph::factorize(named), NULL))), "error", "session")
