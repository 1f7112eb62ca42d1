#include "distributed/domains/interface.h"

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

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

// As many threads of OpenBLAS as the machine has processors would stand in each other's way on all
// processes at once. Other BLAS go by their own environment.
class OneBlasThread {
 public:
  OneBlasThread() {
    if (get_ == nullptr || set_ == nullptr) return;
    before_ = get_();
    set_(1);
  }
  ~OneBlasThread() {
    if (before_ > 0) set_(before_);
  }
  OneBlasThread(const OneBlasThread&) = delete;
  OneBlasThread& operator=(const OneBlasThread&) = delete;

 private:
  using Get = int (*)();
  using Set = void (*)(int);
  Get get_ = reinterpret_cast<Get>(dlsym(RTLD_DEFAULT, "openblas_get_num_threads"));
  Set set_ = reinterpret_cast<Set>(dlsym(RTLD_DEFAULT, "openblas_set_num_threads"));
  int before_ = 0;
};

// Rows or columns that one process of `count` in a line has at most.
std::int64_t mostLocal(std::int64_t order, int block, int count) {
  const std::int64_t blocks = (order + block - 1) / block;
  return std::min(order, (blocks + count - 1) / count * block);
}

}  // namespace

double Interface::bytes(std::int64_t order, int processes) {
  const int rows = rowsOfGrid(processes);
  return 2.0 * sizeof(double) * static_cast<double>(mostLocal(order, kBlock, rows)) *
         static_cast<double>(mostLocal(order, kBlock, processes / rows));
}

Interface::Interface(const Communicator& comm, std::int64_t order) : comm_(comm), order_(order) {
  gridRows_ = rowsOfGrid(comm.size());
  gridCols_ = comm.size() / gridRows_;
  if (order == 0) return;
  const double local = bytes(order, comm.size()) / (2.0 * sizeof(double));
  if (local >= static_cast<double>(std::numeric_limits<int>::max())) {
    comm.fail(Error(ErrorKind::Memory, "the interface of " + std::to_string(order) +
                                           " unknowns between the domains of " +
                                           std::to_string(comm.size()) +
                                           " processes is more than ScaLAPACK takes; use another "
                                           "number of processes, or the engine \"mumps\""));
  }
  gridRow_ = comm.rank() / gridCols_;
  gridCol_ = comm.rank() % gridCols_;
  system_ = context_ = Csys2blacs_handle(comm.raw());
  Cblacs_gridinit(&context_, "Row-major", gridRows_, gridCols_);
  const auto n = static_cast<int>(order);
  const int rows = numroc_(&n, &kBlock, &gridRow_, &kOrigin, &gridRows_);
  const int cols = numroc_(&n, &kBlock, &gridCol_, &kOrigin, &gridCols_);
  stride_ = std::max(1, rows);
  int info = 0;
  descinit_(descriptor_, &n, &n, &kBlock, &kBlock, &kOrigin, &kOrigin, &context_, &stride_, &info);
  comm.together([&] {
    // One at least: ScaLAPACK gets an address.
    factor_.resize(std::max(size_t{1}, static_cast<size_t>(stride_) * static_cast<size_t>(cols)));
  });
}

Interface::~Interface() {
  if (context_ < 0) return;
  Cblacs_gridexit(context_);
  Cfree_blacs_system_handle(system_);
}

std::int64_t Interface::factorise() {
  if (order_ == 0) return -1;
  const OneBlasThread one;
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

void Interface::solve(double* x) const {
  if (order_ == 0) return;
  const OneBlasThread one;
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

void Interface::invert() {
  if (order_ == 0 || !inverse_.empty()) return;
  comm_.together([&] { inverse_ = factor_; });
  const OneBlasThread one;
  const auto n = static_cast<int>(order_);
  int info = 0;
  pdpotri_("L", &n, inverse_.data(), &kFirst, &kFirst, descriptor_, &info);
}

}  // namespace zeph::distributed
