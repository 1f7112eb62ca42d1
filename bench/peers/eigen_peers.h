// Eigen's part of the comparisons, apart because it is compiled for the widest instructions of the
// machine at hand.
#ifndef ZEPH_BENCH_PEERS_EIGEN_PEERS_H
#define ZEPH_BENCH_PEERS_EIGEN_PEERS_H

#include <cstddef>

namespace compare {

/// C = A B for row-major n x n matrices.
void eigenProduct(std::size_t n, const double* a, const double* b, double* c);

/// Sparse times dense, with the sparse matrix in compressed rows or columns.
class EigenSparse {
 public:
  EigenSparse(std::size_t rows, std::size_t cols, std::size_t count, const unsigned int* rowIndices,
              const unsigned int* colIndices, const double* values);
  ~EigenSparse();
  EigenSparse(const EigenSparse&) = delete;
  EigenSparse& operator=(const EigenSparse&) = delete;

  /// y = A x for row-major x and y of `cols` columns.
  void multiplyByRows(const double* x, double* y, std::size_t cols) const;
  void multiplyByColumns(const double* x, double* y, std::size_t cols) const;

 private:
  struct Matrices;
  Matrices* matrices_;
};

}  // namespace compare

#endif
