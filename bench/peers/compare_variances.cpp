// Variances of a symmetric positive definite matrix: our whole call and its inverse step alone,
// beside CHOLMOD's factorisation, MUMPS' entries of the inverse and UMFPACK's unit solves.
//   compare_variances MATRIX [--limit=SECONDS] [--peer-work=N]
#include <cholmod.h>
#include <umfpack.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <vector>

#include "matrices.h"
#include "measure.h"
#include "mumps_peer.h"
#include "solver/partial_inverse_chol.h"
#include "solver/solver.h"
#include "solver/suitesparse/cholmod_panels.h"
#include "sparse/inverse/inverse_subset.h"
#include "sparse/inverse/simplicial_inverse.h"
#include "sparse/inverse/supernodal_inverse.h"

namespace {

using compare::Best;
using compare::IsolatedRun;
using compare::Record;
using compare::seconds;
using zeph_solver::ProtoSparse;

constexpr int kNestedDissection = zeph_solver::Solver::kNestedDissection;
// The column-wise step is skipped where its multiplications would take minutes.
constexpr double kSimplicialLimit = 1.5e10;
constexpr int kUnitSolves = 12;
constexpr double kUnitSolveLimit = 2.0;

/// CHOLMOD with our ordering and form of the factor, one matrix and its factor.
class CholmodRun {
 public:
  CholmodRun(const ProtoSparse& sorted, int method) : solver_(kNestedDissection) {
    cholmod_common* c = common();
    c->supernodal = method;
    c->final_asis = 0;
    c->final_super = 1;
    c->final_ll = 1;
    c->final_pack = 1;
    c->final_monotonic = 1;
    cholmod_sparse* converted = nullptr;
    zeph_solver::protoSparseToCholmodSparse(sorted, converted, c);
    matrix_ = {converted, c};
  }
  cholmod_common* common() { return solver_.common->get(); }
  double analyse() {
    factor_.reset();
    return seconds([this] { factor_ = {cholmod_analyze(matrix_, common()), common()}; });
  }
  double factorise() {
    return seconds([this] { cholmod_factorize(matrix_, factor_, common()); });
  }
  const cholmod_factor& factor() const { return *factor_.get(); }
  bool positiveDefinite() const { return factor_->minor == factor_->n; }
  const unsigned int* order() const { return static_cast<const unsigned int*>(factor_->Perm); }
  /// The factor in compressed columns without the zeros that groups brought in.
  zeph_solver::CholmodHandle<cholmod_sparse> columns() {
    cholmod_change_factor(CHOLMOD_REAL, 1, 0, 1, 1, factor_, common());
    cholmod_resymbol(matrix_, nullptr, 0, 1, factor_, common());
    return takeColumns();
  }
  zeph_solver::CholmodHandle<cholmod_sparse> takeColumns() {
    return {cholmod_factor_to_sparse(factor_, common()), common()};
  }

 private:
  zeph_solver::Solver solver_;
  zeph_solver::CholmodHandle<cholmod_sparse> matrix_;
  zeph_solver::CholmodHandle<cholmod_factor> factor_;
};

/// A factor of CHOLMOD's as our inversions read it.
class ColumnsOf {
 public:
  explicit ColumnsOf(const cholmod_sparse& L)
      : starts_(static_cast<const int*>(L.p), static_cast<const int*>(L.p) + L.ncol + 1),
        view_{static_cast<int>(L.nrow), static_cast<int>(L.ncol), starts_.data(),
              static_cast<const int*>(L.i), static_cast<const double*>(L.x)} {}
  const korin::sparse::ColumnsView& view() const { return view_; }

 private:
  std::vector<korin::sparse::Offset> starts_;
  korin::sparse::ColumnsView view_;
};

/// Seconds of what partialInverseChol does with a factor, without CHOLMOD's conversion of one that
/// is not in panels.
double inverseStep(CholmodRun& run, double* diagonal) {
  const cholmod_factor& L = run.factor();
  if (!L.is_super) {
    const auto columns = run.takeColumns();
    return seconds([&] {
      const ColumnsOf factor(*columns.get());
      korin::sparse::InverseSubset(factor.view(), korin::sparse::FactorPattern::Elimination)
          .diagonal(run.order(), diagonal);
    });
  }
  return seconds([&] {
    const zeph_solver::CholmodPanels view(L);
    korin::sparse::supernodalInverse(view.panels());
    korin::sparse::panelDiagonal(view.panels(), view.permutation(), diagonal);
  });
}

/// Floating-point operations of the step on panels: Z22 Y, two products with triangles, two
/// triangles.
double stepOperations(const cholmod_factor& L) {
  const auto* columns = static_cast<const int*>(L.super);
  const auto* rows = static_cast<const int*>(L.pi);
  double sum = 0.0;
  for (std::size_t g = 0; g < L.nsuper; ++g) {
    const double c = columns[g + 1] - columns[g];
    const double below = rows[g + 1] - rows[g] - c;
    sum += 2.0 * below * below * c + 2.0 * below * c * c + 2.0 / 3.0 * c * c * c;
  }
  return sum;
}

/// Seconds of the plain column-wise step; NaN where it would take too long.
double simplicialStep(CholmodRun& run, double limit, std::vector<double>& diagonal) {
  run.factorise();
  const auto columns = run.columns();
  const ColumnsOf factor(*columns.get());
  const korin::sparse::ColumnsView& L = factor.view();
  double work = 0.0;
  for (int j = 0; j < L.cols; ++j) {
    const auto length = static_cast<double>(L.start[j + 1] - L.start[j]);
    work += length * length;
  }
  if (work > kSimplicialLimit) return std::numeric_limits<double>::quiet_NaN();
  Best best;
  std::vector<double> inverse;
  compare::repeat(limit / 3.0, 1, 5, [&] {
    inverse = {};
    best.add(seconds([&] {
      inverse.resize(static_cast<std::size_t>(L.entries()));
      korin::sparse::simplicialInverse(L, inverse.data());
    }));
  });
  for (int j = 0; j < L.cols; ++j) {
    diagonal[run.order()[j]] = inverse[static_cast<std::size_t>(L.start[j])];
  }
  return best.value;
}

/// Results: the diagonal, then seconds of factorisation and of one unit solve. Only some of the
/// diagonal is computed.
void umfpackSolves(const ProtoSparse& A, double* results) {
  zeph_solver::Solver solver(kNestedDissection);
  zeph_solver::Factorisation f(&solver);
  const std::size_t n = A.rowCount;
  results[n] = seconds([&] { solver.factorise(A, &f); });
  double control[UMFPACK_CONTROL];
  umfpack_di_defaults(control);
  control[UMFPACK_IRSTEP] = 0;  // without refinement a solve costs least
  std::vector<double> unit(n, 0.0), x(n), work(5 * n);
  std::vector<int> indices(n);
  Best best;
  int k = 0;
  compare::repeat(kUnitSolveLimit, 2, kUnitSolves, [&] {
    const std::size_t i = n * static_cast<std::size_t>(k++) / kUnitSolves;
    unit[i] = 1.0;
    best.add(seconds([&] {
      umfpack_di_wsolve(UMFPACK_A, f.colPointers, f.rowIndices, f.values, x.data(), unit.data(),
                        f.numeric, control, nullptr, indices.data(), work.data());
    }));
    unit[i] = 0.0;
    results[i] = x[i];
  });
  results[n + 1] = best.value;
}

struct Measured {
  Best whole, order, factor, supernodalFactor, step;
  std::vector<double> wholeDiagonal, stepDiagonal;
};

/// Our call on A as it was assembled, and the parts of CHOLMOD and ours, in turn.
Measured measureInTurn(const ProtoSparse& A, const ProtoSparse& sorted, CholmodRun& chosen,
                       double limit) {
  const std::size_t n = A.rowCount;
  Measured m;
  m.wholeDiagonal.resize(n);
  m.stepDiagonal.resize(n);
  CholmodRun supernodal(sorted, CHOLMOD_SUPERNODAL);
  chosen.analyse();
  supernodal.analyse();
  const bool isSuper = chosen.factor().is_super;
  compare::repeat(limit, 3, 25, [&] {
    const ProtoSparse unsorted(A);
    ZtVector d(n);
    m.whole.add(seconds([&] { zeph_solver::partialInverseChol(unsorted, d); }));
    std::copy_n(d.data, n, m.wholeDiagonal.begin());
    m.order.add(chosen.analyse());
    m.factor.add(chosen.factorise());
    m.step.add(inverseStep(chosen, m.stepDiagonal.data()));
    if (!isSuper) m.supernodalFactor.add(supernodal.factorise());
  });
  if (isSuper) m.supernodalFactor = m.factor;
  return m;
}

void addPeers(const ProtoSparse& A, const CholmodRun& run, const std::vector<double>& ours,
              bool withMumps, Record& record) {
  const std::size_t n = A.rowCount;
  const IsolatedRun umfpack = compare::runIsolated(n + 2, [&](double* r) { umfpackSolves(A, r); });
  if (umfpack.completed) {
    record.add("umfpack_factor", umfpack.results[n]).add("umfpack_solve", umfpack.results[n + 1]);
    record.add("umfpack_mb", umfpack.megabytes);
    record.add("umfpack_difference",
               compare::largestDifference(ours.data(), umfpack.results.data(), n));
  }
  if (!withMumps || !compare::haveMumps()) return;
  const auto* order = reinterpret_cast<const int*>(run.order());
  const IsolatedRun mumps = compare::runIsolated(n + 3, [&](double* r) {
    const compare::MumpsTimes t = compare::mumpsInverseDiagonal(A, true, order, r);
    if (!t.completed) throw std::exception();
    r[n] = t.analysis;
    r[n + 1] = t.factorisation;
    r[n + 2] = t.inverse;
  });
  if (!mumps.completed) return;
  record.add("mumps_analysis", mumps.results[n]).add("mumps_factor", mumps.results[n + 1]);
  record.add("mumps_inverse", mumps.results[n + 2]).add("mumps_mb", mumps.megabytes);
  record.add("mumps_difference", compare::largestDifference(ours.data(), mumps.results.data(), n));
}

int measure(const compare::Arguments& arguments) {
  const compare::TestMatrix m = compare::makeMatrix(arguments.positions().at(0));
  const std::size_t n = m.A.rowCount;
  Record record("variances");
  record.add("matrix", m.name).add("n", n);
  if (!m.symmetric) {
    record.add("unfit", "not symmetric").print();
    return 0;
  }
  const double limit = arguments.number("limit", 3.0);

  const IsolatedRun ours = compare::runIsolated(0, [&](double*) {
    ZtVector d(n);
    zeph_solver::partialInverseChol(m.A, d);
  });
  ProtoSparse sorted(m.A);
  sorted.sortElements();
  const IsolatedRun factorOnly = compare::runIsolated(0, [&](double*) {
    CholmodRun run(sorted, CHOLMOD_AUTO);
    run.analyse();
    run.factorise();
  });

  CholmodRun chosen(sorted, CHOLMOD_AUTO);
  chosen.analyse();
  chosen.factorise();
  if (!chosen.positiveDefinite()) {
    record.add("unfit", "not positive definite").print();
    return 0;
  }
  const bool isSuper = chosen.factor().is_super;
  record.add("entries", chosen.common()->lnz).add("factor_operations", chosen.common()->fl);
  record.add("panels", isSuper);
  if (isSuper) record.add("step_operations", stepOperations(chosen.factor()));

  const Measured t = measureInTurn(m.A, sorted, chosen, limit);
  record.add("supernodal_factor", t.supernodalFactor.value).add("factor", t.factor.value);
  record.add("step", t.step.value).add("order", t.order.value).add("whole", t.whole.value);
  record.add("tolerance", compare::allowedDifference(sorted, t.wholeDiagonal.data()));
  record.add("whole_mb", ours.megabytes).add("factor_mb", factorOnly.megabytes);
  record.add("step_difference",
             compare::largestDifference(t.stepDiagonal.data(), t.wholeDiagonal.data(), n));
  std::vector<double> plain(n, std::numeric_limits<double>::quiet_NaN());
  chosen.analyse();
  record.add("simplicial_step", simplicialStep(chosen, limit, plain));
  record.add("simplicial_difference",
             compare::largestDifference(t.wholeDiagonal.data(), plain.data(), n));
  const double work = static_cast<double>(n) * chosen.common()->lnz;
  const bool withMumps = work <= arguments.number("peer-work", 1e12);
  addPeers(sorted, chosen, t.wholeDiagonal, withMumps, record);
  record.print();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return compare::run("compare_variances", measure, argc, argv);
}
