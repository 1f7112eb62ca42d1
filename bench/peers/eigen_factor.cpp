#include <Eigen/SparseCholesky>

#include "factor_peers.h"
#include "measure.h"

namespace compare {

FactorTimes eigenMinimumDegree(int n, const int* start, const int* row, const double* value) {
  using Matrix = Eigen::SparseMatrix<double>;
  const Matrix lower = Eigen::Map<const Matrix>(n, n, start[n], start, row, value);
  Eigen::SimplicialLDLT<Matrix, Eigen::Lower, Eigen::AMDOrdering<int>> solver;
  FactorTimes times;
  times.order = seconds([&] { solver.analyzePattern(lower); });
  times.factor = seconds([&] { solver.factorize(lower); });
  times.completed = solver.info() == Eigen::Success && solver.vectorD().minCoeff() > 0.0;
  return times;
}

}  // namespace compare
