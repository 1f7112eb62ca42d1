#include "math/kernels/fused_product.h"

namespace korin::kernels {

void fusedProduct(std::size_t m, std::size_t n, std::size_t k, double alpha, const double* a,
                  std::ptrdiff_t ars, std::ptrdiff_t acs, const double* b, std::ptrdiff_t brs,
                  std::ptrdiff_t bcs, double beta, double* c, std::ptrdiff_t crs,
                  std::ptrdiff_t ccs) {
  const auto rows = static_cast<std::ptrdiff_t>(m);
  const auto cols = static_cast<std::ptrdiff_t>(n);
  const auto inner = static_cast<std::ptrdiff_t>(k);
  for (std::ptrdiff_t i = 0; i < rows; ++i) {
    for (std::ptrdiff_t j = 0; j < cols; ++j) {
      double sum = 0.0;
      for (std::ptrdiff_t p = 0; p < inner; ++p) sum += a[i * ars + p * acs] * b[p * brs + j * bcs];
      double& out = c[i * crs + j * ccs];
      out = (beta == 0.0 ? 0.0 : out) + alpha * sum;
    }
  }
}

}  // namespace korin::kernels
