#include <Eigen/Core>

#include "eigen_peers.h"

namespace compare {

void eigenProduct(std::size_t n, const double* a, const double* b, double* c) {
  using Dense = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  const auto order = static_cast<Eigen::Index>(n);
  Eigen::Map<Dense>(c, order, order).noalias() =
      Eigen::Map<const Dense>(a, order, order) * Eigen::Map<const Dense>(b, order, order);
}

}  // namespace compare
