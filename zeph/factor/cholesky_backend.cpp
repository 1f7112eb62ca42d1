#include "zeph/factor/cholesky_backend.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/factorise.h"
#include "sparse/numeric/solve.h"
#include "sparse/symbolic/analyse.h"
#include "sparse/symbolic/placement.h"
#include "zeph/error.h"
#include "zeph/factor.h"
#include "zeph/factor/trust.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

namespace sparse = korin::sparse;
using sparse::Index;
using sparse::Offset;
using std::size_t;

// Right-hand sides that one call of the engine gets: bounds what is scaled and polled in one go.
constexpr size_t kColumnsAtOnce = 256;
// The same where copies are kept for refinement.
constexpr size_t kRefinedAtOnce = 32;
// Solutions with a larger backward error are refined, so often at most (Skeel 1980: one step does).
constexpr double kFineBackwardError = 8.0 * std::numeric_limits<double>::epsilon();
constexpr int kMostRefinements = 2;
// Rows whose terms are all so small that they lose digits to underflow are not judged.
constexpr double kLeastMagnitude =
    std::numeric_limits<double>::min() / std::numeric_limits<double>::epsilon();

sparse::Ordering engineOrdering(Ordering ordering) {
  switch (ordering) {
    case Ordering::MinimumDegree:
      return sparse::Ordering::MinimumDegree;
    case Ordering::NestedDissection:
      return sparse::Ordering::NestedDissection;
    case Ordering::Natural:
      return sparse::Ordering::Natural;
    case Ordering::Given:
      return sparse::Ordering::Given;
    case Ordering::Automatic:
      break;
  }
  return sparse::Ordering::Automatic;
}

Ordering publicOrdering(sparse::Ordering ordering) {
  switch (ordering) {
    case sparse::Ordering::MinimumDegree:
      return Ordering::MinimumDegree;
    case sparse::Ordering::NestedDissection:
      return Ordering::NestedDissection;
    case sparse::Ordering::Natural:
      return Ordering::Natural;
    case sparse::Ordering::Given:
      return Ordering::Given;
    case sparse::Ordering::Automatic:
      break;
  }
  return Ordering::Automatic;
}

std::vector<Index> checkedPermutation(const Options& options, size_t n) {
  if (options.ordering != Ordering::Given) return {};
  if (options.permutation.size() != n) {
    throw Error(ErrorKind::Unfit, "the permutation has " +
                                      std::to_string(options.permutation.size()) + " entries for " +
                                      std::to_string(n) + " rows");
  }
  std::vector<Index> permutation(n);
  for (size_t k = 0; k < n; ++k) {
    const std::int64_t at = options.permutation[k];
    // What does not fit becomes an index that the analysis refuses, by its place in the list.
    permutation[k] =
        at < 0 || at >= static_cast<std::int64_t>(n) ? Index{-1} : static_cast<Index>(at);
  }
  return permutation;
}

// Entries of A from which on what ordering and analysis leave behind in the heap, in pieces that
// the factor's large arrays do not fit into, is worth going through it.
constexpr size_t kWorthTrimming = size_t{1} << 18;

}  // namespace

CholeskyBackend::CholeskyBackend(SymmetricInput input, const Options& options, Watch& watch)
    : options_(options), input_(std::move(input)) {
  if (!options.scratchFolder.empty()) requireScratchFolder(options.scratchFolder);
  watch.begin("ordering", 0.0);
  const StopWatch clock;
  const std::vector<Index> permutation =
      checkedPermutation(options, static_cast<size_t>(input_.lower.cols));
  sparse::AnalysisOptions analysis;
  analysis.ordering = engineOrdering(options.ordering);
  analysis.permutation = permutation.data();
  analysis.room = [&](double bytes) { requireToAnalyse(input_.source, bytes); };
  try {
    symbolic_ = sparse::analyse(input_.lower.view(), analysis);
  } catch (const std::invalid_argument& e) {
    throw Error(ErrorKind::Unfit, e.what());
  }
  // Their places, and where each entry of the input goes; and what is made on the way.
  requireToAnalyse(input_.source, 8.0 * static_cast<double>(input_.lower.row.size()) +
                                      20.0 * static_cast<double>(symbolic_.n));
  entries_ = sparse::place(symbolic_, input_.lower.view(), &input_.slots);
  input_.lower = {};
  if (entries_.position.size() > kWorthTrimming) returnFreeMemory();
  placeOfRow_.resize(static_cast<size_t>(symbolic_.n));
  for (Index k = 0; k < symbolic_.n; ++k) placeOfRow_[symbolic_.permutation[k]] = k;
  secondsOrdering_ = symbolic_.secondsOrdering;
  secondsAnalysis_ = clock.seconds() - secondsOrdering_;
  inFile_ = goesIntoFile();
}

bool CholeskyBackend::goesIntoFile() const {
  if (options_.scratchFolder.empty()) return false;
  const double numbers = numberBytes();
  const double beside = std::max(sparse::frontMemory(symbolic_, threads()),
                                 sparse::inverseMemory(symbolic_, threads()) + bytesToCheck());
  return !fitsMemory(numbers + beside, options_.memoryLimit, bytes() - numbers);
}

int CholeskyBackend::threads() const {
  return threadCount(options_);
}

// Sums the values of the input's entries at their places in entries_, scaled.
void CholeskyBackend::fill(const double* values, size_t step, Symmetric symmetric) {
  const NamedColumns columns{
      symbolic_.n, entries_.start.data(), [this](Index c, Offset p) {
        const Index row = symbolic_.rowsOf(symbolic_.groupOf[c])[entries_.position[p]];
        const auto [low, high] = std::minmax(symbolic_.permutation[c], symbolic_.permutation[row]);
        return std::make_pair(high, low);
      }};
  std::vector<double>& a = entries_.value;
  a.resize(entries_.position.size());
  // The panels, which have room for all of A and no numbers to lose, take the other triangle.
  std::vector<double> room(symmetric == Symmetric::Checked && inFile_ ? a.size() : 0);
  double* const upper = symmetric != Symmetric::Checked ? nullptr
                        : inFile_                       ? room.data()
                                                        : panels_.get();
  const std::string against = sumValues(input_, columns, values, step, a.data(), upper);
  if (!against.empty()) {
    throw Error(ErrorKind::Unfit, against + "; the Cholesky route needs a symmetric matrix");
  }
  std::vector<double> diagonal(static_cast<size_t>(symbolic_.n), 0.0);
  forEachDiagonalEntry([&](Index i, double value) { diagonal[i] = value; });
  const auto bad =
      std::find_if_not(diagonal.begin(), diagonal.end(), [](double d) { return d > 0.0; });
  if (bad != diagonal.end()) {
    throw notPositiveDefinite(input_.source, input_.indexBase, bad - diagonal.begin());
  }
  exponent_ = scalingExponents(diagonal);
  if (exponent_.empty()) return;
  for (Index c = 0; c < symbolic_.n; ++c) {
    for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
      const auto [row, col] = columns.name(c, p);
      a[p] = std::ldexp(a[p], exponent_[row] + exponent_[col]);
    }
  }
}

void CholeskyBackend::factorise(const SparseMatrix& A, Watch& watch) {
  factorise(A.entries.empty() ? nullptr : &A.entries.front().value, sizeof(Entry) / sizeof(double),
            Symmetric::Known, watch);
}

void CholeskyBackend::factorise(const double* values, size_t step, Symmetric symmetric,
                                Watch& watch) {
  const StopWatch clock;
  const auto storage = static_cast<size_t>(symbolic_.storage());
  const double own = hasPanels() ? 0.0 : numberBytes();
  const bool besideFile = inFile_ && symmetric == Symmetric::Checked;
  const double upper =
      besideFile ? sizeof(double) * static_cast<double>(entries_.position.size()) : 0.0;
  const auto fronts = [&](int threads, size_t keptFrom) {
    return inFile_ ? sparse::frontMemory(symbolic_, threads, {true, keptFrom})
                   : sparse::frontMemoryInAnyOrder(symbolic_, threads);
  };
  const auto need = [&](int threads, size_t keptFrom) {
    return own + upper + fronts(threads, keptFrom);
  };
  const Means means = choose(need, bytes() - own);
  const char* const how = inFile_ ? " with its factor in a scratch file" : "";
  requireRoom("factorising " + input_.source + how, means.bytes, bytes() - own);
  if (inFile_ && !file_) {
    // Triangles of what would wait in memory.
    const bool keeps = means.thrift.keptFrom != sparse::kKeepNothing;
    const int apart = means.thrift.together ? 1 : threads();
    const double kept = keeps ? 0.5 * fronts(apart, sparse::kKeepNothing) : 0.0;
    file_ = makeScratchFile(options_.scratchFolder, storage, kept, "the factor of " + input_.source,
                            watch.poll());
  } else if (!hasPanels()) {
    panels_ = korin::kernels::rawPanels(storage);
  }
  fill(values, step, symmetric);
  double work = 0.0;
  for (Index g = 0; g < symbolic_.groups(); ++g) work += sparse::frontWork(symbolic_, g);
  watch.begin("factorising", work);
  Index failed = -1;
  {
    korin::kernels::Team team(threads(), watch.poll());
    failed = onDisk([&] { return factoriseInto(means.thrift, team, watch.meter()); });
  }
  if (failed >= 0) throw notPositiveDefinite(input_.source, input_.indexBase, failed);
  condition_ = 0.0;
  keep(nullptr);
  if (!(smallestPivotShare_ > kSingularPivotShare)) throw singular(input_.source);
  secondsFactorisation_ = clock.seconds();
}

// The engine's factorisation, after which the smallest pivot share is known too.
Index CholeskyBackend::factoriseInto(sparse::Thrift thrift, korin::kernels::Team& team,
                                     sparse::Meter* meter) {
  smallestPivotShare_ = 1.0;
  if (!inFile_) {
    const Index failed = sparse::factorise(symbolic_, entries_, panels_.get(), team, meter, thrift);
    if (failed >= 0) return failed;
    for (Index g = 0; g < symbolic_.groups(); ++g) {
      const double share = smallestPivotShare(g, &panels_[symbolic_.panelStart[g]]);
      smallestPivotShare_ = std::min(smallestPivotShare_, share);
    }
    return failed;
  }
  file_->clear();
  std::mutex mutex;
  const sparse::PanelStore store = [&](Index g, const double* panel) {
    file_->write(static_cast<size_t>(symbolic_.panelStart[g]), panel,
                 static_cast<size_t>(symbolic_.panelSize(g)));
    const double share = smallestPivotShare(g, panel);
    const std::lock_guard<std::mutex> lock(mutex);
    smallestPivotShare_ = std::min(smallestPivotShare_, share);
  };
  return sparse::factorise(symbolic_, entries_, store, factor(thrift), team, meter);
}

// The least l(k,k)² / a(k,k) of a group: what elimination leaves of a diagonal entry.
double CholeskyBackend::smallestPivotShare(Index g, const double* panel) const {
  double least = 1.0;
  for (Index c = symbolic_.firstColumn[g]; c < symbolic_.firstColumn[g + 1]; ++c) {
    const Index own = c - symbolic_.firstColumn[g];
    const double l = panel[Offset{own} * (symbolic_.height(g) + 1)];
    for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
      if (entries_.position[p] == own) least = std::min(least, l * l / entries_.value[p]);
    }
  }
  return least;
}

void CholeskyBackend::refactorise(const double* values, size_t, Watch& watch) {
  factorise(values, 1, Symmetric::Checked, watch);
}

Report CholeskyBackend::report() const {
  Report r = predicted();
  r.secondsFactorisation = secondsFactorisation_;
  r.secondsInverse = 0.0;
  r.conditionEstimate = condition_;
  return r;
}

double CholeskyBackend::bytes() const {
  const sparse::MemoryPrediction memory = sparse::predictMemory(symbolic_);
  return numberBytes() + memory.structure +
         static_cast<double>(entries_.position.size()) * sizeof(Index) +
         static_cast<double>(symbolic_.n) * (sizeof(Offset) + sizeof(Index)) +
         static_cast<double>(input_.slots.bytes());
}

// What bytes() is with the panels there or in memory.
double CholeskyBackend::bytesWith(bool inFile) const {
  return bytes() + (inFile_ ? panelBytes() : 0.0) - (inFile ? panelBytes() : 0.0);
}

double CholeskyBackend::numberBytes() const {
  const double values = sizeof(double) * static_cast<double>(entries_.position.size());
  return values + (inFile_ ? 0.0 : panelBytes());
}

void CholeskyBackend::requireRoom(const std::string& what, double beside, double held) const {
  try {
    requireBytes(what, beside, options_.memoryLimit, held);
    if (inFile_) requireBytes(what, beside + windowBytes(1), 0.0);
  } catch (const Error& e) {
    const bool helps = options_.scratchFolder.empty() &&
                       fitsMemory(beside - panelBytes(), options_.memoryLimit, held);
    if (!helps) throw;
    throw Error(e.kind(), std::string(e.what()) +
                              "; given a folder on a disk (--scratch, Options::scratchFolder), " +
                              memoryText(panelBytes()) + " of the factor go into a file");
  }
}

double CholeskyBackend::bytesToFactorise(int apart) const {
  return bytesWith(false) + sparse::frontMemory(symbolic_, apart);
}

double CholeskyBackend::bytesToInvert(int apart) const {
  return bytesWith(false) + bytesToCheck() + sparse::inverseMemory(symbolic_, apart);
}

double CholeskyBackend::bytesToFactoriseInFile() const {
  return bytesWith(true) + sparse::frontMemory(symbolic_, 1, {true, sparse::kLeastKept});
}

double CholeskyBackend::bytesToCheck() const {
  return sparse::identityMemory(symbolic_, entries_) + vectors(1.0);
}

double CholeskyBackend::bytesToInvertInFile() const {
  return bytesWith(true) + bytesToCheck() + sparse::inverseMemory(symbolic_, 1, sparse::kLeastKept);
}

CholeskyBackend::Means CholeskyBackend::meansToInvert(const std::string& what, double beside,
                                                      double there) const {
  const auto need = [&](int threads, size_t keptFrom) {
    return beside + sparse::inverseMemory(symbolic_, threads, keptFrom);
  };
  const double held = bytes() + there;
  const Means means = choose(need, held);
  requireRoom(what + " " + input_.source, means.bytes, held);
  return means;
}

Report CholeskyBackend::predicted() const {
  Report r;
  r.route = Route::Cholesky;
  r.reason = reason_;
  r.ordering = publicOrdering(symbolic_.ordering);
  r.unknowns = symbolic_.n;
  r.groups = symbolic_.compressedNodes;
  r.entriesOfA = 2 * entries_.start.back() - symbolic_.n;  // no row is without its diagonal entry
  r.entriesOfL = symbolic_.entries;
  r.operations = symbolic_.operations;
  r.bytes = bytes();
  r.scratchBytes = inFile_ ? panelBytes() : 0.0;
  r.secondsOrdering = secondsOrdering_;
  r.secondsAnalysis = secondsAnalysis_;
  r.threads = threads();
  return r;
}

void CholeskyBackend::scaleRows(size_t count, double* x) const {
  if (exponent_.empty()) return;
  for (size_t k = 0; k < count; ++k) {
    double* column = x + k * exponent_.size();
    for (size_t i = 0; i < exponent_.size(); ++i) column[i] = std::ldexp(column[i], exponent_[i]);
  }
}

// r = b - S x, and the largest |r(i)| / (|S| |x| + |b|)(i).
double CholeskyBackend::residual(const double* b, const double* x, double* r) const {
  const auto n = static_cast<size_t>(symbolic_.n);
  const std::vector<Index>& permutation = symbolic_.permutation;
  // In the order of L, where the rows of a column are near each other.
  std::vector<double> known(n), left(n), size(n);
  for (size_t k = 0; k < n; ++k) {
    known[k] = x[permutation[k]];
    left[k] = b[permutation[k]];
    size[k] = std::abs(left[k]);
  }
  for (Index c = 0; c < symbolic_.n; ++c) {
    const Index* rows = symbolic_.rowsOf(symbolic_.groupOf[c]);
    const double xc = known[c];
    double sum = 0.0, magnitude = 0.0;
    for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
      const Index i = rows[entries_.position[p]];
      const double a = entries_.value[p];
      sum += a * known[i];
      magnitude += std::abs(a * known[i]);
      if (i == c) continue;
      left[i] -= a * xc;
      size[i] += std::abs(a * xc);
    }
    left[c] -= sum;
    size[c] += magnitude;
  }
  double worst = 0.0;
  for (size_t k = 0; k < n; ++k) {
    r[permutation[k]] = left[k];
    if (size[k] > kLeastMagnitude) worst = std::max(worst, std::abs(left[k]) / size[k]);
  }
  return worst;
}

// Solves S X = B in place; each column on its own is improved while that makes it better.
double CholeskyBackend::solveAndRefine(size_t count, double* x, korin::kernels::Team& team) const {
  const auto n = static_cast<size_t>(symbolic_.n);
  const std::vector<double> b(x, x + count * n);
  std::vector<double> r(count * n), error(count);
  sparse::solve(symbolic_, factor(), static_cast<Index>(count), x, team);
  team.forEach(static_cast<int>(count), [&](int k) {
    const size_t at = static_cast<size_t>(k) * n;
    error[k] = residual(b.data() + at, x + at, r.data() + at);
  });
  std::vector<size_t> poor;
  for (size_t k = 0; k < count; ++k) {
    if (error[k] > kFineBackwardError) poor.push_back(k);
  }
  for (int step = 0; step < kMostRefinements && !poor.empty(); ++step) {
    std::vector<double> better(poor.size() * n);
    for (size_t k = 0; k < poor.size(); ++k) {
      std::copy_n(r.data() + poor[k] * n, n, better.data() + k * n);
    }
    sparse::solve(symbolic_, factor(), static_cast<Index>(poor.size()), better.data(), team);
    std::vector<unsigned char> again(poor.size());
    team.forEach(static_cast<int>(poor.size()), [&](int k) {
      const size_t from = poor[k] * n;
      double* own = better.data() + static_cast<size_t>(k) * n;
      for (size_t i = 0; i < n; ++i) own[i] += x[from + i];
      const double reached = residual(b.data() + from, own, r.data() + from);
      if (!(reached < error[poor[k]])) return;
      again[k] = reached > kFineBackwardError;
      error[poor[k]] = reached;
      std::copy_n(own, n, x + from);
    });
    std::vector<size_t> left;
    for (size_t k = 0; k < poor.size(); ++k) {
      if (again[k] != 0) left.push_back(poor[k]);
    }
    poor = std::move(left);
  }
  return *std::max_element(error.begin(), error.end());
}

SolveCheck CholeskyBackend::solve(size_t count, double* x, Watch& watch) const {
  requireTrust(watch);
  // Right-hand sides, residuals and better solutions; and what solves or residuals need.
  const auto need = [this](size_t columns) {
    const double each = std::min(threads(), static_cast<int>(columns));
    return vectors(3.0 * static_cast<double>(columns)) +
           std::max(sparse::solveMemory(symbolic_, static_cast<Index>(columns), threads()),
                    vectors(3.0 * each));
  };
  const size_t most = columnsAtOnce("solving with", std::min(count, kRefinedAtOnce), need);
  const std::shared_ptr<const Weakness> weak = weakness(watch);
  watch.begin("solving", 0.0);
  korin::kernels::Team team(threads(), watch.poll());
  const auto n = static_cast<size_t>(symbolic_.n);
  double worst = 0.0;
  for (size_t first = 0; first < count; first += most) {
    const size_t some = std::min(most, count - first);
    double* block = x + first * n;
    scaleRows(some, block);
    worst = std::max(worst, solveAndRefine(some, block, team));
    scaleRows(some, block);
  }
  if (!std::all_of(x, x + count * n, [](double v) { return std::isfinite(v); })) {
    throw Error(ErrorKind::Unfit,
                "the solution of " + input_.source + " overflows; scale the equations");
  }
  const double error = std::max(worst, std::numeric_limits<double>::epsilon());
  // What is no larger than one off a diagonal of ones adds up to about the length of a row.
  const double row = 2.0 * static_cast<double>(entries_.start.back()) / static_cast<double>(n);
  return {worst, {error * row * weak->trace, weak->weakest}};
}

double CholeskyBackend::unscaled(double z, std::int64_t row, std::int64_t col) const {
  const double value = std::ldexp(z, exponent(row) + exponent(col));
  if (std::isfinite(value)) return value;
  throw Error(ErrorKind::Unfit,
              "entry " +
                  position(input_.indexBase, static_cast<size_t>(row), static_cast<size_t>(col)) +
                  " of the inverse of " + input_.source + " overflows; scale the equations",
              row);
}

InverseCheck CholeskyBackend::variances(double* diagonal, Watch& watch) const {
  const Means means = meansToInvert("inverting", bytesToCheck());
  watch.begin("inverting", sparse::inverseWork(symbolic_, nullptr));
  InverseCheck check;
  double residualNorm = std::numeric_limits<double>::quiet_NaN();
  {
    korin::kernels::Team team(threads(), watch.poll());
    check.identityResidual = onDisk([&] {
      return sparse::variances(symbolic_, entries_, factor(means.thrift), diagonal, team,
                               watch.meter(), &residualNorm);
    });
  }
  const Doubt doubt = judge(residualNorm, [&](Index i) { return diagonal[i]; });
  check.relativeErrorEstimate = doubt.error;
  check.worstUnknown = doubt.unknown;
  // The trace of the inverse scaled to a diagonal of A of ones: at least its norm, and close to it
  // where A is nearly singular.
  const auto weak = std::make_shared<Weakness>();
  weak->share.resize(static_cast<size_t>(symbolic_.n));
  forEachDiagonalEntry(
      [&](Index i, double a) { check.condition += weak->share[i] = a * diagonal[i]; });
  weak->trace = check.condition;
  weak->weakest = doubt.unknown;
  keep(weak);
  for (Index i = 0; i < symbolic_.n; ++i) diagonal[i] = unscaled(diagonal[i], i, i);
  return check;
}

double CholeskyBackend::residualNorm(const double* z) const {
  std::vector<double> sum(static_cast<size_t>(symbolic_.n), 0.0);
  for (Index g = 0; g < symbolic_.groups(); ++g) {
    const Index* rows = symbolic_.rowsOf(g);
    for (Index c = symbolic_.firstColumn[g]; c < symbolic_.firstColumn[g + 1]; ++c) {
      const double* column =
          z + symbolic_.panelStart[g] + Offset{c - symbolic_.firstColumn[g]} * symbolic_.height(g);
      for (Offset p = entries_.start[c]; p < entries_.start[c + 1]; ++p) {
        const double product = entries_.value[p] * column[entries_.position[p]];
        sum[c] += product;
        if (rows[entries_.position[p]] != c) sum[rows[entries_.position[p]]] += product;
      }
    }
  }
  double squares = 0.0;
  for (const double s : sum) squares += (s - 1.0) * (s - 1.0);
  return std::sqrt(squares);
}

Doubt CholeskyBackend::selectedInverse(std::int64_t* colStarts, std::int64_t* rowIndices,
                                       double* values, Watch& watch) const {
  const auto n = static_cast<size_t>(symbolic_.n);
  std::fill_n(colStarts, n + 1, 0);
  // visit(row, col, place) for the entries of L's pattern in A's numbers, in either triangle.
  const auto forEachEntry = [&](const auto& visit) {
    for (Index g = 0; g < symbolic_.groups(); ++g) {
      const Index* rows = symbolic_.rowsOf(g);
      for (Index c = 0; c < symbolic_.width(g); ++c) {
        const Index col = symbolic_.permutation[rows[c]];
        const Offset start = symbolic_.panelStart[g] + Offset{c} * symbolic_.height(g);
        for (Index k = c; k < symbolic_.height(g); ++k) {
          visit(symbolic_.permutation[rows[k]], col, start + k);
        }
      }
    }
  };
  forEachEntry([&](Index row, Index col, Offset) {
    ++colStarts[col + 1];
    if (row != col) ++colStarts[row + 1];
  });
  std::partial_sum(colStarts, colStarts + n + 1, colStarts);
  if (rowIndices == nullptr || values == nullptr) return {};

  const auto count = static_cast<size_t>(colStarts[n]);
  const auto storage = static_cast<size_t>(symbolic_.storage());
  // What takes most is to find each entry's place, or to compute it.
  constexpr double kPlace = sizeof(Offset), kToFind = sizeof(Index) + sizeof(Offset);
  const double places = kPlace * static_cast<double>(count);
  requireRoom("the selected inverse of " + input_.source,
              places + kToFind * static_cast<double>(count) + vectors(1.0), bytes());
  const Means means = meansToInvert("the selected inverse of", places + panelBytes());
  // Columns of a symmetric pattern in any order, then dealt out by ascending column: rows ascend.
  std::vector<Offset> place(count);
  {
    std::vector<Index> neighbour(count);
    std::vector<Offset> unordered(count), next(colStarts, colStarts + n);
    forEachEntry([&](Index row, Index col, Offset p) {
      neighbour[next[col]] = row;
      unordered[next[col]++] = p;
      if (row == col) return;
      neighbour[next[row]] = col;
      unordered[next[row]++] = p;
    });
    next.assign(colStarts, colStarts + n);
    for (size_t col = 0; col < n; ++col) {
      for (Offset p = colStarts[col]; p < colStarts[col + 1]; ++p) {
        const Offset at = next[neighbour[p]]++;
        rowIndices[at] = static_cast<std::int64_t>(col);
        place[at] = unordered[p];
      }
    }
  }
  watch.begin("inverting", sparse::inverseWork(symbolic_, nullptr));
  const korin::kernels::PanelStorage z = korin::kernels::rawPanels(storage);
  {
    korin::kernels::Team team(threads(), watch.poll());
    sparse::selectedInverse(symbolic_, factor(means.thrift), z.get(), team, watch.meter());
  }
  const Doubt doubt = judge(residualNorm(z.get()), [&](Index i) {
    const Index k = placeOfRow_[i], g = symbolic_.groupOf[k];
    return z[symbolic_.panelStart[g] +
             Offset{k - symbolic_.firstColumn[g]} * (symbolic_.height(g) + 1)];
  });
  for (size_t col = 0; col < n; ++col) {
    for (Offset p = colStarts[col]; p < colStarts[col + 1]; ++p) {
      values[p] = unscaled(z[place[p]], rowIndices[p], static_cast<std::int64_t>(col));
    }
  }
  return doubt;
}

double CholeskyBackend::logDeterminant() const {
  const double exponents = std::accumulate(exponent_.begin(), exponent_.end(), 0.0);
  return sparse::logDeterminant(symbolic_, factor()) - 2.0 * exponents * std::log(2.0);
}

Doubt CholeskyBackend::colour(size_t count, double* x, Watch& watch) const {
  const Doubt doubt = determinantDoubt(watch);
  const auto need = [this](size_t columns) {
    return sparse::solveMemory(symbolic_, static_cast<Index>(columns), threads());
  };
  const size_t most = columnsAtOnce("sampling with", std::min(count, kColumnsAtOnce), need);
  watch.begin("sampling", 0.0);
  korin::kernels::Team team(threads(), watch.poll());
  for (size_t first = 0; first < count; first += most) {
    const size_t some = std::min(most, count - first);
    double* block = x + first * static_cast<size_t>(symbolic_.n);
    sparse::solveTransposed(symbolic_, factor(), static_cast<Index>(some), block, team);
    scaleRows(some, block);
  }
  return doubt;
}

SparseMatrix CholeskyBackend::lower(std::vector<std::uint32_t>& permutation, Watch& watch) const {
  requireTrust(watch);
  SparseMatrix L;
  L.source = "the factor of " + input_.source;
  L.indexBase = input_.indexBase;
  L.rows = L.cols = static_cast<size_t>(symbolic_.n);
  L.triangular = true;
  // Columns are moved by the analysis in the natural order too, but only so far that a factor in
  // A's numbers stays triangular.
  const bool natural = options_.ordering == Ordering::Natural;
  permutation.clear();
  if (!natural) permutation.assign(symbolic_.permutation.begin(), symbolic_.permutation.end());
  const auto number = [&](Index k) {
    return static_cast<std::uint32_t>(natural ? symbolic_.permutation[k] : k);
  };
  requireBytes("the entries of the factor of " + input_.source,
               sizeof(Entry) * static_cast<double>(symbolic_.entries), 0.0);
  L.entries.reserve(static_cast<size_t>(symbolic_.entries));
  const sparse::FactorPanels panels = factor();
  for (Index g = 0; g < symbolic_.groups(); ++g) {
    const Index* rows = symbolic_.rowsOf(g);
    for (Index c = 0; c < symbolic_.width(g); ++c) {
      const double* column = panels.of(symbolic_, g) + Offset{c} * symbolic_.height(g);
      for (Index k = c; k < symbolic_.height(g); ++k) {
        if (column[k] == 0.0) continue;  // also what joins columns of unlike patterns
        const double value = std::ldexp(column[k], -exponent(symbolic_.permutation[rows[k]]));
        L.entries.push_back({number(rows[k]), number(rows[c]), value});
      }
    }
    panels.passedForward(symbolic_, g);
  }
  return L;
}

SparseMatrix CholeskyBackend::symmetricMatrix() const {
  SparseMatrix m;
  m.rows = m.cols = static_cast<size_t>(symbolic_.n);
  m.symmetry = Symmetry::Symmetric;
  for (Index k = 0; k < symbolic_.n; ++k) {
    const Index* rows = symbolic_.rowsOf(symbolic_.groupOf[k]);
    for (Offset p = entries_.start[k]; p < entries_.start[k + 1]; ++p) {
      const Index i = symbolic_.permutation[k];
      const Index j = symbolic_.permutation[rows[entries_.position[p]]];
      m.entries.push_back({static_cast<std::uint32_t>(std::max(i, j)),
                           static_cast<std::uint32_t>(std::min(i, j)),
                           std::ldexp(entries_.value[p], -exponent(i) - exponent(j))});
    }
  }
  return m;
}

}  // namespace zeph
