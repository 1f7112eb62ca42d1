#include "zeph/factor.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "zeph/checks/datum.h"
#include "zeph/checks/guarded.h"
#include "zeph/checks/memory.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/factor/cholesky_backend.h"
#include "zeph/factor/first_route.h"
#include "zeph/factor/inverse_norm.h"
#include "zeph/factor/lu_backend.h"
#include "zeph/factor/normal_numbers.h"
#include "zeph/factor/plan_structure.h"
#include "zeph/factor/trust.h"
#include "zeph/matrix/requirements.h"
#include "zeph/plan/run_plan.h"

namespace zeph {
namespace {

using std::size_t;

constexpr const char* kVariances = "the variances";

// Too few entries leave rows empty; found before memory is taken for that many rows.
void requireEntries(const SparseMatrix& m) {
  const size_t stored = m.entries.size();
  if ((m.symmetry == Symmetry::General ? stored : 2 * stored) >= m.rows) return;
  throw Error(ErrorKind::Singular, m.source + " is singular: it has fewer entries (" +
                                       std::to_string(stored) + ") than its " +
                                       std::to_string(m.rows) + " rows need");
}

bool asksForLu(const Options& options) {
  return options.route == Route::Lu || options.route == Route::LuSolves;
}

std::string diagonalFault(const SymmetricInput& in, korin::sparse::Index row) {
  const auto i = static_cast<size_t>(row);
  return "diagonal entry " + position(in.indexBase, i, i) + " of " + in.source + " is not positive";
}

// The Cholesky route without numbers, or null with the reason why LU has to be taken. Throws where
// Cholesky was asked for.
std::unique_ptr<CholeskyBackend> analysed(const SparseMatrix& A, const Options& options,
                                          Watch& watch, std::string& against) {
  watch.begin("assembling", 0.0);
  const bool forced = options.route == Route::Cholesky;
  SymmetricInput input = symmetricInput(A, against);
  if (!against.empty() && forced) {
    throw Error(ErrorKind::Unfit,
                against + "; the Cholesky route needs a symmetric matrix, use LU (--lu)");
  }
  if (!against.empty()) return nullptr;
  const korin::sparse::Index bad = input.unusableDiagonal;
  if (bad >= 0) {
    if (forced) throw notPositiveDefinite(A.source, A.indexBase, bad);
    against = diagonalFault(input, bad);
    return nullptr;
  }
  auto factor = std::make_unique<CholeskyBackend>(std::move(input), options, watch);
  factor->setReason(forced ? "as asked" : A.source + " is symmetric with a positive diagonal");
  return factor;
}

bool meansSingular(const Error& e) {
  return e.kind() == ErrorKind::NotPositiveDefinite || e.kind() == ErrorKind::Singular;
}

// Random vectors that tell the norm of what a trace depends on.
constexpr size_t kProbes = 3;
// What is made of them and of the sizes of rows and columns, and what solving takes for each.
constexpr double kVectorsOfTrace = 2.0 + (2.0 + 6.0) * kProbes;

// Before a symmetric matrix is called singular, or sent to LU, which would call it so: throws
// DatumError where it is a network that nothing holds.
void requireHeld(const SparseMatrix& A, const std::string& source, size_t indexBase,
                 const Options& options) {
  const std::optional<DatumDefect> defect = findDatumDefect(A, options);
  if (defect) throw DatumError(source, indexBase, *defect);
}

std::unique_ptr<Backend> byLu(const SparseMatrix& A, const Options& options, Watch& watch) {
  try {
    return makeLuBackend(A, "as asked", options, watch);
  } catch (const Error& e) {
    if (e.kind() != ErrorKind::Singular) throw;
    if (firstRoute(A).route == Route::Cholesky) requireHeld(A, A.source, A.indexBase, options);
    throw;
  }
}

std::unique_ptr<Backend> factorised(const SparseMatrix& A, const Options& options, Watch& watch) {
  requireFactorable(A);
  if (asksForLu(options)) return byLu(A, options, watch);
  std::string against;
  std::unique_ptr<CholeskyBackend> factor = analysed(A, options, watch, against);
  if (factor == nullptr) return makeLuBackend(A, against, options, watch);
  try {
    factor->factorise(A, watch);
    return factor;
  } catch (const Error& e) {
    if (!meansSingular(e)) throw;
    requireHeld(A, A.source, A.indexBase, options);
    if (e.kind() != ErrorKind::NotPositiveDefinite || options.route == Route::Cholesky) throw;
    against = "its Cholesky factorisation broke down at row " +
              std::to_string(static_cast<size_t>(e.row()) + A.indexBase);
  }
  factor.reset();
  return makeLuBackend(A, against, options, watch);
}

// Y = B X.
std::vector<double> times(const SparseMatrix& B, const std::vector<double>& x, size_t columns) {
  std::vector<double> y(x.size(), 0.0);
  for (size_t c = 0; c < columns; ++c) {
    const double* from = x.data() + c * B.rows;
    double* to = y.data() + c * B.rows;
    for (const Entry& e : B.entries) {
      to[e.row] += e.value * from[e.col];
      if (B.symmetry == Symmetry::General || e.row == e.col) continue;
      to[e.col] += (B.symmetry == Symmetry::Symmetric ? e.value : -e.value) * from[e.row];
    }
  }
  return y;
}

// About the error of trace(Z B): an error E of A changes it by trace(Z E Z B) to first order, which
// is E times the entries of Z B Z, whose norm random vectors tell. Entries of Z that are wrong
// together, as those of a network that is held weakly, mostly make up for each other.
Doubt traceDoubt(const Backend& f, const SparseMatrix& B, const Options& options, Watch& watch) {
  requireBytes("estimating the error of a trace",
               kVectorsOfTrace * sizeof(double) * static_cast<double>(B.rows), options.memoryLimit,
               f.report().bytes);
  std::vector<double> rows, cols;
  f.errorUnits(rows, cols);
  const size_t n = rows.size();
  std::vector<double> x(kProbes * n);
  for (size_t k = 0; k < x.size(); ++k) x[k] = probeWeight(k) * rows[k % n];
  f.solve(kProbes, x.data(), watch);
  x = times(B, x, kProbes);
  f.solve(kProbes, x.data(), watch);
  double all = 0.0, largest = 0.0;
  Doubt doubt{0.0, 0};
  for (size_t i = 0; i < n; ++i) {
    double squares = 0.0;
    for (size_t k = i; k < x.size(); k += n) squares += x[k] * x[k] * cols[i] * cols[i];
    all += squares / kProbes;
    if (squares <= largest) continue;
    largest = squares;
    doubt.unknown = static_cast<std::int64_t>(i);
  }
  doubt.error = kEntryErrors * std::sqrt(all);
  return doubt;
}

void requireArray(const void* array, const char* name) {
  if (array == nullptr) throw Error(ErrorKind::Usage, std::string(name) + " is a null pointer");
}

}  // namespace

void requireFactorable(const SparseMatrix& A) {
  requireSquare(A);
  requireForm(A);
  requireFinite(A);
  requireBothTriangles(A);
  requireEntries(A);
}

const char* name(Route route) {
  switch (route) {
    case Route::Automatic:
      return "automatic";
    case Route::Cholesky:
      return "Cholesky";
    case Route::Lu:
      return "LU";
    case Route::LuSolves:
      return "LU with one solve an unknown";
  }
  return "";
}

const char* name(Ordering ordering) {
  switch (ordering) {
    case Ordering::Automatic:
      return "automatic";
    case Ordering::MinimumDegree:
      return "minimum degree";
    case Ordering::NestedDissection:
      return "nested dissection";
    case Ordering::Natural:
      return "natural";
    case Ordering::Given:
      return "given";
  }
  return "";
}

FirstRoute firstRoute(const SparseMatrix& A) {
  requireFactorable(A);
  std::string against;
  const SymmetricInput input = symmetricInput(A, against);
  if (!against.empty()) return {Route::Lu, against};
  const korin::sparse::Index bad = input.unusableDiagonal;
  if (bad >= 0) return {Route::Lu, diagonalFault(input, bad)};
  return {Route::Cholesky, A.source + " is symmetric with a positive diagonal"};
}

double relativeResidual(const SparseMatrix& A, const DenseMatrix& X, const DenseMatrix& B) {
  const auto larger = [](double a, double b) { return std::max(a, std::abs(b)); };
  double worst = 0.0;
  for (size_t c = 0; c < B.cols; ++c) {
    std::vector<double> left(A.rows), size(A.rows);
    const auto add = [&](size_t row, size_t col, double value) {
      left[row] += value * X(col, c);
      size[row] += std::abs(value);
    };
    for (const Entry& e : A.entries) {
      add(e.row, e.col, e.value);
      if (A.symmetry == Symmetry::General || e.row == e.col) continue;
      add(e.col, e.row, A.symmetry == Symmetry::Symmetric ? e.value : -e.value);
    }
    double norm = 0.0, x = 0.0, b = 0.0, r = 0.0;
    for (size_t i = 0; i < A.rows; ++i) {
      norm = larger(norm, size[i]);
      x = larger(x, X(i, c));
      b = larger(b, B(i, c));
      r = larger(r, B(i, c) - left[i]);
    }
    if (r > 0.0) worst = std::max(worst, r / (norm * x + b));
  }
  return worst;
}

class Factor::Impl {
 public:
  Impl(const SparseMatrix& A, const Options& given)
      : source(A.source),
        indexBase(A.indexBase),
        rows(A.rows),
        entries(A.entries.size()),
        options(given) {
    Watch watch(options);
    backend = factorised(A, options, watch);
  }

  // Runs work(backend, watch); what is thrown is an Error, but for what the caller's progress
  // threw.
  template <class Work>
  auto ask(const Work& work) const {
    return guarded(source, [&] {
      if (!hasNumbers) {
        throw Error(ErrorKind::Unfit, "the factor of " + source +
                                          " has no numbers since its last refactorisation failed");
      }
      Watch watch(options);
      try {
        return work(const_cast<const Backend&>(*backend), watch);
      } catch (const Error& e) {
        if (e.kind() != ErrorKind::Singular) throw;
        const SparseMatrix A = backend->symmetricMatrix();
        if (A.rows > 0) requireHeld(A, source, indexBase, options);
        throw;
      }
    });
  }

  void requireIndices(const std::int64_t* indices, size_t count) const {
    if (count > 0) requireArray(indices, "the array of indices");
    for (size_t k = 0; k < count; ++k) {
      if (indices[k] >= 0 && static_cast<size_t>(indices[k]) < rows) continue;
      throw Error(ErrorKind::Unfit, "index " + std::to_string(k) + " is " +
                                        std::to_string(indices[k]) + "; " + source +
                                        " has the rows 0 to " + std::to_string(rows - 1));
    }
  }

  void requireFiniteRight(const double* b, size_t count) const {
    for (size_t k = 0; k < rows * count; ++k) {
      if (std::isfinite(b[k])) continue;
      throw Error(ErrorKind::Unfit,
                  "entry " + position(indexBase, k % rows, k / rows) +
                      " of the right-hand side is not finite",
                  static_cast<std::int64_t>(k % rows));
    }
  }

  // A result has been made. Nothing is more uncertain than what has no digit.
  void tell(const char* what, const Doubt& doubt) const {
    const std::lock_guard<std::mutex> lock(mutex);
    result = what;
    last = {doubt.error <= 1.0 ? doubt.error : 1.0, doubt.unknown};
  }

  // Entries of the inverse, beside `there` bytes that are taken for them.
  void covariance(const std::int64_t* rowsAsked, const std::int64_t* cols, size_t count,
                  double* values, double there) const {
    ask([&](const Backend& f, Watch& watch) {
      if (count > 0) requireArray(values, "the array of values");
      requireIndices(rowsAsked, count);
      requireIndices(cols, count);
      const Doubt doubt = f.covariance(rowsAsked, cols, count, values, watch, there);
      if (count > 0) tell("the entries of the inverse", doubt);
    });
  }

  // For a result of so many columns.
  void requireRoom(const std::string& what, size_t count) const {
    requireRoomFor(what, static_cast<double>(count) * static_cast<double>(rows));
  }

  // For a result, or what goes with it, of so many numbers.
  void requireRoomFor(const std::string& what, double count) const {
    requireBytes(what + " " + source, count * sizeof(double), options.memoryLimit);
  }

  const std::string source;
  const size_t indexBase;
  const size_t rows;
  const size_t entries;
  const Options options;
  std::unique_ptr<Backend> backend;
  bool hasNumbers = true;
  mutable std::mutex mutex;  // guards what follows
  mutable InverseCheck check;
  mutable double secondsInverse = 0.0;
  mutable double backwardError = 0.0;
  mutable const char* result = "";  // the last one
  mutable Doubt last;
};

Factor::Factor(const SparseMatrix& A, const Options& options)
    : impl_(guarded(A.source, [&] { return std::make_unique<Impl>(A, options); })) {}

Factor::~Factor() = default;
Factor::Factor(Factor&& other) noexcept = default;
Factor& Factor::operator=(Factor&& other) noexcept = default;

size_t Factor::rows() const {
  return impl_->rows;
}

void Factor::solve(const double* b, double* x, size_t count) const {
  if (count == 0) return;
  impl_->ask([&](const Backend& f, Watch& watch) {
    requireArray(b, "the right-hand side");
    requireArray(x, "the solution");
    if (count > SIZE_MAX / sizeof(double) / rows()) {
      throw Error(ErrorKind::Memory, "the solutions for " + std::to_string(count) +
                                         " right-hand sides of " + std::to_string(rows()) +
                                         " rows are beyond any memory");
    }
    impl_->requireFiniteRight(b, count);
    if (x != b) std::copy_n(b, rows() * count, x);
    const SolveCheck check = f.solve(count, x, watch);
    impl_->tell("the solution", check.doubt);
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->backwardError = check.backwardError;
  });
}

std::vector<double> Factor::solve(const std::vector<double>& b) const {
  return guarded(impl_->source, [&] {
    auto B = DenseMatrix::zeros(b.size(), 1);
    B.values = b;
    return solve(B).values;
  });
}

DenseMatrix Factor::solve(const DenseMatrix& B) const {
  return guarded(impl_->source, [&] {
    if (B.rows != rows() || B.values.size() / rows() != B.cols || B.values.size() % rows() != 0) {
      throw Error(ErrorKind::Unfit, "the right-hand side is " + std::to_string(B.rows) + " x " +
                                        std::to_string(B.cols) + "; " + impl_->source + " needs " +
                                        std::to_string(rows()) + " rows");
    }
    impl_->requireRoom("solving with", B.cols);
    auto X = DenseMatrix::zeros(B.rows, B.cols);
    solve(B.values.data(), X.values.data(), B.cols);
    return X;
  });
}

void Factor::variances(double* diagonal, size_t count) const {
  impl_->ask([&](const Backend& f, Watch& watch) {
    requireArray(diagonal, "the diagonal");
    if (count != rows()) {
      throw Error(ErrorKind::Unfit, "there is room for " + std::to_string(count) + " of the " +
                                        std::to_string(rows()) + " variances of " + impl_->source);
    }
    const StopWatch clock;
    const InverseCheck check = f.variances(diagonal, watch);
    impl_->tell(kVariances, {check.relativeErrorEstimate, check.worstUnknown});
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->check = check;
    impl_->secondsInverse = clock.seconds();
  });
}

std::vector<double> Factor::variances() const {
  return guarded(impl_->source, [&] {
    std::vector<double> diagonal(rows());
    variances(diagonal.data(), diagonal.size());
    return diagonal;
  });
}

std::vector<double> Factor::variances(const std::vector<std::int64_t>& indices) const {
  return covariance(indices, indices);
}

void Factor::selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices,
                             double* values) const {
  impl_->ask([&](const Backend& f, Watch& watch) {
    requireArray(colStarts, "the array of column starts");
    const Doubt doubt = f.selectedInverse(colStarts, rowIndices, values, watch);
    if (doubt.unknown >= 0) impl_->tell("the selected inverse", doubt);
  });
}

SparseMatrix Factor::selectedInverse() const {
  return guarded(impl_->source, [&] {
    std::vector<std::int64_t> starts(rows() + 1);
    selectedInverse(starts.data(), nullptr, nullptr);
    const auto count = static_cast<size_t>(starts.back());
    constexpr double kNumbersOfAnEntry = 2.0 + double{sizeof(Entry)} / sizeof(double);
    impl_->requireRoomFor("the selected inverse of",
                          kNumbersOfAnEntry * static_cast<double>(count));
    std::vector<std::int64_t> rowIndices(count);
    std::vector<double> values(count);
    selectedInverse(starts.data(), rowIndices.data(), values.data());
    SparseMatrix Z;
    Z.source = "the inverse of " + impl_->source;
    Z.indexBase = impl_->indexBase;
    Z.rows = Z.cols = rows();
    Z.entries.reserve(count);
    for (size_t c = 0; c < rows(); ++c) {
      for (auto p = static_cast<size_t>(starts[c]); p < static_cast<size_t>(starts[c + 1]); ++p) {
        Z.entries.push_back(
            {static_cast<std::uint32_t>(rowIndices[p]), static_cast<std::uint32_t>(c), values[p]});
      }
    }
    return Z;
  });
}

void Factor::covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                        double* values) const {
  impl_->covariance(rows, cols, count, values, 0.0);
}

std::vector<double> Factor::covariance(const std::vector<std::int64_t>& rows,
                                       const std::vector<std::int64_t>& cols) const {
  return guarded(impl_->source, [&] {
    if (rows.size() != cols.size()) {
      throw Error(ErrorKind::Unfit, "there are " + std::to_string(rows.size()) +
                                        " row indices but " + std::to_string(cols.size()) +
                                        " column indices");
    }
    impl_->requireRoomFor("covariances of", static_cast<double>(rows.size()));
    std::vector<double> values(rows.size());
    covariance(rows.data(), cols.data(), rows.size(), values.data());
    return values;
  });
}

DenseMatrix Factor::covarianceBlock(const std::vector<std::int64_t>& indices) const {
  return impl_->ask([&](const Backend& f, Watch& watch) {
    impl_->requireIndices(indices.data(), indices.size());
    const double count = static_cast<double>(indices.size());
    impl_->requireRoomFor("a block of the inverse of", count * count);
    auto block = DenseMatrix::zeros(indices.size(), indices.size());
    block.source = "a block of the inverse of " + impl_->source;
    if (!indices.empty()) {
      impl_->tell("the block of the inverse",
                  f.covarianceBlock(indices.data(), indices.size(), block.values.data(), watch));
    }
    return block;
  });
}

double Factor::logDeterminant() const {
  return impl_->ask([&](const Backend& f, Watch& watch) {
    const Doubt doubt = f.determinantDoubt(watch);
    const double result = f.logDeterminant();
    impl_->tell("the determinant", doubt);
    return result;
  });
}

int Factor::determinantSign() const {
  return impl_->ask([](const Backend& f, Watch&) { return f.determinantSign(); });
}

double Factor::traceOfInverseTimes(const SparseMatrix& B) const {
  return guarded(impl_->source, [&] {
    if (B.rows != rows() || B.cols != rows()) {
      throw Error(ErrorKind::Unfit,
                  B.source + " is " + std::to_string(B.rows) + " x " + std::to_string(B.cols) +
                      "; its trace with the inverse of " + impl_->source + " needs " +
                      std::to_string(rows()) + " x " + std::to_string(rows()));
    }
    requireForm(B);
    requireFinite(B);
    // Entries of A⁻¹ at the transposed positions; those of the triangle that B leaves out as well.
    const size_t stored = B.entries.size();
    const bool mirrored = B.symmetry != Symmetry::General;
    const size_t most = mirrored ? 2 * stored : stored;
    const double lists = 3.0 * sizeof(double) * static_cast<double>(most);
    requireBytes("the trace of " + B.source + " with the inverse of " + impl_->source, lists,
                 impl_->options.memoryLimit, impl_->backend->report().bytes);
    std::vector<std::int64_t> at[2];
    for (auto& side : at) side.reserve(most);
    for (const Entry& e : B.entries) {
      at[0].push_back(e.col);
      at[1].push_back(e.row);
    }
    if (mirrored) {
      for (const Entry& e : B.entries) {
        if (e.row == e.col) continue;
        at[0].push_back(e.row);
        at[1].push_back(e.col);
      }
    }
    std::vector<double> z(at[0].size());
    impl_->covariance(at[0].data(), at[1].data(), z.size(), z.data(), lists);
    for (auto& side : at) side = {};
    const double sign = B.symmetry == Symmetry::SkewSymmetric ? -1.0 : 1.0;
    double trace = 0.0, size = 0.0;
    size_t mirror = stored;
    for (size_t k = 0; k < stored; ++k) {
      trace += B.entries[k].value * z[k];
      size += std::abs(B.entries[k].value * z[k]);
      if (mirrored && B.entries[k].row != B.entries[k].col) {
        size += std::abs(B.entries[k].value * z[mirror]);
        trace += sign * B.entries[k].value * z[mirror++];
      }
    }
    if (!std::isfinite(trace)) {
      throw Error(ErrorKind::Unfit, "the trace overflows; scale the matrices");
    }
    impl_->ask([&](const Backend& f, Watch& watch) {
      Doubt doubt = traceDoubt(f, B, impl_->options, watch);
      doubt.error = size > 0.0 ? doubt.error / std::abs(trace) : 0.0;  // of zeros, it is zero
      impl_->tell("the trace", doubt);
    });
    return trace;
  });
}

DenseMatrix Factor::sample(size_t count, std::uint64_t seed) const {
  return impl_->ask([&](const Backend& f, Watch& watch) {
    impl_->requireRoom("sampling with", count);
    auto x = DenseMatrix::zeros(rows(), count);
    NormalNumbers numbers(seed);
    for (double& value : x.values) value = numbers.next();
    impl_->tell("the samples", f.colour(count, x.values.data(), watch));
    return x;
  });
}

void Factor::refactorise(const double* values, size_t count) {
  guarded(impl_->source, [&] {
    requireArray(values, "the array of values");
    if (count != impl_->entries) {
      throw Error(ErrorKind::Unfit, "there are " + std::to_string(count) + " values for the " +
                                        std::to_string(impl_->entries) + " entries of " +
                                        impl_->source);
    }
    impl_->hasNumbers = false;
    impl_->check = {};
    impl_->secondsInverse = 0.0;
    impl_->backwardError = 0.0;
    impl_->last = {};
    Watch watch(impl_->options);
    impl_->backend->refactorise(values, count, watch);
    impl_->hasNumbers = true;
  });
}

void Factor::refactorise(const std::vector<double>& values) {
  refactorise(values.data(), values.size());
}

double Factor::estimateCondition() const {
  return impl_->ask([](const Backend& f, Watch& watch) { return f.estimateCondition(watch); });
}

Report Factor::report() const {
  return guarded(impl_->source, [&] {
    Report r = impl_->backend->report();
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    r.secondsInverse = impl_->secondsInverse;
    r.identityResidual = impl_->check.identityResidual;
    r.relativeErrorEstimate = impl_->check.relativeErrorEstimate;
    r.uncertainVariances = impl_->check.uncertainVariances;
    r.firstUncertain = impl_->check.firstUncertain;
    r.backwardError = impl_->backwardError;
    r.lastErrorEstimate = impl_->last.error;
    r.worstUnknown = impl_->last.unknown;
    if (r.conditionEstimate == 0.0) r.conditionEstimate = impl_->check.condition;
    return r;
  });
}

std::vector<std::string> Factor::warnings() const {
  return guarded(impl_->source, [&] {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    GivenResult given{impl_->result, impl_->last.error, impl_->last.unknown};
    if (impl_->result == kVariances) {
      given.uncertain = impl_->check.uncertainVariances;
      given.firstUncertain = impl_->check.firstUncertain;
    }
    return warningsOf(given, impl_->source, impl_->indexBase, impl_->rows);
  });
}

std::unique_ptr<CholeskyBackend> plannedStructure(const SparseMatrix& A, const Options& options,
                                                  Report& report) {
  requireFactorable(A);
  Watch watch(options);
  std::string against = "as asked";
  std::unique_ptr<CholeskyBackend> factor;
  if (!asksForLu(options)) factor = analysed(A, options, watch, against);
  if (factor != nullptr) {
    report = factor->predicted();
    return factor;
  }
  report.route = options.route == Route::LuSolves ? Route::LuSolves : Route::Lu;
  report.reason = against;
  report.unknowns = report.groups = static_cast<std::int64_t>(A.rows);
  return nullptr;
}

Report plan(const SparseMatrix& A, const Options& options) {
  return planRun(A, options, defaultCostModel(korin::kernels::processorLevel())).report;
}

}  // namespace zeph
