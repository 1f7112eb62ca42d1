#include "distributed/domains/block_matrix.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "distributed/blas_threads.h"
#include "distributed/domains/scalapack.h"

namespace zeph::distributed {
namespace {

using std::size_t;

constexpr int kFirst = 1, kOrigin = 0;

// The most square grid of so many processes: its rows.
int rowsOfGrid(int processes) {
  auto rows = static_cast<int>(std::sqrt(static_cast<double>(processes)));
  while (processes % rows != 0) --rows;
  return rows;
}

// Rows or columns that one process of `count` in a line has at most.
std::int64_t mostLocal(std::int64_t order, int block, int count) {
  const std::int64_t blocks = (order + block - 1) / block;
  return std::min(order, (blocks + count - 1) / count * block);
}

}  // namespace

double BlockMatrix::bytes(std::int64_t order, int processes) {
  const int rows = rowsOfGrid(processes);
  return sizeof(double) * static_cast<double>(mostLocal(order, kBlock, rows)) *
         static_cast<double>(mostLocal(order, kBlock, processes / rows));
}

bool BlockMatrix::countable(std::int64_t order, int processes) {
  return bytes(order, processes) / sizeof(double) < std::numeric_limits<int>::max();
}

BlockMatrix::BlockMatrix(const Communicator& comm, std::int64_t order)
    : comm_(comm), order_(order) {
  gridRows_ = rowsOfGrid(comm.size());
  gridCols_ = comm.size() / gridRows_;
  if (order == 0) return;
  gridRow_ = comm.rank() / gridCols_;
  gridCol_ = comm.rank() % gridCols_;
  system_ = context_ = Csys2blacs_handle(comm.raw());
  Cblacs_gridinit(&context_, "Row-major", gridRows_, gridCols_);
  const auto n = static_cast<int>(order);
  const int rows = numroc_(&n, &kBlock, &gridRow_, &kOrigin, &gridRows_);
  stride_ = std::max(1, rows);
  int info = 0;
  descinit_(descriptor_, &n, &n, &kBlock, &kBlock, &kOrigin, &kOrigin, &context_, &stride_, &info);
}

void BlockMatrix::clear() {
  if (order_ == 0) return;
  const auto n = static_cast<int>(order_);
  const int cols = numroc_(&n, &kBlock, &gridCol_, &kOrigin, &gridCols_);
  comm_.together([&] {
    // One at least: ScaLAPACK gets an address.
    factor_.assign(std::max(1, cols) * static_cast<size_t>(stride_), 0.0);
  });
}

BlockMatrix::~BlockMatrix() {
  if (context_ < 0) return;
  Cblacs_gridexit(context_);
  Cfree_blacs_system_handle(system_);
}

std::int64_t BlockMatrix::factorise() {
  if (order_ == 0) return -1;
  const BlasThreads one(1);
  const auto n = static_cast<int>(order_);
  int info = 0;
  pdpotrf_("L", &n, factor_.data(), &kFirst, &kFirst, descriptor_, &info);
  std::int64_t failed = info > 0 ? info - 1 : order_;
  // NaN passes there.
  forDiagonal([&](std::int64_t i, double l) {
    if (!(l > 0.0 && std::isfinite(l))) failed = std::min(failed, i);
  });
  failed = comm_.least(failed);
  return failed == order_ ? -1 : failed;
}

void BlockMatrix::solve(double* x) const {
  if (order_ == 0) return;
  const BlasThreads one(1);
  const auto n = static_cast<int>(order_);
  const int sides = 1;
  int descriptor[9], info = 0;
  descinit_(descriptor, &n, &sides, &kBlock, &kBlock, &kOrigin, &kOrigin, &context_, &stride_,
            &info);
  // The processes in the grid's first column have the right-hand side, by their rows.
  std::vector<double> mine =
      comm_.together([&] { return std::vector<double>(static_cast<size_t>(stride_)); });
  const auto forMine = [&](const auto& use) {
    if (gridCol_ != 0) return;
    for (std::int64_t i = 0; i < order_; ++i) {
      if (hasRow(i)) use(mine[place(i, 0)], x[i]);
    }
  };
  forMine([](double& own, double& whole) { own = whole; });
  pdpotrs_("L", &n, &sides, factor_.data(), &kFirst, &kFirst, descriptor_, mine.data(), &kFirst,
           &kFirst, descriptor, &info);
  std::fill_n(x, order_, 0.0);
  forMine([](double& own, double& whole) { whole = own; });
  comm_.sum(x, static_cast<size_t>(order_));
}

void BlockMatrix::invert() {
  if (order_ == 0) return;
  comm_.together([&] { inverse_ = factor_; });
  const BlasThreads one(1);
  const auto n = static_cast<int>(order_);
  int info = 0;
  pdpotri_("L", &n, inverse_.data(), &kFirst, &kFirst, descriptor_, &info);
}

}  // namespace zeph::distributed
