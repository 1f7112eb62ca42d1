// Variances of general matrices: one pass over the LU factors beside n solves and MUMPS' entries of
// the inverse.
//   compare_general MATRIX [--limit=SECONDS] [--peer-work=N]
#include <algorithm>
#include <exception>
#include <limits>
#include <numeric>
#include <vector>

#include "matrices.h"
#include "measure.h"
#include "mumps_peer.h"
#include "solver/partial_inverse_lu.h"
#include "solver/selected_inverse.h"
#include "solver/solver.h"

namespace {

using compare::Best;
using compare::IsolatedRun;
using compare::seconds;
using zeph_solver::ProtoSparse;

constexpr std::size_t kBatch = 8;

/// The n solves of partialInverseLU, in batches until `limit` seconds are spent; gives the seconds
/// of all of them and whether that is an extrapolation.
struct Solves {
  double total = 0.0;
  double factor = 0.0;
  bool extrapolated = false;
};

Solves solveUnitVectors(const ProtoSparse& A, double limit, double* diagonal) {
  const std::size_t n = A.rowCount;
  zeph_solver::Solver solver(0);
  zeph_solver::Factorisation f(&solver);
  Solves result;
  result.factor = seconds([&] { solver.factorise(A, &f); });
  const std::size_t batches = (n + kBatch - 1) / kBatch;
  double spent = 0.0;
  std::size_t done = 0;
  // A stride that is coprime to the number of batches spreads a part of them over the matrix.
  std::size_t stride = std::max<std::size_t>(1, batches * 5 / 8);
  while (std::gcd(stride, batches) != 1) ++stride;
  while (done < batches && (spent < limit || done < 2)) {
    const std::size_t first = done++ * stride % batches * kBatch;
    const std::size_t count = std::min(kBatch, n - first);
    korin::Matrix units(n, count), x(n, count);
    ZtMatrix_setZero(&units);
    for (std::size_t k = 0; k < count; ++k) units.data[(first + k) * units.stride + k] = 1.0;
    spent += seconds([&] { solver.solveGeneric(A, x, units, false, &f, false, true); });
    for (std::size_t k = 0; k < count; ++k)
      diagonal[first + k] = x.data[(first + k) * x.stride + k];
  }
  result.extrapolated = done < batches;
  result.total = result.factor + spent * static_cast<double>(batches) / static_cast<double>(done);
  return result;
}

int measure(const compare::Arguments& arguments) {
  const compare::TestMatrix m = compare::makeMatrix(arguments.positions().at(0));
  const std::size_t n = m.A.rowCount;
  const double limit = arguments.number("limit", 20.0);
  compare::Record record("general");
  record.add("matrix", m.name).add("n", n);

  const IsolatedRun memory = compare::runIsolated(0, [&](double*) {
    ZtVector d(n);
    zeph_solver::partialInverseLUSelected(m.A, d);
  });
  const double none = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> solved(n, none);
  ZtVector selected(n);
  Best ours;
  const auto selectedInverse = [&] {
    const ProtoSparse unsorted(m.A);
    ours.add(seconds([&] { zeph_solver::partialInverseLUSelected(unsorted, selected); }));
  };
  compare::repeat(limit / 10.0, 2, 5, selectedInverse);
  Solves solves = solveUnitVectors(m.A, limit / 3.0, solved.data());
  if (!solves.extrapolated || solves.total < limit) {
    // Short enough for the real thing.
    ZtVector d(n);
    solves.total = seconds([&] { zeph_solver::partialInverseLU(m.A, d); });
    solves.extrapolated = false;
    std::copy_n(d.data, n, solved.begin());
  }
  compare::repeat(limit / 10.0, 2, 5, selectedInverse);
  record.add("selected", ours.value).add("solves", solves.total).add("factor", solves.factor);
  record.add("extrapolated", solves.extrapolated).add("selected_mb", memory.megabytes);
  record.add("difference", compare::largestDifference(selected.data, solved.data(), n));

  const double work = static_cast<double>(n) * static_cast<double>(n);
  if (compare::haveMumps() && work <= arguments.number("peer-work", 1e12)) {
    const IsolatedRun mumps = compare::runIsolated(n + 3, [&](double* r) {
      const compare::MumpsTimes t = compare::mumpsInverseDiagonal(m.A, false, nullptr, r);
      if (!t.completed) throw std::exception();
      r[n] = t.analysis;
      r[n + 1] = t.factorisation;
      r[n + 2] = t.inverse;
    });
    if (mumps.completed) {
      record.add("mumps", mumps.results[n] + mumps.results[n + 1] + mumps.results[n + 2]);
      record.add("mumps_mb", mumps.megabytes);
      record.add("mumps_difference",
                 compare::largestDifference(selected.data, mumps.results.data(), n));
    }
  }
  record.print();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return compare::run("compare_general", measure, argc, argv);
}
