#include "zeph/factor/lu_backend.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "kernels/team.h"
#include "solver/assembly/compressed_columns.h"
#include "solver/suitesparse/lu_factors.h"
#include "sparse/inverse/lu_inverse.h"
#include "sparse/inverse/lu_solve.h"
#include "zeph/checks/memory.h"
#include "zeph/error.h"
#include "zeph/factor.h"
#include "zeph/factor/trust.h"
#include "zeph/general/condition.h"
#include "zeph/general/lu_error.h"
#include "zeph/general/route.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

using std::size_t;

// Solutions with a larger componentwise backward error than this are refined again, so often.
constexpr double kFineBackwardError = 8.0 * std::numeric_limits<double>::epsilon();
constexpr int kMoreRefinements = 2;

// Errors of the factors, relative to the magnitudes that they were summed from, as the diagonal of
// the inverse shows them.
constexpr double kLuErrors = 4.0 * std::numeric_limits<double>::epsilon();

// Vectors of n numbers that a solution with its refinement is made with.
constexpr double kVectorsOfSolution = 6.0;
// And those that the error of a diagonal is estimated with.
constexpr double kVectorsOfEstimate = 16.0;
// Columns of a block of the inverse whose entries are listed at once.
constexpr size_t kColumnsListed = 64;

// A prepared matrix as UMFPACK takes it.
struct CompressedColumns {
  explicit CompressedColumns(const PreparedMatrix& m)
      : n(static_cast<int>(m.size())), starts(m.size() + 1, 0), rows(m.A.nz()), values(m.A.nz()) {
    zeph_solver::fillCompressedColumns(m.A, starts.data(), rows.data(), values.data());
  }
  int n;
  std::vector<int> starts, rows;
  std::vector<double> values;
};

// Bytes that factorising by LU takes without any fill: columns, the same with a full diagonal, and
// factors of as many entries.
double bytesWithoutFill(const PreparedMatrix& m) {
  return 3.0 * (sizeof(int) + sizeof(double)) * static_cast<double>(m.A.nz());
}

// -1 for an odd permutation.
int signOf(const std::vector<int>& permutation) {
  std::vector<bool> seen(permutation.size(), false);
  int sign = 1;
  for (size_t k = 0; k < permutation.size(); ++k) {
    size_t length = 0;
    for (size_t at = k; !seen[at]; at = static_cast<size_t>(permutation[at]), ++length) {
      seen[at] = true;
    }
    if (length != 0 && length % 2 == 0) sign = -sign;
  }
  return sign;
}

class LuBackend final : public Backend {
 public:
  LuBackend(const SparseMatrix& A, std::string reason, const Options& options)
      : options_(options), reason_(std::move(reason)), A_(A) {}

  void factorise(Watch& watch) {
    watch.begin("factorising by LU", 0.0);
    const StopWatch clock;
    factors_ = {};
    prepared_ = prepare(A_, Route::Lu);
    const std::string what = "factorising " + A_.source + " by LU";
    requireBytes(what + ", before any fill-in,", bytesWithoutFill(prepared_), options_.memoryLimit,
                 bytes());
    const CompressedColumns c(prepared_);
    const double columns = (sizeof(int) + sizeof(double)) * static_cast<double>(c.rows.size());
    factors_ = zeph_solver::luFactors(
        c.n, c.n, c.starts.data(), c.rows.data(), c.values.data(), [&](double held, double more) {
          requireBytes(what, more, options_.memoryLimit, bytes() + columns + held);
        });
    if (!factors_.invertible) {
      throw Error(ErrorKind::Singular, A_.source +
                                           " is singular: the LU factorisation met a zero pivot; "
                                           "the matrix has no inverse");
    }
    const auto apply = [this](const double* b, double* x) { luSolve(factors_, b, x); };
    condition_ = zeph::estimateCondition(prepared_, apply, [this](const double* b, double* x) {
      luSolveTransposed(factors_, b, x);
    });
    if (!(condition_ < kSingularCondition)) throw singular(A_.source);
    seconds_ = clock.seconds();
  }

  Report report() const override {
    Report r;
    r.route = options_.route == Route::LuSolves ? Route::LuSolves : Route::Lu;
    r.reason = reason_;
    r.unknowns = r.groups = static_cast<std::int64_t>(prepared_.size());
    r.entriesOfA = static_cast<std::int64_t>(prepared_.A.nz());
    if (factors_.n > 0) {
      r.entriesOfL = entriesOfFactors();
      const auto length = [](const korin::sparse::Columns& c, int k) {
        return static_cast<double>(c.start[k + 1] - c.start[k]);
      };
      for (int k = 0; k < factors_.n; ++k) {
        r.operations += length(factors_.lower, k) * length(factors_.upper, k);
      }
    }
    r.bytes = bytes();
    r.secondsFactorisation = seconds_;
    r.conditionEstimate = condition_;
    return r;
  }

  void refactorise(const double* values, size_t count, Watch& watch) override {
    for (size_t k = 0; k < count; ++k) A_.entries[k].value = values[k];
    factorise(watch);
  }

  SolveCheck solve(size_t count, double* x, Watch& watch) const override {
    watch.begin("solving", 0.0);
    const size_t n = prepared_.size();
    std::vector<double> error(count);
    forEachColumn("solving with", count, watch, [&](size_t k) {
      double* column = x + k * n;
      std::vector<double> b(column, column + n);
      const int exponent = scaleDown(b);
      std::vector<double> y = solved(b);
      error[k] = componentwiseError(prepared_, y.data(), b.data());
      for (int step = 0; step < kMoreRefinements && error[k] > kFineBackwardError; ++step) {
        std::vector<double> better = refined(b, y);
        const double reached = componentwiseError(prepared_, better.data(), b.data());
        if (!(reached < error[k])) break;
        error[k] = reached;
        y = std::move(better);
      }
      for (size_t i = 0; i < n; ++i) {
        column[i] = std::ldexp(y[i], prepared_.scaling.col[i] + exponent);
      }
      if (!std::all_of(column, column + n, [](double v) { return std::isfinite(v); })) {
        throw Error(ErrorKind::Unfit,
                    "the solution of " + A_.source + " overflows; scale the equations");
      }
    });
    const double worst = error.empty() ? 0.0 : *std::max_element(error.begin(), error.end());
    return {worst, conditioned(worst)};
  }

  InverseCheck variances(double* diagonal, Watch& watch) const override {
    const size_t n = prepared_.size();
    watch.begin("inverting", 0.0);
    const auto apply = [this](const double* b, double* x) { luSolve(factors_, b, x); };
    const auto require = [this](double held, double more) {
      requireBytes("inverting " + A_.source + " by LU", more, options_.memoryLimit, bytes() + held);
    };
    require(0.0, kVectorsOfEstimate * sizeof(double) * static_cast<double>(n));
    if (options_.route == Route::LuSolves) {
      forEachColumn("inverting", n, watch, [&](size_t i) { diagonal[i] = solved(unit(i))[i]; });
    } else {
      korin::sparse::luInverseDiagonal(factors_, diagonal, require);
    }
    ZtVector d(n);
    std::copy_n(diagonal, n, d.data);
    verifyInverseDiagonal(prepared_, apply, d, condition_);
    const InverseCheck check = judged(diagonal, watch);
    for (size_t i = 0; i < n; ++i) diagonal[i] = unscaled(diagonal[i], i, i);
    return check;
  }

  Doubt selectedInverse(std::int64_t*, std::int64_t*, double*, Watch&) const override {
    throw onlyCholesky("a selected inverse");
  }

  Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count, double* values,
                   Watch& watch, double there) const override {
    if (count == 0) return {};
    watch.begin("solving for columns of the inverse", 0.0);
    // The order, the columns, how much cancelled, and whom the estimate of error asks.
    const double lists = 4.0 * sizeof(double) * static_cast<double>(count);
    requireBytes("covariances of " + A_.source, lists, options_.memoryLimit, bytes() + there);
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), size_t{0});
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return cols[a] < cols[b]; });
    std::vector<size_t> first;  // of the entries of each column asked for
    for (size_t k = 0; k < count; ++k) {
      if (k == 0 || cols[order[k]] != cols[order[k - 1]]) first.push_back(k);
    }
    first.push_back(count);
    std::vector<double> cancelled(count, 1.0);
    const auto column = [&](size_t c) {
      const auto col = static_cast<size_t>(cols[order[first[c]]]);
      const std::vector<double> x = solved(unit(col));
      const double largest = std::abs(*std::max_element(
          x.begin(), x.end(), [](double a, double b) { return std::abs(a) < std::abs(b); }));
      for (size_t k = first[c]; k < first[c + 1]; ++k) {
        const auto row = static_cast<size_t>(rows[order[k]]);
        values[order[k]] = unscaled(x[row], row, col);
        if (row == col) cancelled[order[k]] = largest / std::abs(x[row]);
      }
    };
    forEachColumn("covariances of", first.size() - 1, watch, column, there + lists);
    Doubt doubt = conditioned(0.0, rows, count);
    const double error = doubt.error;
    for (size_t k = 0; k < count; ++k) raise(doubt, error * cancelled[k], rows[k]);
    return doubt;
  }

  Doubt covarianceBlock(const std::int64_t* indices, size_t count, double* block,
                        Watch& watch) const override {
    Doubt doubt;
    std::vector<std::int64_t> rows, cols;
    for (size_t first = 0; first < count; first += kColumnsListed) {
      rows.clear(), cols.clear();
      for (size_t j = first; j < std::min(count, first + kColumnsListed); ++j) {
        rows.insert(rows.end(), indices, indices + count);
        cols.insert(cols.end(), count, indices[j]);
      }
      const Doubt of =
          covariance(rows.data(), cols.data(), rows.size(), block + first * count, watch, 0.0);
      raise(doubt, of.error, of.unknown);
    }
    return doubt;
  }

  void errorUnits(std::vector<double>& rows, std::vector<double>& cols) const override {
    rows.clear(), cols.clear();
    for (size_t i = 0; i < prepared_.size(); ++i) {
      rows.push_back(std::ldexp(1.0, -prepared_.scaling.row[i]));
      cols.push_back(std::ldexp(1.0, -prepared_.scaling.col[i]));
    }
  }

  double logDeterminant() const override {
    double sum = 0.0, exponents = 0.0;
    for (size_t i = 0; i < prepared_.size(); ++i) {
      sum += std::log(std::abs(factors_.diagonal[i])) - std::log(std::abs(factors_.rowScale[i]));
      exponents += prepared_.scaling.row[i] + prepared_.scaling.col[i];
    }
    return sum - exponents * std::log(2.0);
  }

  int determinantSign() const override {
    int sign = signOf(factors_.rowPosition) * signOf(factors_.colPosition);
    for (size_t i = 0; i < prepared_.size(); ++i) {
      if ((factors_.diagonal[i] < 0.0) != (factors_.rowScale[i] < 0.0)) sign = -sign;
    }
    return sign;
  }

  Doubt determinantDoubt(Watch&) const override { return conditioned(0.0); }
  Doubt colour(size_t, double*, Watch&) const override { throw onlyCholesky("samples"); }
  double estimateCondition(Watch&) const override { return condition_; }

 private:
  Error onlyCholesky(const std::string& what) const {
    return Error(ErrorKind::Unfit, what + " need a symmetric positive definite matrix; " +
                                       A_.source + " was factorised by LU (" + reason_ + ")");
  }

  // Of a result with that backward error, and of the unknowns asked for, where there are any. A
  // right-hand side of random signs moves those most that are determined least; solved for where it
  // will be told.
  Doubt conditioned(double backwardError, const std::int64_t* asked = nullptr,
                    size_t count = 0) const {
    const double error =
        condition_ * std::max(backwardError, std::numeric_limits<double>::epsilon());
    if (!(error > kDoubtfulError)) return {error, asked == nullptr ? 0 : asked[0]};
    const size_t n = prepared_.size();
    std::vector<double> b(n), x(n);
    for (size_t i = 0; i < n; ++i) b[i] = probeWeight(i);
    luSolve(factors_, b.data(), x.data());
    std::vector<std::int64_t> all(asked, asked + count);
    if (asked == nullptr) {
      all.resize(n);
      std::iota(all.begin(), all.end(), std::int64_t{0});
    }
    return {error, *std::max_element(all.begin(), all.end(), [&](std::int64_t p, std::int64_t q) {
              return std::abs(x[static_cast<size_t>(p)]) < std::abs(x[static_cast<size_t>(q)]);
            })};
  }

  // Throws where rows and columns of the inverse are too large to have digits; entries that cancel
  // to nearly nothing within good ones are counted.
  InverseCheck judged(const double* diagonal, Watch& watch) const {
    korin::kernels::Team team(threadCount(options_), watch.poll());
    const LuSensitivity s = luSensitivity(factors_, team);
    InverseCheck check;
    check.condition = condition_;
    for (size_t i = 0; i < s.error.size(); ++i) {
      const double error = kLuErrors * s.error[i], own = std::abs(diagonal[i]);
      const double most = kLargestRelativeError * own;
      if (!(error <= std::max(most, kLargestRelativeError * std::sqrt(s.size[i])))) {
        throw singular(A_.source);
      }
      if (error <= most) {
        if (check.worstUnknown < 0 || error / own > check.relativeErrorEstimate) {
          check.relativeErrorEstimate = error / own;
          check.worstUnknown = static_cast<std::int64_t>(i);
        }
      } else if (check.uncertainVariances++ == 0) {
        check.firstUncertain = static_cast<std::int64_t>(i);
      }
    }
    check.relativeErrorEstimate += kLuErrors;
    return check;
  }

  std::int64_t entriesOfFactors() const {
    return factors_.n == 0 ? 0 : factors_.lower.entries() + factors_.upper.entries() + factors_.n;
  }

  // Of the factors, and of A as it was given and as it is factorised.
  double bytes() const {
    return static_cast<double>(entriesOfFactors()) * (sizeof(double) + sizeof(int)) +
           static_cast<double>(A_.entries.size() + prepared_.A.nz()) * sizeof(Entry);
  }

  // Columns of the result, solved for on as many threads as there are and memory suffices for
  // beside what is there already.
  template <class Work>
  void forEachColumn(const std::string& what, size_t count, Watch& watch, const Work& work,
                     double there = 0.0) const {
    const double each = kVectorsOfSolution * sizeof(double) * static_cast<double>(prepared_.size());
    const double held = bytes() + there;
    int threads =
        static_cast<int>(std::min<size_t>(threadCount(options_), std::max<size_t>(count, 1)));
    while (threads > 1 && !fitsMemory(threads * each, options_.memoryLimit, held)) --threads;
    requireBytes(what + " " + A_.source, each, options_.memoryLimit, held);
    korin::kernels::Team team(threads, watch.poll());
    constexpr size_t kMost = 1 << 20;
    for (size_t begin = 0; begin < count; begin += kMost) {
      team.forEach(static_cast<int>(std::min(kMost, count - begin)),
                   [&](int k) { work(begin + static_cast<size_t>(k)); });
    }
  }

  std::vector<double> unit(size_t i) const {
    std::vector<double> b(prepared_.size(), 0.0);
    b[i] = 1.0;
    return b;
  }

  // S y = b with one step of refinement.
  std::vector<double> solved(const std::vector<double>& b) const {
    const size_t n = b.size();
    std::vector<double> y(n);
    luSolve(factors_, b.data(), y.data());
    y = refined(b, y);
    judgeBackwardError(prepared_, backwardError(prepared_, y.data(), b.data()));
    return y;
  }

  // y after one step of refinement.
  std::vector<double> refined(const std::vector<double>& b, const std::vector<double>& y) const {
    std::vector<double> residual = b, better(y.size());
    prepared_.forEachEntry(
        [&](size_t row, size_t col, double value) { residual[row] -= value * y[col]; });
    luSolve(factors_, residual.data(), better.data());
    for (size_t i = 0; i < y.size(); ++i) better[i] += y[i];
    return better;
  }

  // Scales b's rows as those of S and all of it below 1 by a power of two, whose exponent is
  // returned: products of the two scales alone could overflow.
  int scaleDown(std::vector<double>& b) const {
    bool any = false;
    int largest = 0;
    for (size_t i = 0; i < b.size(); ++i) {
      if (b[i] == 0.0) continue;
      const int here = std::ilogb(b[i]) + prepared_.scaling.row[i] + 1;
      largest = any ? std::max(largest, here) : here;
      any = true;
    }
    for (size_t i = 0; i < b.size(); ++i) {
      b[i] = std::ldexp(b[i], prepared_.scaling.row[i] - largest);
    }
    return largest;
  }

  double unscaled(double z, size_t row, size_t col) const {
    const double value = std::ldexp(z, prepared_.scaling.col[row] + prepared_.scaling.row[col]);
    if (std::isfinite(value)) return value;
    throw Error(ErrorKind::Unfit,
                "entry " + position(A_.indexBase, row, col) + " of the inverse of " + A_.source +
                    " overflows; scale the equations",
                static_cast<std::int64_t>(row));
  }

  const Options& options_;
  std::string reason_;
  SparseMatrix A_;
  PreparedMatrix prepared_{};
  korin::sparse::LuFactors factors_;
  double condition_ = 0.0;
  double seconds_ = 0.0;
};

}  // namespace

std::unique_ptr<Backend> makeLuBackend(const SparseMatrix& A, const std::string& reason,
                                       const Options& options, Watch& watch) {
  auto factor = std::make_unique<LuBackend>(A, reason, options);
  factor->factorise(watch);
  return factor;
}

std::optional<LuPlan> planLu(const SparseMatrix& A) {
  const PreparedMatrix m = prepare(A, Route::Lu);
  const CompressedColumns c(m);
  const zeph_solver::LuBounds bounds =
      zeph_solver::luBounds(c.n, c.starts.data(), c.rows.data(), c.values.data());
  LuPlan plan;
  plan.entriesOfA = static_cast<double>(m.A.nz());
  plan.entriesOnDiagonal = bounds.entriesOnDiagonal;
  plan.mostEntries = bounds.mostEntries;
  const double held = static_cast<double>(A.entries.size() + m.A.nz()) * sizeof(Entry);
  plan.leastBytes = held + bytesWithoutFill(m);
  const double beside = held + bytesWithoutFill(m) / 3.0;
  plan.bytesOnDiagonal = bounds.entriesOnDiagonal > 0.0 ? beside + bounds.bytesOnDiagonal : 0.0;
  plan.mostBytes = beside + bounds.mostBytes;
  return plan;
}

bool hasLuRoute() {
  return true;
}

}  // namespace zeph
