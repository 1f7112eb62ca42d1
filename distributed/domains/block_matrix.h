#ifndef ZEPH_DISTRIBUTED_DOMAINS_BLOCK_MATRIX_H
#define ZEPH_DISTRIBUTED_DOMAINS_BLOCK_MATRIX_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "distributed/communication.h"

namespace zeph::distributed {

/// A dense symmetric positive definite matrix S, spread over all processes in square blocks that go
/// round their grid (ScaLAPACK: Blackford et al., 1997). Only the lower triangle counts: rows i >=
/// columns j. The BLAS below runs on one thread here.
///
/// The constructor, the destructor and all that computes are collective. Nothing happens where
/// there are no unknowns.
class BlockMatrix {
 public:
  /// Deals out the blocks, and takes no memory for them yet. The part of a process has to be
  /// countable.
  BlockMatrix(const Communicator& comm, std::int64_t order);
  ~BlockMatrix();
  BlockMatrix(const BlockMatrix&) = delete;
  BlockMatrix& operator=(const BlockMatrix&) = delete;

  std::int64_t order() const { return order_; }
  /// Bytes that a process holds at most of S; its inverse takes as much again.
  static double bytes(std::int64_t order, int processes);
  /// Whether ScaLAPACK can count the entries of each part: fewer than 2³¹.
  static bool countable(std::int64_t order, int processes);

  /// The process that has the entry, and in row and column of the grid.
  int owner(std::int64_t i, std::int64_t j) const { return ownerAt(rowOwner(i), colOwner(j)); }
  int ownerAt(int rowOwner, int colOwner) const { return rowOwner * gridCols_ + colOwner; }
  int rowOwner(std::int64_t i) const { return static_cast<int>(i / kBlock % gridRows_); }
  int colOwner(std::int64_t j) const { return static_cast<int>(j / kBlock % gridCols_); }
  bool hasRow(std::int64_t i) const { return rowOwner(i) == gridRow_; }
  bool hasCol(std::int64_t j) const { return colOwner(j) == gridCol_; }

  /// A row's and a column's place in what this process has, if it has them.
  std::int64_t localRow(std::int64_t i) const {
    return i / (kBlock * gridRows_) * kBlock + i % kBlock;
  }
  std::int64_t localCol(std::int64_t j) const {
    return j / (kBlock * gridCols_) * kBlock + j % kBlock;
  }

  /// S = 0. Throws Error(Memory) on all processes where one has no memory for its part.
  void clear();
  /// Adds to an entry of this process, before factorise().
  void add(std::int64_t i, std::int64_t j, double value) { factor_[place(i, j)] += value; }
  /// The entries of a local column, to be added to, and those of S⁻¹.
  double* column(std::int64_t localCol) { return factor_.data() + localCol * stride_; }
  const double* inverseColumn(std::int64_t localCol) const {
    return inverse_.data() + localCol * stride_;
  }

  /// S = L Lᵀ. Returns -1, or the first unknown without a positive pivot.
  std::int64_t factorise();
  /// Calls use(i, l) for the entries of L's diagonal that this process has.
  template <class Use>
  void forDiagonal(const Use& use) const {
    for (std::int64_t i = 0; i < order_; ++i) {
      if (hasRow(i) && hasCol(i)) use(i, factor_[place(i, i)]);
    }
  }
  /// x = S⁻¹ x for a whole vector, the same on all processes before and after.
  void solve(double* x) const;
  /// Makes S⁻¹ beside the factor, and gives its memory back.
  void invert();
  void forgetInverse() { inverse_ = {}; }
  /// An entry of S⁻¹ that this process has, after invert().
  double inverse(std::int64_t i, std::int64_t j) const { return inverse_[place(i, j)]; }

 private:
  /// Rows and columns of a block: deep enough for products at full rate, small enough that every
  /// process soon has some.
  static constexpr int kBlock = 64;

  std::size_t place(std::int64_t i, std::int64_t j) const {
    return static_cast<std::size_t>(localCol(j) * stride_ + localRow(i));
  }

  const Communicator& comm_;
  std::int64_t order_;
  int gridRows_ = 1, gridCols_ = 1, gridRow_ = 0, gridCol_ = 0;
  int system_ = -1, context_ = -1;
  int stride_ = 1;
  int descriptor_[9] = {};
  std::vector<double> factor_, inverse_;
};

}  // namespace zeph::distributed

#endif
