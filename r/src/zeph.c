/* From R's vectors to the C interface of libzeph. Arguments are checked and converted in R; here
   are no longjmps while anything but R's own memory is held. */
#include <stdint.h>
#include <string.h>

#include <R.h>
#include <R_ext/Rdynload.h>
#include <Rinternals.h>

#include "zeph/zeph_c.h"

/* A failure as R sees it: its status and sentence, from which zeph.R makes a condition. */
static SEXP failure(int status) {
  SEXP result = PROTECT(Rf_allocVector(VECSXP, 2));
  SET_VECTOR_ELT(result, 0, Rf_ScalarInteger(status));
  SET_VECTOR_ELT(result, 1, Rf_mkString(zeph_last_error()));
  Rf_setAttrib(result, R_ClassSymbol, Rf_mkString("zeph_failure"));
  UNPROTECT(1);
  return result;
}

static void release(SEXP handle) {
  zeph_factor_free(R_ExternalPtrAddr(handle));
  R_ClearExternalPtr(handle);
}

static zeph_factor* factor_of(SEXP handle) {
  zeph_factor* f = R_ExternalPtrAddr(handle);
  if (f == NULL) Rf_error("this factor was saved in another session; make it again");
  return f;
}

static void check_interrupt(void* unused) {
  (void)unused;
  R_CheckUserInterrupt();
}

/* R leaves an interrupted function by a jump, which must not cross the library. */
static int proceed(void* unused) {
  return R_ToplevelExec(check_interrupt, unused);
}

static int64_t* widened(SEXP integers) {
  const R_xlen_t count = XLENGTH(integers);
  int64_t* out = (int64_t*)R_alloc((size_t)count + 1, sizeof *out);
  for (R_xlen_t k = 0; k < count; ++k) out[k] = INTEGER(integers)[k];
  return out;
}

/* starts, rows: zero-based compressed columns. permutation: zero-based, or NULL. */
static SEXP create(SEXP n, SEXP starts, SEXP rows, SEXP values, SEXP symmetric, SEXP route,
                   SEXP ordering, SEXP threads, SEXP permutation) {
  zeph_options options;
  memset(&options, 0, sizeof options);
  options.route = Rf_asInteger(route);
  options.ordering = Rf_asInteger(ordering);
  options.threads = Rf_asInteger(threads);
  if (permutation != R_NilValue) options.permutation = widened(permutation);
  const int64_t* col_starts = widened(starts);
  const int64_t* row_indices = widened(rows);

  SEXP handle = PROTECT(R_MakeExternalPtr(NULL, R_NilValue, R_NilValue));
  R_RegisterCFinalizerEx(handle, release, TRUE);
  zeph_factor* f = NULL;
  const int status =
      zeph_factor_create_watched(&f, Rf_asInteger(n), col_starts, row_indices, REAL(values),
                                 Rf_asLogical(symmetric), &options, proceed, NULL);
  if (status == 0) R_SetExternalPtrAddr(handle, f);
  SEXP result = status == 0 ? handle : failure(status);
  UNPROTECT(1);
  return result;
}

static SEXP solve(SEXP handle, SEXP b, SEXP count) {
  zeph_factor* f = factor_of(handle);
  SEXP x = PROTECT(Rf_allocVector(REALSXP, XLENGTH(b)));
  const int status = zeph_factor_solve(f, Rf_asInteger(count), REAL(b), REAL(x));
  SEXP result = status == 0 ? x : failure(status);
  UNPROTECT(1);
  return result;
}

static SEXP variances(SEXP handle, SEXP n) {
  zeph_factor* f = factor_of(handle);
  SEXP diagonal = PROTECT(Rf_allocVector(REALSXP, Rf_asInteger(n)));
  const int status = zeph_factor_variances(f, REAL(diagonal));
  SEXP result = status == 0 ? diagonal : failure(status);
  UNPROTECT(1);
  return result;
}

/* list(starts, rows, values), zero-based; both triangles. */
static SEXP selected_inverse(SEXP handle, SEXP order) {
  zeph_factor* f = factor_of(handle);
  const int n = Rf_asInteger(order);
  int64_t* starts = (int64_t*)R_alloc((size_t)n + 1, sizeof *starts);
  int status = zeph_factor_selected_inverse(f, starts, NULL, NULL);
  if (status != 0) return failure(status);
  if (starts[n] > INT32_MAX) {
    Rf_error("the selected inverse has %.0f entries; matrices of R hold 2147483647",
             (double)starts[n]);
  }
  int64_t* rows = (int64_t*)R_alloc((size_t)starts[n] + 1, sizeof *rows);
  SEXP result = PROTECT(Rf_allocVector(VECSXP, 3));
  SET_VECTOR_ELT(result, 0, Rf_allocVector(INTSXP, n + 1));
  SET_VECTOR_ELT(result, 1, Rf_allocVector(INTSXP, (R_xlen_t)starts[n]));
  SET_VECTOR_ELT(result, 2, Rf_allocVector(REALSXP, (R_xlen_t)starts[n]));
  status = zeph_factor_selected_inverse(f, starts, rows, REAL(VECTOR_ELT(result, 2)));
  if (status == 0) {
    for (int c = 0; c <= n; ++c) INTEGER(VECTOR_ELT(result, 0))[c] = (int)starts[c];
    for (int64_t k = 0; k < starts[n]; ++k) INTEGER(VECTOR_ELT(result, 1))[k] = (int)rows[k];
  } else {
    result = failure(status);
  }
  UNPROTECT(1);
  return result;
}

static SEXP log_determinant(SEXP handle) {
  zeph_factor* f = factor_of(handle);
  double logarithm = 0;
  int sign = 0;
  const int status = zeph_factor_log_determinant(f, &logarithm, &sign);
  if (status != 0) return failure(status);
  SEXP result = PROTECT(Rf_allocVector(REALSXP, 2));
  REAL(result)[0] = logarithm;
  REAL(result)[1] = sign;
  UNPROTECT(1);
  return result;
}

/* c(route, order, entries of A, entries of the factor, bytes, error estimate) */
static SEXP report(SEXP handle) {
  zeph_factor* f = factor_of(handle);
  zeph_report r;
  const int status = zeph_factor_report(f, &r);
  if (status != 0) return failure(status);
  const double figures[] = {
      (double)r.route, (double)r.unknowns,       (double)r.entries_of_a, (double)r.entries_of_l,
      r.bytes,         r.relative_error_estimate};
  const R_xlen_t count = sizeof figures / sizeof *figures;
  SEXP result = PROTECT(Rf_allocVector(REALSXP, count));
  memcpy(REAL(result), figures, sizeof figures);
  UNPROTECT(1);
  return result;
}

static const R_CallMethodDef methods[] = {{"create", (DL_FUNC)&create, 9},
                                          {"solve", (DL_FUNC)&solve, 3},
                                          {"variances", (DL_FUNC)&variances, 2},
                                          {"selected_inverse", (DL_FUNC)&selected_inverse, 2},
                                          {"log_determinant", (DL_FUNC)&log_determinant, 1},
                                          {"report", (DL_FUNC)&report, 1},
                                          {NULL, NULL, 0}};

void R_init_zeph(DllInfo* info) {
  R_registerRoutines(info, NULL, methods, NULL, NULL);
  R_useDynamicSymbols(info, FALSE);
}
