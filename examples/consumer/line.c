/* Heights along a line of five points, as in line.cpp, from compressed columns. */
#include <math.h>
#include <stdio.h>

#include "zeph/zeph_c.h"

enum { points = 5 };

int main(void) {
  const double known = 1 / (1e-3 * 1e-3), measured = 1 / (2e-3 * 2e-3);
  const double differences[points - 1] = {0.412, -0.105, 0.230, 0.018};
  int64_t starts[points + 1], rows[2 * points], end = 0;
  double values[2 * points], right[points] = {0}, heights[points], variances[points];
  zeph_factor* factor = NULL;

  for (int i = 0; i < points; ++i) { /* the lower triangle */
    starts[i] = end;
    rows[end] = i;
    values[end++] = (i == 0 ? known : measured) + (i + 1 < points ? measured : 0);
    if (i + 1 == points) break;
    rows[end] = i + 1;
    values[end++] = -measured;
    right[i] -= measured * differences[i];
    right[i + 1] += measured * differences[i];
  }
  starts[points] = end;
  right[0] += known * 100;

  if (zeph_factor_create(&factor, points, starts, rows, values, 1, NULL) != 0 ||
      zeph_factor_solve(factor, 1, right, heights) != 0 ||
      zeph_factor_variances(factor, variances) != 0) {
    fprintf(stderr, "%s\n", zeph_last_error());
    zeph_factor_free(factor);
    return 1;
  }
  for (int i = 0; i < points; ++i) {
    printf("%d: %.3f m, standard deviation %.3f mm\n", i, heights[i], 1e3 * sqrt(variances[i]));
  }
  zeph_factor_free(factor);
  return 0;
}
