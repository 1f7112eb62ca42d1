#include <Eigen/SparseCore>
#include <vector>

#include "eigen_peers.h"

namespace compare {

using Dense = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

struct EigenSparse::Matrices {
  Eigen::SparseMatrix<double, Eigen::RowMajor> byRows;
  Eigen::SparseMatrix<double, Eigen::ColMajor> byColumns;
};

EigenSparse::EigenSparse(std::size_t rows, std::size_t cols, std::size_t count,
                         const unsigned int* rowIndices, const unsigned int* colIndices,
                         const double* values)
    : matrices_(new Matrices) {
  std::vector<Eigen::Triplet<double>> triplets;
  triplets.reserve(count);
  for (std::size_t k = 0; k < count; ++k) {
    triplets.emplace_back(static_cast<int>(rowIndices[k]), static_cast<int>(colIndices[k]),
                          values[k]);
  }
  const auto height = static_cast<Eigen::Index>(rows), width = static_cast<Eigen::Index>(cols);
  matrices_->byRows.resize(height, width);
  matrices_->byRows.setFromTriplets(triplets.begin(), triplets.end());
  matrices_->byColumns = matrices_->byRows;
}

EigenSparse::~EigenSparse() {
  delete matrices_;
}

namespace {

template <class Sparse>
void multiply(const Sparse& a, const double* x, double* y, std::size_t cols) {
  if (cols == 1) {
    Eigen::Map<Eigen::VectorXd>(y, a.rows()).noalias() =
        a * Eigen::Map<const Eigen::VectorXd>(x, a.cols());
    return;
  }
  const auto width = static_cast<Eigen::Index>(cols);
  Eigen::Map<Dense>(y, a.rows(), width).noalias() = a * Eigen::Map<const Dense>(x, a.cols(), width);
}

}  // namespace

void EigenSparse::multiplyByRows(const double* x, double* y, std::size_t cols) const {
  multiply(matrices_->byRows, x, y, cols);
}

void EigenSparse::multiplyByColumns(const double* x, double* y, std::size_t cols) const {
  multiply(matrices_->byColumns, x, y, cols);
}

}  // namespace compare
