# Factors of sparse matrices and what their inverses hold; the work is done by libzeph.

routes <- c("auto", "cholesky", "lu")
orderings <- c("auto", "amd", "nested_dissection", "natural")
kinds <- c("2" = "usage", "3" = "malformed", "4" = "unfit", "5" = "not_positive_definite",
           "6" = "singular", "8" = "memory")
interrupted <- 130L

# Turns a failure of the library into a condition of class zeph_error, and of zeph_error_<kind>.
checked <- function(result, call = sys.call(-1)) {
  if (!inherits(result, "zeph_failure")) return(result)
  status <- result[[1]]
  if (status == interrupted) {
    signalCondition(structure(class = c("interrupt", "condition"),
                              list(message = "", call = call)))
    invokeRestart("abort")
  }
  sentence <- result[[2]]
  if (grepl("(row|column|index) -?[0-9]", sentence)) {
    sentence <- paste0(sentence, " (counted from 0)")
  }
  kind <- kinds[as.character(status)]
  stop(structure(class = c(if (!is.na(kind)) paste0("zeph_error_", kind), "zeph_error", "error",
                           "condition"),
                 list(message = sentence, call = call, status = status)))
}

# A as compressed columns: one triangle where its class says that it is symmetric.
columns_of <- function(A) {
  if (is.matrix(A)) A <- Matrix::Matrix(A, sparse = TRUE, doDiag = FALSE)
  if (!is(A, "Matrix")) {
    stop("A must be a matrix of package Matrix or a numeric one, not of class ", class(A)[1])
  }
  if (nrow(A) != ncol(A)) stop("A is ", nrow(A), " x ", ncol(A), "; it must be square")
  A <- as(A, "dMatrix")
  if (!is(A, "symmetricMatrix")) A <- as(A, "generalMatrix")
  as(A, "CsparseMatrix")
}

factorize <- function(A, method = "auto", ordering = "auto", threads = 0L) {
  method <- match.arg(method, routes)
  permutation <- NULL
  if (is.numeric(ordering)) {
    permutation <- as.integer(ordering) - 1L
    if (!identical(sort(permutation), seq_len(nrow(A)) - 1L)) {
      stop("ordering must hold each of 1 to ", nrow(A), " once")
    }
    ordering <- length(orderings)
  } else {
    ordering <- match(match.arg(ordering, orderings), orderings) - 1L
  }
  columns <- columns_of(A)
  handle <- checked(.Call(C_create, nrow(columns), columns@p, columns@i, columns@x,
                          is(columns, "symmetricMatrix"), match(method, routes) - 1L,
                          ordering, as.integer(threads), permutation))
  structure(list(handle = handle, n = nrow(columns), names = rownames(A) %||% colnames(A)),
            class = "zeph_factor")
}

`%||%` <- function(a, b) if (is.null(a)) b else a

factor_of <- function(A, ...) {
  if (!inherits(A, "zeph_factor")) return(factorize(A, ...))
  if (...length() > 0) stop("method, ordering and threads were chosen when the factor was made")
  A
}

solve <- function(A, b, ...) {
  f <- factor_of(A, ...)
  if (missing(b)) stop("b is missing; for entries of the inverse see ?selected_inverse")
  if (is(b, "Matrix")) b <- as.matrix(b)
  if (!is.numeric(b)) stop("b must be numeric, not ", class(b)[1])
  if (NROW(b) != f$n) stop("b has ", NROW(b), " rows; A has ", f$n)
  x <- checked(.Call(C_solve, f$handle, as.double(b), NCOL(b)))
  if (!is.matrix(b)) return(setNames(x, f$names))
  matrix(x, f$n, dimnames = if (!is.null(f$names) || !is.null(colnames(b)))
    list(f$names, colnames(b)))
}

solve.zeph_factor <- function(a, b, ...) solve(a, b, ...)

variances <- function(A, ...) {
  f <- factor_of(A, ...)
  setNames(checked(.Call(C_variances, f$handle, f$n)), f$names)
}

logdet <- function(A, ...) {
  result <- checked(.Call(C_log_determinant, factor_of(A, ...)$handle))
  structure(result[1], sign = result[2])
}

selected_inverse <- function(A, ...) {
  f <- factor_of(A, ...)
  z <- checked(.Call(C_selected_inverse, f$handle, f$n))
  Z <- sparseMatrix(i = z[[2]], p = z[[1]], x = z[[3]], dims = c(f$n, f$n), index1 = FALSE)
  if (!is.null(f$names)) dimnames(Z) <- list(f$names, f$names)
  Matrix::forceSymmetric(Z, "L")
}

print.zeph_factor <- function(x, ...) {
  r <- checked(.Call(C_report, x$handle))
  cat(sprintf("zeph factor: %.0f unknowns, %s, %.0f entries of A%s\n", r[2],
              c("automatic", "Cholesky", "LU")[r[1] + 1], r[3],
              if (r[4] > 0) sprintf(", %.0f of the factor", r[4]) else ""))
  invisible(x)
}
