/** @file
    The public library for C and for other languages. Functions never throw and never print: 0 is
    success, other values are the exit statuses of the zeph command: 2 wrong usage, 3 malformed
    input, 4 matrix or argument unfit, 5 not positive definite, 6 singular, 7 a scratch file
    that cannot be kept, 8 out of memory, 130 stopped on request. After a failure zeph_last_error()
   tells what happened.

    Indices are zero-based. A null pointer where an array is needed is status 2; the lengths of
    arrays are not checked. Functions on a const factor may be called from several threads at once.
    Costs are those of the functions of the same names in zeph/factor.h. */
#ifndef ZEPH_ZEPH_C_H
#define ZEPH_ZEPH_C_H

#include <stdint.h>

#include "zeph/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A factorised square matrix, made by zeph_factor_create and freed by zeph_factor_free. */
typedef struct zeph_factor zeph_factor;

/** How to factorise. All zeros are the defaults. */
typedef struct {
  int route;    /**< 0 automatic, 1 Cholesky, 2 LU */
  int ordering; /**< 0 automatic, 1 minimum degree, 2 nested dissection, 3 natural, 4 permutation */
  int threads;  /**< 0 all processors */
  const int64_t* permutation; /**< for ordering 4: row permutation[k] is eliminated as the k-th */
  double memory_limit; /**< bytes that the factor and a call may take; 0 what the machine has */
  const char* scratch_folder; /**< on a disk, for a Cholesky factor too large for that; or null */
} zeph_options;

/** What a factor is and what it took. */
typedef struct {
  int64_t route;                /**< as in zeph_options; never 0 */
  int64_t ordering;             /**< as in zeph_options; 0 on the LU route */
  int64_t unknowns;             /**< the order n of the matrix */
  int64_t groups;               /**< after unknowns with equal neighbourhoods are taken together */
  int64_t entries_of_a;         /**< positions of the whole matrix, both triangles */
  int64_t entries_of_l;         /**< of the Cholesky factor, or of L and U together */
  double operations;            /**< multiplications and additions of the factorisation */
  double bytes;                 /**< of memory that the factor takes */
  double seconds_ordering;      /**< wall time, as all that follow */
  double seconds_analysis;      /**< assembly and symbolic work, ordering left out */
  double seconds_factorisation; /**< of the last factorisation or refactorisation */
  double seconds_inverse;       /**< of the last zeph_factor_variances */
  int64_t threads;              /**< that the Cholesky route works on */
  double condition_estimate;    /**< of the scaled matrix; 0 before zeph_factor_variances */
  double identity_residual;     /**< of A times the entries of its inverse; 0 before */
  double relative_error_estimate; /**< the largest of any variance; 0 before */
  double backward_error;          /**< of the last zeph_factor_solve, componentwise; 0 before */
  int64_t uncertain_variances;    /**< entries by LU that cancel to nearly nothing, left out of the
                                       estimate: no digit of them is certain */
  int64_t first_uncertain;        /**< the row of the first of them, or -1 */
  double scratch_bytes;           /**< of the file that holds the factor, if there is one */
  double last_error_estimate; /**< estimated relative error of the last result of any kind; above
                                   1e-6 it should be doubted. 0 before */
  int64_t worst_unknown;      /**< where that is largest, or -1 */
} zeph_report;

/** Factorises the n x n matrix in compressed columns: column c has the entries from col_starts[c]
   to col_starts[c+1]-1 of row_indices and values, in any order; duplicates add up. symmetric = 1:
   one triangle is stored, whichever; 0: the matrix stands as it is. o may be null. On failure *f
    becomes NULL. */
ZEPH_API int zeph_factor_create(zeph_factor** f, int64_t n, const int64_t* col_starts,
                                const int64_t* row_indices, const double* values, int symmetric,
                                const zeph_options* o);

/** The same, and a function that this call and all calls on the factor ask now and then, on their
    caller's thread: where it returns 0 they stop with status 130. It must return; context is handed
    on to it. */
ZEPH_API int zeph_factor_create_watched(zeph_factor** f, int64_t n, const int64_t* col_starts,
                                        const int64_t* row_indices, const double* values,
                                        int symmetric, const zeph_options* o,
                                        int (*proceed)(void* context), void* context);

/** New values for the same pattern, in the order of those that the factor was made from. If it
    fails, the factor has no numbers until it succeeds. */
ZEPH_API int zeph_factor_refactorise(zeph_factor* f, const double* values);

/** Solves A X = B for count right-hand sides of n values each, column after column. b and x may be
    the same array. */
ZEPH_API int zeph_factor_solve(const zeph_factor* f, int64_t count, const double* b, double* x);

/** The diagonal of the inverse, n values. Status 6 where they could not be trusted. */
ZEPH_API int zeph_factor_variances(const zeph_factor* f, double* diagonal);

/** The entries of the inverse on the factor's pattern, both triangles, rows ascending. A first call
    with row_indices = values = NULL gives the sizes in col_starts (n + 1 entries). Status 4 on the
    LU route. */
ZEPH_API int zeph_factor_selected_inverse(const zeph_factor* f, int64_t* col_starts,
                                          int64_t* row_indices, double* values);

/** values[k] = entry (rows[k], cols[k]) of the inverse, for k from 0 to count - 1. */
ZEPH_API int zeph_factor_covariance(const zeph_factor* f, int64_t count, const int64_t* rows,
                                    const int64_t* cols, double* values);

/** The natural logarithm of the determinant's absolute value, and its sign: 1 or -1. */
ZEPH_API int zeph_factor_log_determinant(const zeph_factor* f, double* log_abs, int* sign);

/** Copies the figures of the factor. */
ZEPH_API int zeph_factor_report(const zeph_factor* f, zeph_report* report);

/** Frees a factor; NULL is allowed. */
ZEPH_API void zeph_factor_free(zeph_factor* f);

/** One sentence on the calling thread's last failure, empty before the first; valid until the next
    call from that thread. */
ZEPH_API const char* zeph_last_error(void);

/** The version of the library, as "1.0.0". */
ZEPH_API const char* zeph_version(void);

#ifdef __cplusplus
}
#endif

#endif
