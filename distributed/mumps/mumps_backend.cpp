#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "distributed/backend.h"
#include "distributed/condition.h"
#include "distributed/mumps/instance.h"
#include "zeph/factor.h"
#include "zeph/factor/trust.h"
#include "zeph/factor/watch.h"

namespace zeph::distributed {
namespace {

using std::size_t;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kMega = 1e6;
// Of entries that LU computes, the error beside the largest of their column is a small multiple of
// the condition number times ε.
constexpr double kLuSafety = 4.0;
// The same beside the sizes of both row and column. Of 2,600 matrices of up to 29 unknowns and
// condition numbers of up to 1e13, two had a variance that was off by more than kEntryErrors, 2.6
// and 19 times.
constexpr double kLuErrors = 4.0 * kEntryErrors;

class MumpsBackend : public DistributedBackend {
 public:
  MumpsBackend(const Communicator& comm, const Assembled& A, bool definite,
               const DistributedOptions& options)
      : comm_(comm),
        A_(A),
        definite_(definite),
        options_(options),
        mumps_(comm,
               definite        ? Form::Definite
               : A.symmetric() ? Form::Symmetric
                               : Form::Unsymmetric,
               A.source, options) {
    analyse();
    factorise();
    requireUsable();
  }

  DistributedReport report() const override { return report_; }
  void refactorise() override {
    weakness_.reset();
    factorise();
    requireUsable();
  }
  InverseCheck variances(double* diagonal) const override;
  Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                   double* values) const override;
  void solve(double* x, bool transposed) const override;
  Doubt solutionDoubt(double backwardError) const override;
  Doubt determinantDoubt() const override { return solutionDoubt(kEntryErrors); }
  double logDeterminant() const override { return mumps_.logDeterminant(); }
  int determinantSign() const override { return mumps_.realGlobal(12) < 0.0 ? -1 : 1; }

 private:
  void setPattern();
  void analyse();
  void factorise();
  void requireUsable();
  InverseCheck judge(const std::vector<Entry>& whole, const WantedEntries& z,
                     const std::vector<double>& sizes) const;

  const Communicator& comm_;
  const Assembled& A_;
  const bool definite_;
  const DistributedOptions& options_;
  mutable Instance mumps_;  // its solves change parameters
  /// Of A's entries, counted from 1; there only while MUMPS reads them.
  std::vector<MUMPS_INT> rows_, cols_;
  double condition_ = 0.0;
  mutable std::optional<Weakness> weakness_;
  DistributedReport report_;
};

// MUMPS wants arrays even where there is nothing in them.
void MumpsBackend::setPattern() {
  comm_.together([&] {
    rows_.clear();  // where the last run threw
    cols_.clear();
    rows_.reserve(A_.entries.size() + 1);
    cols_.reserve(A_.entries.size() + 1);
    for (const Entry& e : A_.entries) {
      rows_.push_back(static_cast<MUMPS_INT>(e.row) + 1);
      cols_.push_back(static_cast<MUMPS_INT>(e.col) + 1);
    }
  });
  mumps_->nnz_loc = static_cast<MUMPS_INT8>(rows_.size());
  mumps_->irn_loc = rows_.data();
  mumps_->jcn_loc = cols_.data();
}

void MumpsBackend::analyse() {
  beginStage(comm_, options_, "ordering");
  const StopWatch clock;
  mumps_.control(18) = 3;  // entries are distributed
  mumps_.control(28) = 1;  // ordered on one process, so that results do not depend on chance
  mumps_.control(33) = 1;  // the determinant too
  if (!definite_) {
    mumps_.control(13) = 1;  // so that zero pivots are seen in the last block as well
    mumps_.control(24) = 1;
  }
  mumps_->n = static_cast<MUMPS_INT>(A_.n);
  setPattern();
  mumps_.run(Phase::Analyse);
  rows_ = cols_ = {};
  report_.secondsOrdering = comm_.largest(clock.seconds());

  const bool files = !options_.scratchFolder.empty();
  comm_.together([&] {
    const MUMPS_INT predicted = std::max<MUMPS_INT>(1, mumps_.local(files ? 17 : 15));
    requireRoom(comm_, options_, "the factor of " + A_.source, kMega * predicted);
  });
  if (files) mumps_.useFiles(options_.scratchFolder);
}

void MumpsBackend::factorise() {
  beginStage(comm_, options_, "factorising");
  const StopWatch numbers;
  setPattern();
  std::vector<double> values;
  comm_.together([&] {
    values.reserve(A_.entries.size() + 1);
    for (const Entry& e : A_.entries) values.push_back(e.value);
  });
  mumps_->a_loc = values.data();
  mumps_.run(Phase::Factorise);
  mumps_->irn_loc = mumps_->jcn_loc = nullptr;
  mumps_->a_loc = nullptr;
  rows_ = cols_ = {};
  report_.secondsFactorisation = comm_.largest(numbers.seconds());
}

void MumpsBackend::requireUsable() {
  const MUMPS_INT negative = mumps_.global(12), null = mumps_.global(28);
  if (definite_ && negative > 0) {
    comm_.fail(negativePivots(A_.source, negative));
  }
  if (null > 0 || mumps_.realGlobal(12) == 0.0) comm_.fail(singular(A_.source));
  report_.engine = Engine::Mumps;
  report_.route = definite_ ? Route::Cholesky : Route::Lu;
  report_.entriesOfL = static_cast<std::int64_t>(Instance::counted(mumps_.global(29)));
  report_.operations = mumps_.realGlobal(2) + mumps_.realGlobal(3);
  report_.bytes = kMega * mumps_.global(21);
  const double mine = mumps_.realLocal(2) + mumps_.realLocal(3);
  const double all = comm_.sum(mine);
  report_.balance = all > 0.0 ? comm_.largest(mine) * comm_.size() / all : 1.0;
  beginStage(comm_, options_, "estimating the condition");
  condition_ = estimateCondition(comm_, A_, *this);
  if (!(condition_ < kWorthlessCondition)) comm_.fail(singular(A_.source));
  report_.conditionEstimate = condition_;
}

void MumpsBackend::solve(double* x, bool transposed) const {
  mumps_.solve(x, transposed && !A_.symmetric());
}

Doubt MumpsBackend::solutionDoubt(double backwardError) const {
  const double error = condition_ * std::max(backwardError, kEpsilon);
  if (!(error > kDoubtfulError)) return {error, 0};
  if (!weakness_) weakness_ = weakness(comm_, A_, *this);
  return {error, weakness_->weakest()};
}

// From Σ a(j,k) z(k,j), which is 1, and where A is not definite from the sizes of the inverse's
// rows and columns, whose errors its diagonal has. `whole` has all of A.
InverseCheck MumpsBackend::judge(const std::vector<Entry>& whole, const WantedEntries& z,
                                 const std::vector<double>& sizes) const {
  std::vector<double> sum(A_.n, 0.0), product(A_.n, 0.0);
  for (const Entry& e : whole) {
    const double across = A_.symmetric() ? z.at(e.row, e.col) : z.at(e.col, e.row);
    sum[e.row] += e.value * across;
    if (e.row == e.col) {
      product[e.row] = e.value * across;
    } else if (A_.symmetric()) {
      sum[e.col] += e.value * across;
    }
  }
  InverseCheck check;
  check.condition = condition_;
  double residuals = 0.0, products = 0.0, weakest = -1.0;
  for (size_t j = 0; j < A_.n; ++j) {
    const double r = sum[j] - 1.0;
    check.identityResidual = std::max(check.identityResidual, std::abs(r));
    residuals += r * r;
    products += product[j] * product[j];
    if (std::abs(product[j]) <= weakest) continue;
    weakest = std::abs(product[j]);
    check.worstUnknown = static_cast<std::int64_t>(j);
  }
  if (definite_) {
    check.relativeErrorEstimate = relativeErrorEstimate(std::sqrt(residuals), std::sqrt(products));
    return check;
  }
  check.relativeErrorEstimate = std::max(kLuSafety * condition_ * kEpsilon, check.identityResidual);
  if (!(check.relativeErrorEstimate <= kLargestRelativeError)) return check;
  check.relativeErrorEstimate = kLuSafety * kEpsilon;
  for (size_t j = 0; j < A_.n; ++j) {
    const double size = std::abs(z.at(j, j)), error = kLuErrors * sizes[j];
    if (error > kLargestRelativeError * size) {
      if (check.uncertainVariances++ == 0) check.firstUncertain = static_cast<std::int64_t>(j);
    } else if (error > check.relativeErrorEstimate * size) {
      check.relativeErrorEstimate = error / size;
      check.worstUnknown = static_cast<std::int64_t>(j);
    }
  }
  return check;
}

InverseCheck MumpsBackend::variances(double* diagonal) const {
  const std::vector<Entry> whole = comm_.gather(0, A_.entries);
  WantedEntries wanted(A_.n);
  comm_.together([&] {
    if (!comm_.first()) return;
    std::vector<WantedPlace> places;
    places.reserve(whole.size() + A_.n);
    for (std::uint32_t j = 0; j < A_.n; ++j) places.push_back({j, j});
    for (const Entry& e : whole) {
      if (A_.symmetric()) {
        places.push_back({e.col, e.row});
      } else {
        places.push_back({e.row, e.col});
      }
    }
    wanted.set(std::move(places));
  });
  mumps_.invert(wanted);
  std::vector<double> sizes;
  if (!definite_) sizes = sensitivities(comm_, A_, *this);
  InverseCheck check;
  bool finite = true;
  if (comm_.first()) {
    for (size_t j = 0; j < A_.n; ++j) {
      diagonal[j] = wanted.at(j, j);
      finite = finite && std::isfinite(diagonal[j]);
    }
    check = judge(whole, wanted, sizes);
  }
  comm_.broadcast(0, diagonal, A_.n);
  comm_.broadcast(0, &check, 1);
  comm_.broadcast(0, &finite, 1);
  if (!finite) comm_.fail(singular(A_.source));
  return check;
}

Doubt MumpsBackend::covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                               double* values) const {
  if (count == 0) return {};
  WantedEntries wanted(A_.n);
  comm_.together([&] {
    if (!comm_.first()) return;
    std::vector<WantedPlace> places;
    for (size_t k = 0; k < count; ++k) {
      places.push_back({static_cast<std::uint32_t>(cols[k]), static_cast<std::uint32_t>(rows[k])});
    }
    wanted.set(std::move(places));
  });
  mumps_.invert(wanted);
  if (comm_.first()) {
    for (size_t k = 0; k < count; ++k) {
      values[k] = wanted.at(static_cast<size_t>(rows[k]), static_cast<size_t>(cols[k]));
    }
  }
  comm_.broadcast(0, values, count);
  for (size_t k = 0; k < count; ++k) {
    if (!std::isfinite(values[k])) comm_.fail(singular(A_.source));
  }
  Doubt doubt = determinantDoubt();
  if (weakness_) doubt.unknown = weakness_->weakest(rows, count);
  if (definite_) return doubt;
  // Entries on the diagonal may be small beside their rows and columns, whose errors they have.
  const std::vector<double> sizes = sensitivities(comm_, A_, *this);
  for (size_t k = 0; k < count; ++k) {
    if (rows[k] != cols[k]) continue;
    raise(doubt, kLuErrors * sizes[rows[k]] / std::abs(values[k]), rows[k]);
  }
  return doubt;
}

}  // namespace

std::unique_ptr<DistributedBackend> makeMumpsBackend(const Communicator& comm, const Assembled& A,
                                                     bool definite,
                                                     const DistributedOptions& options) {
  return std::make_unique<MumpsBackend>(comm, A, definite, options);
}

}  // namespace zeph::distributed
