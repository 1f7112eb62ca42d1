#include "mumps_peer.h"

#include "factor_peers.h"

#ifdef ZEPH_COMPARE_MUMPS

#include <dmumps_c.h>

#include <vector>

#include "measure.h"

namespace compare {
namespace {

using zeph_solver::MatrixElement;

enum Job { kStart = -1, kEnd = -2, kAnalyse = 1, kFactorise = 2, kSolve = 3 };
constexpr MUMPS_INT kPositiveDefinite = 1;
constexpr MUMPS_INT kUnsymmetric = 0;
constexpr MUMPS_INT kUseCommunicatorWorld = -987654;

class Instance {
 public:
  explicit Instance(bool symmetric) {
    id_.comm_fortran = kUseCommunicatorWorld;
    id_.par = 1;
    id_.sym = symmetric ? kPositiveDefinite : kUnsymmetric;
    run(kStart);
    for (const int output : {1, 2, 3, 4}) control(output) = 0;
  }
  ~Instance() { run(kEnd); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  MUMPS_INT& control(int number) { return id_.icntl[number - 1]; }
  DMUMPS_STRUC_C* operator->() { return &id_; }
  bool failed() const { return id_.infog[0] < 0; }
  double run(Job job) {
    id_.job = job;
    return seconds([this] { dmumps_c(&id_); });
  }

 private:
  DMUMPS_STRUC_C id_{};
};

}  // namespace

bool haveMumps() {
  return true;
}

MumpsTimes mumpsInverseDiagonal(const zeph_solver::ProtoSparse& A, bool symmetric, const int* order,
                                double* diagonal) {
  const auto n = static_cast<MUMPS_INT>(A.rowCount);
  std::vector<MUMPS_INT> rows, cols;
  std::vector<double> values;
  for (const MatrixElement& e : A.elements) {
    if (symmetric && e.row < e.col) continue;
    rows.push_back(static_cast<MUMPS_INT>(e.row) + 1);
    cols.push_back(static_cast<MUMPS_INT>(e.col) + 1);
    values.push_back(e.value);
  }
  Instance mumps(symmetric);
  mumps->n = n;
  mumps->nnz = static_cast<MUMPS_INT8>(values.size());
  mumps->irn = rows.data();
  mumps->jcn = cols.data();
  mumps->a = values.data();
  std::vector<MUMPS_INT> places(A.rowCount);
  if (order != nullptr) {
    for (MUMPS_INT k = 0; k < n; ++k) places[order[k]] = k + 1;
    mumps->perm_in = places.data();
    mumps.control(7) = 1;
  }
  MumpsTimes times;
  times.analysis = mumps.run(kAnalyse);
  if (mumps.failed()) return times;
  times.factorisation = mumps.run(kFactorise);
  if (mumps.failed()) return times;

  // One wanted entry a column: the diagonal.
  std::vector<MUMPS_INT> starts(A.rowCount + 1), wanted(A.rowCount);
  for (MUMPS_INT j = 0; j <= n; ++j) starts[j] = j + 1;
  for (MUMPS_INT j = 0; j < n; ++j) wanted[j] = j + 1;
  mumps.control(30) = 1;
  mumps->nrhs = n;
  mumps->lrhs = n;
  mumps->nz_rhs = n;
  mumps->irhs_ptr = starts.data();
  mumps->irhs_sparse = wanted.data();
  mumps->rhs_sparse = diagonal;
  times.inverse = mumps.run(kSolve);
  times.completed = !mumps.failed();
  return times;
}

FactorTimes mumpsMinimumDegree(const Lower& lower) {
  constexpr MUMPS_INT kMinimumDegree = 0;
  const auto entries = static_cast<std::size_t>(lower.entries());
  std::vector<MUMPS_INT> rows(entries), cols(entries);
  std::vector<double> values(lower.value, lower.value + entries);
  for (MUMPS_INT j = 0; j < lower.cols; ++j) {
    for (auto k = lower.start[j]; k < lower.start[j + 1]; ++k) {
      rows[static_cast<std::size_t>(k)] = lower.row[k] + 1;
      cols[static_cast<std::size_t>(k)] = j + 1;
    }
  }
  Instance mumps(true);
  mumps.control(7) = kMinimumDegree;
  mumps->n = lower.cols;
  mumps->nnz = static_cast<MUMPS_INT8>(entries);
  mumps->irn = rows.data();
  mumps->jcn = cols.data();
  mumps->a = values.data();
  FactorTimes times;
  times.order = mumps.run(kAnalyse);
  if (mumps.failed()) return times;
  times.factor = mumps.run(kFactorise);
  times.completed = !mumps.failed();
  return times;
}

}  // namespace compare

#else

namespace compare {

bool haveMumps() {
  return false;
}

MumpsTimes mumpsInverseDiagonal(const zeph_solver::ProtoSparse&, bool, const int*, double*) {
  return {};
}

FactorTimes mumpsMinimumDegree(const Lower&) {
  return {};
}

}  // namespace compare

#endif
