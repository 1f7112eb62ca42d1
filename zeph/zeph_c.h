/* The public library for other languages. Functions never throw and never print: 0 is success,
   other values are the exit statuses of the zeph command (2 wrong usage, 3 malformed input, 4
   matrix or argument unfit, 5 not positive definite, 6 singular, 8 out of memory). Indices are
   zero-based. A null pointer where an array is needed is status 2. Functions on a const factor may
   be called from several threads at once. */
#ifndef ZEPH_ZEPH_C_H
#define ZEPH_ZEPH_C_H

#include <stdint.h>

#include "zeph/api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zeph_factor zeph_factor;

/* Zeroed = defaults. route: 0 automatic, 1 Cholesky, 2 LU; ordering: 0 automatic, 1 minimum degree,
   2 nested dissection, 3 natural, 4 permutation (permutation[k] is eliminated as the k-th);
   threads: 0 all processors. */
typedef struct {
  int route, ordering, threads;
  const int64_t* permutation;
} zeph_options;

/* The fields of zeph::Report; route and ordering as in zeph_options. */
typedef struct {
  int64_t route, ordering, unknowns, groups, entries_of_a, entries_of_l;
  double operations, bytes;
  double seconds_ordering, seconds_analysis, seconds_factorisation, seconds_inverse;
  int64_t threads;
  double condition_estimate, identity_residual, relative_error_estimate;
} zeph_report;

/* Factorises the n x n matrix in compressed columns: column c has the entries col_starts[c] ..
   col_starts[c+1]-1; duplicates add up. symmetric = 1: one triangle is stored, whichever. options
   may be null. On failure *f becomes NULL. */
ZEPH_API int zeph_factor_create(zeph_factor** f, int64_t n, const int64_t* col_starts,
                                const int64_t* row_indices, const double* values, int symmetric,
                                const zeph_options* o);

/* New values for the same pattern, in the same order. */
ZEPH_API int zeph_factor_refactorise(zeph_factor* f, const double* values);

/* A X = B, column-major, n values each. */
ZEPH_API int zeph_factor_solve(const zeph_factor* f, int64_t count, const double* b, double* x);

/* The diagonal of the inverse, n values. */
ZEPH_API int zeph_factor_variances(const zeph_factor* f, double* diagonal);

/* The entries of the inverse on the factor's pattern, both triangles, rows ascending. A first call
   with row_indices = values = NULL gives the sizes in col_starts (n + 1 entries). */
ZEPH_API int zeph_factor_selected_inverse(const zeph_factor* f, int64_t* col_starts,
                                          int64_t* row_indices, double* values);

/* values[k] = entry (rows[k], cols[k]) of the inverse. */
ZEPH_API int zeph_factor_covariance(const zeph_factor* f, int64_t count, const int64_t* rows,
                                    const int64_t* cols, double* values);

ZEPH_API int zeph_factor_log_determinant(const zeph_factor* f, double* log_abs, int* sign);

ZEPH_API int zeph_factor_report(const zeph_factor* f, zeph_report* report);

/* NULL is allowed. */
ZEPH_API void zeph_factor_free(zeph_factor* f);

/* One sentence on the calling thread's last failure, empty before the first; valid until the next
   call from that thread. */
ZEPH_API const char* zeph_last_error(void);

ZEPH_API const char* zeph_version(void);

#ifdef __cplusplus
}
#endif

#endif
