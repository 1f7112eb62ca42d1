// The inner loop shared by matrix-vector products and forward substitution.
#ifndef ZEPH_MATH_DENSE_KORIN_ROW_SUMS_H
#define ZEPH_MATH_DENSE_KORIN_ROW_SUMS_H

#include "types/zttypes.h"

namespace korin {

/// Rows summed side by side: their chains of additions, each in its fixed order, hide one another's
/// latency (4 cycles, two additions started a cycle).
inline constexpr ZtSize kRowGroup = 8;

/// sums[k] += kSign * m(k, p) * v[p] for p = 0..length-1 in this order, for k < rowCount. kSign is
/// 1 or -1; rowCount is at most kRowGroup.
template <int kSign>
inline void addRowSums(const ZtReal* m, ZtSize stride, ZtSize rowCount, const ZtReal* v,
                       ZtSize length, ZtReal* sums) {
  if (rowCount == kRowGroup) {
    ZtReal s[kRowGroup];
    for (ZtSize k = 0; k < kRowGroup; ++k) s[k] = sums[k];
    for (ZtSize p = 0; p < length; ++p) {
      for (ZtSize k = 0; k < kRowGroup; ++k) s[k] += kSign * m[k * stride + p] * v[p];
    }
    for (ZtSize k = 0; k < kRowGroup; ++k) sums[k] = s[k];
    return;
  }
  for (ZtSize k = 0; k < rowCount; ++k) {
    for (ZtSize p = 0; p < length; ++p) sums[k] += kSign * m[k * stride + p] * v[p];
  }
}

}  // namespace korin

#endif
