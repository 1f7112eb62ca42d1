/* Uses the C interface from C, through the installed library alone. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zeph/zeph_c.h"

static int failures = 0;

static void expect(int holds, const char* what) {
  if (holds) return;
  printf("FAILED: %s (%s)\n", what, zeph_last_error());
  ++failures;
}

static int near(double a, double b) {
  return fabs(a - b) < 1e-14;
}

/* [4 2 0; 2 5 0; 0 0 2], lower triangle. */
static const int64_t starts[] = {0, 2, 3, 4}, rows[] = {0, 1, 1, 2};
static const double values[] = {4, 2, 5, 2};

static void asks(void) {
  zeph_factor* f = NULL;
  const int64_t permutation[] = {2, 0, 1}, at[] = {0, 2}, to[] = {1, 0};
  const double b[] = {4, 2, 0, 2, 5, 2};
  double x[6], d[3], z[2], log_abs = 0.0, inverse[9];
  int64_t z_starts[4], z_rows[9];
  int sign = 0;
  zeph_report report;
  zeph_options o = {1, 4, 1, NULL, 0.0, NULL};
  o.permutation = permutation;
  expect(zeph_factor_create(&f, 3, starts, rows, values, 1, &o) == 0, "create");
  expect(zeph_factor_solve(f, 2, b, x) == 0 && near(x[0], 1) && near(x[4], 1), "solve");
  expect(zeph_factor_variances(f, d) == 0 && near(d[0], 0.3125) && near(d[2], 0.5), "variances");
  expect(zeph_factor_covariance(f, 2, at, to, z) == 0 && near(z[0], -0.125) && z[1] == 0,
         "covariance");
  expect(
      zeph_factor_log_determinant(f, &log_abs, &sign) == 0 && near(log_abs, log(32)) && sign == 1,
      "determinant");
  expect(zeph_factor_selected_inverse(f, z_starts, NULL, NULL) == 0 && z_starts[3] >= 5, "sizes");
  expect(zeph_factor_selected_inverse(f, z_starts, z_rows, inverse) == 0 && z_rows[1] == 1 &&
             near(inverse[1], -0.125),
         "selected inverse");
  expect(zeph_factor_report(f, &report) == 0 && report.route == 1 && report.ordering == 4 &&
             report.unknowns == 3 && report.entries_of_a == 5 && report.threads == 1 &&
             report.relative_error_estimate > 0,
         "report");
  d[0] = -1;
  expect(zeph_factor_refactorise(f, d) == 5 && strstr(zeph_last_error(), "row 0") != NULL,
         "refused values");
  expect(zeph_factor_variances(f, d) == 4, "no numbers");
  expect(zeph_factor_refactorise(f, values) == 0 && zeph_factor_variances(f, d) == 0, "again");
  zeph_factor_free(f);
}

/* Says yes as often as it is told to. */
static int yes(void* left) {
  return (*(int*)left)-- > 0;
}

static void stops(void) {
  zeph_factor* f = (zeph_factor*)1;
  int left = 0;
  double d[3];
  expect(zeph_factor_create_watched(&f, 3, starts, rows, values, 1, NULL, yes, &left) == 130 &&
             f == NULL && strstr(zeph_last_error(), "request") != NULL,
         "stop");
  left = 1000;
  expect(zeph_factor_create_watched(&f, 3, starts, rows, values, 1, NULL, yes, &left) == 0, "go");
  left = 0;
  expect(zeph_factor_variances(f, d) == 130, "stop later");
  zeph_factor_free(f);
}

static void refuses(void) {
  zeph_factor* f = (zeph_factor*)1;
  const int64_t indefinite_starts[] = {0, 2, 3}, out[] = {0, 7, 1};
  double d[3];
  const double indefinite[] = {1, 2, 1};
  zeph_options o = {1, 0, 0, NULL, 0.0, NULL};
  expect(zeph_factor_create(&f, 2, indefinite_starts, rows, indefinite, 1, &o) == 5 && f == NULL,
         "indefinite");
  expect(zeph_factor_create(&f, 2, indefinite_starts, rows, indefinite, 1, NULL) == 0, "by LU");
  expect(zeph_factor_selected_inverse(f, (int64_t*)out, NULL, NULL) == 4, "not on this route");
  zeph_factor_free(f);
  expect(zeph_factor_create(&f, 2, indefinite_starts, out, indefinite, 1, NULL) == 4, "index");
  expect(zeph_factor_create(&f, -1, starts, rows, values, 1, NULL) == 2, "negative order");
  expect(zeph_factor_create(&f, 3, starts, rows, values, 2, NULL) == 2, "symmetry");
  o.route = 9;
  expect(zeph_factor_create(&f, 3, starts, rows, values, 1, &o) == 2, "route");
  expect(zeph_factor_create(NULL, 3, starts, rows, values, 1, NULL) == 2, "no place for it");
  expect(zeph_factor_create(&f, 3, NULL, rows, values, 1, NULL) == 2, "no columns");
  expect(zeph_factor_create(&f, 3, starts, NULL, values, 1, NULL) == 2, "no rows");
  expect(zeph_factor_create(&f, 3, starts, rows, NULL, 1, NULL) == 2, "no values");
  expect(zeph_factor_create(&f, 3, starts, rows, values, 1, NULL) == 0, "create");
  expect(zeph_factor_solve(f, 1, NULL, d) == 2 && zeph_factor_solve(f, 1, values, NULL) == 2 &&
             zeph_factor_solve(f, -1, values, d) == 2 && zeph_factor_solve(NULL, 1, values, d) == 2,
         "solve with nothing");
  expect(zeph_factor_variances(f, NULL) == 2 && zeph_factor_variances(NULL, d) == 2, "nowhere");
  expect(zeph_factor_covariance(f, 1, NULL, rows, d) == 2 &&
             zeph_factor_covariance(f, 1, rows, NULL, d) == 2 &&
             zeph_factor_covariance(f, 1, rows, rows, NULL) == 2 &&
             zeph_factor_covariance(f, 1, out + 1, rows, d) == 4,
         "covariance of nothing");
  expect(zeph_factor_selected_inverse(f, NULL, NULL, NULL) == 2 &&
             zeph_factor_selected_inverse(f, (int64_t*)d, NULL, d) == 2,
         "selected inverse to nowhere");
  expect(zeph_factor_log_determinant(f, d, NULL) == 2 && zeph_factor_report(f, NULL) == 2 &&
             zeph_factor_refactorise(f, NULL) == 2,
         "nothing to write to");
  zeph_factor_free(f);
  zeph_factor_free(NULL);
}

int main(void) {
  asks();
  stops();
  refuses();
  expect(zeph_version()[0] >= '0' && zeph_version()[0] <= '9', "version");
  if (failures == 0) puts("zeph_host: all fine");
  return failures;
}
