#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "distributed/backend.h"
#include "distributed/condition.h"
#include "distributed/domains/domain.h"
#include "distributed/domains/interface.h"
#include "distributed/domains/partition.h"
#include "sparse/ordering/domains.h"
#include "sparse/pattern/assembly.h"
#include "zeph/factor.h"
#include "zeph/factor/symmetric_input.h"
#include "zeph/factor/trust.h"
#include "zeph/factor/watch.h"
#include "zeph/matrix/requirements.h"

namespace zeph::distributed {
namespace {

namespace sparse = korin::sparse;
using sparse::Index;
using sparse::Offset;
using std::size_t;
using Vector = std::vector<double>;

/// A scaled as CholeskyBackend scales it, cut into a domain for each process and the interface
/// between them.
class DomainsBackend final : public DistributedBackend {
 public:
  DomainsBackend(const Communicator& comm, const Assembled& A, const DistributedOptions& options);

  DistributedReport report() const override { return report_; }
  void refactorise() override;
  InverseCheck variances(double* diagonal) const override;
  Doubt covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                   double* values) const override;
  void solve(double* x, bool transposed) const override;
  Doubt solutionDoubt(double backwardError) const override;
  Doubt determinantDoubt() const override;
  double logDeterminant() const override { return logDeterminant_; }
  int determinantSign() const override { return 1; }

 private:
  struct Request {
    Offset place;
    size_t answer;
  };

  void readDiagonal();
  template <class ToDomain, class ToInterface>
  void forEachScaled(const ToDomain& toDomain, const ToInterface& toInterface) const;
  void distribute(Partition partition);
  void distributeValues();
  void balance();
  double operations() const;
  void requireRoom(const std::string& what, double beside) const;
  void factorise();
  void reportFactor(double secondsOrdering, double secondsFactorisation);
  void requireInverse() const;
  void requireTrust() const;
  const Weakness& weak() const;
  void scaleRows(double* x) const;
  void solveScaled(double* x) const;
  Vector interfaceSums(const Vector& ofDomain) const;
  Index localOf(std::int64_t i) const;
  Vector onPattern(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                   std::vector<unsigned char>& known) const;

  int exponent(size_t i) const { return exponent_.empty() ? 0 : exponent_[i]; }
  const std::vector<std::int32_t>& boundary() const { return interface_->boundary(); }

  const Communicator& comm_;
  const Assembled& A_;
  const DistributedOptions& options_;
  Partition partition_;
  /// Exponents of D; empty where it is the identity.
  std::vector<int> exponent_;
  /// Of S.
  Vector diagonal_;
  /// The unknowns of this process's interior, ascending.
  std::vector<std::int32_t> interior_;
  std::unique_ptr<Domain> domain_;
  std::unique_ptr<Interface> interface_;
  double logDeterminant_ = 0.0;
  DistributedReport report_;
  double smallestPivotShare_ = 1.0;
  /// Whether the interface's inverse is there and each domain has its square of it.
  mutable bool inverted_ = false;
  /// 0 where the pivots leave no doubt.
  double condition_ = 0.0;
  mutable std::optional<Weakness> weakness_;
};

DomainsBackend::DomainsBackend(const Communicator& comm, const Assembled& A,
                               const DistributedOptions& options)
    : comm_(comm), A_(A), options_(options) {
  beginStage(comm, options, "ordering");
  StopWatch clock;
  readDiagonal();
  distribute(partition(comm, A));
  balance();
#ifdef __GLIBC__
  // What cutting and ordering leave behind in the heap is in pieces that no factor fits into.
  malloc_trim(0);
#endif
  const double secondsOrdering = comm.largest(clock.seconds());
  beginStage(comm, options, "factorising");
  clock = StopWatch();
  requireRoom("the factor of " + A.source,
              domain_->bytes() + domain_->factorisationBytes() + interface_->factorBytes());
  factorise();
  reportFactor(secondsOrdering, comm.largest(clock.seconds()));
}

void DomainsBackend::refactorise() {
  beginStage(comm_, options_, "factorising");
  const StopWatch clock;
  inverted_ = false;
  condition_ = 0.0;
  weakness_.reset();
  readDiagonal();
  distributeValues();
  // The factors are there, and taken over.
  requireRoom("the factor of " + A_.source,
              domain_->factorisationBytes() +
                  std::max(0.0, interface_->factorBytes() - interface_->bytes()));
  factorise();
  reportFactor(report_.secondsOrdering, comm_.largest(clock.seconds()));
}

void DomainsBackend::readDiagonal() {
  diagonal_ = comm_.together([&] { return Vector(A_.n, 0.0); });
  for (const Entry& e : A_.entries) {
    if (e.row == e.col) diagonal_[e.row] = e.value;
  }
  comm_.sum(diagonal_.data(), A_.n);
  comm_.together([&] { exponent_ = scalingExponents(diagonal_); });
  for (size_t i = 0; i < A_.n; ++i) diagonal_[i] = std::ldexp(diagonal_[i], 2 * exponent(i));
}

// Of A's entries that this process has: toDomain(p, e) for those with an end in the interior of
// process p, toInterface(e) for those of the interface.
template <class ToDomain, class ToInterface>
void DomainsBackend::forEachScaled(const ToDomain& toDomain, const ToInterface& toInterface) const {
  const auto& domainOf = partition_.domainOf;
  const auto& place = partition_.placeInInterface;
  for (Entry e : A_.entries) {
    e.value = std::ldexp(e.value, exponent(e.row) + exponent(e.col));
    const std::int32_t owner = std::max(domainOf[e.row], domainOf[e.col]);
    if (owner < 0) {
      toInterface(InterfaceEntry{place[e.row], place[e.col], e.value});
    } else {
      toDomain(static_cast<size_t>(owner), e);
    }
  }
}

// Every entry goes to the process with an end of it in its interior; those of the interface stay
// where they are. They come by ascending columns and rows, whoever had them.
void DomainsBackend::distribute(Partition partition) {
  interface_.reset();
  domain_.reset();
  partition_ = std::move(partition);
  interior_.clear();
  std::vector<InterfaceEntry> between;
  const auto& domainOf = partition_.domainOf;
  const auto& place = partition_.placeInInterface;
  auto to = comm_.together([&] {
    std::vector<std::vector<Entry>> parts(static_cast<size_t>(comm_.size()));
    forEachScaled([&](size_t p, const Entry& e) { parts[p].push_back(e); },
                  [&](const InterfaceEntry& e) { between.push_back(e); });
    return parts;
  });
  std::vector<Entry> entries = comm_.exchange(to);
  to.clear();

  std::vector<std::int32_t> mine;
  std::vector<Index> row, col;
  Vector value;
  comm_.together([&] {
    std::vector<Index> local(A_.n, -1);
    for (size_t i = 0; i < A_.n; ++i) {
      if (domainOf[i] != comm_.rank()) continue;
      local[i] = static_cast<Index>(interior_.size());
      interior_.push_back(static_cast<std::int32_t>(i));
    }
    for (const Entry& e : entries) {
      if (domainOf[e.row] == domainOf[e.col]) continue;
      mine.push_back(domainOf[e.row] < 0 ? place[e.row] : place[e.col]);
    }
    std::sort(mine.begin(), mine.end());
    mine.erase(std::unique(mine.begin(), mine.end()), mine.end());
    for (size_t b = 0; b < mine.size(); ++b) {
      local[partition_.interfaceUnknowns[mine[b]]] = static_cast<Index>(interior_.size() + b);
    }
    for (const Entry& e : entries) {
      row.push_back(local[e.row]);
      col.push_back(local[e.col]);
      value.push_back(e.value);
    }
    entries = {};
    const auto n = static_cast<Index>(interior_.size() + mine.size());
    const auto part = sparse::Part::OneTriangle;
    const sparse::Columns lower =
        sparse::assembleTriplets(n, n, row.data(), col.data(), value.data(), value.size(), part);
    sparse::Slots slots;
    findSlots(lower, sparse::Places<Index>{row.data(), col.data(), row.size()}, part, slots);
    domain_ = std::make_unique<Domain>(lower, std::move(slots), static_cast<Index>(mine.size()),
                                       std::max(1, options_.threads));
  });
  interface_ = makeInterface({comm_, A_, partition_, options_}, std::move(mine), std::move(between),
                             domain_->bytes() + domain_->factorisationBytes());
}

// The values of all entries, to where distribute() sent them.
void DomainsBackend::distributeValues() {
  std::vector<InterfaceEntry> between;
  const auto to = comm_.together([&] {
    std::vector<Vector> parts(static_cast<size_t>(comm_.size()));
    forEachScaled([&](size_t p, const Entry& e) { parts[p].push_back(e.value); },
                  [&](const InterfaceEntry& e) { between.push_back(e); });
    return parts;
  });
  domain_->setValues(comm_.exchange(to));
  interface_->setEntries(std::move(between));
}

// Of this process, with its share of the interface's.
double DomainsBackend::operations() const {
  return domain_->operations() + interface_->operations();
}

// Domains of as many unknowns may be unlike work, where one is denser than another: then they are
// cut once more with what is known now, and the cut is kept under which the busiest has less to do.
void DomainsBackend::balance() {
  const double most = comm_.largest(operations());
  const double mean = comm_.sum(operations()) / comm_.size();
  if (!sparse::worthAnotherCut(most, mean, static_cast<double>(A_.n))) return;
  const std::vector<sparse::DomainWork> all = comm_.gather(
      0, std::vector<sparse::DomainWork>{{domain_->operations(), double(domain_->interior())}});
  const Vector share = comm_.together([&] { return sparse::sharesForLikeWork(all); });
  const Partition before = partition_;
  distribute(partition(comm_, A_, &before, share));
  if (comm_.largest(operations()) > most) distribute(before);
}

// Throws on all processes unless each has room beside what it holds.
void DomainsBackend::requireRoom(const std::string& what, double beside) const {
  // What is held already counts against the limit that was asked for, and the machine has less.
  const double held = options_.memoryLimit > 0.0 ? report_.bytes : 0.0;
  comm_.together([&] { distributed::requireRoom(comm_, options_, what, held + beside); });
}

void DomainsBackend::factorise() {
  comm_.together([&] {
    const Index failed = domain_->factorise();
    if (failed >= 0) throw notPositiveDefinite(A_.source, A_.indexBase, interior_[failed]);
  });
  interface_->factorise(*domain_);
  const std::optional<double> ofInterface = interface_->smallestPivotShare(diagonal_);
  smallestPivotShare_ = std::min(domain_->smallestPivotShare(), ofInterface.value_or(1.0));
  smallestPivotShare_ = -comm_.largest(-smallestPivotShare_);
  if (!(smallestPivotShare_ > kSingularPivotShare)) comm_.fail(singular(A_.source));
  double exponents = 0.0;
  for (const int e : exponent_) exponents += e;
  logDeterminant_ = comm_.sum(domain_->logDeterminant() + interface_->logDeterminant()) -
                    2.0 * exponents * std::log(2.0);
  if (ofInterface && smallestPivotShare_ > kHarmlessPivotShare) return;
  condition_ = estimateCondition(comm_, A_, *this);
  // What pivots do not tell of, the condition has to.
  if (!ofInterface) requireTrust();
}

void DomainsBackend::reportFactor(double secondsOrdering, double secondsFactorisation) {
  report_.engine = Engine::Domains;
  report_.route = Route::Cholesky;
  report_.secondsOrdering = secondsOrdering;
  report_.secondsFactorisation = secondsFactorisation;
  report_.interfaceUnknowns = partition_.interfaceSize();
  if (interface_->order() > 0) report_.interface = interface_->method();
  report_.entriesOfL = comm_.sum(domain_->entriesOfL()) + interface_->entriesOfL();
  const double mine = operations();
  report_.operations = comm_.sum(mine);
  report_.balance =
      report_.operations > 0.0 ? comm_.largest(mine) * comm_.size() / report_.operations : 1.0;
  report_.bytes =
      comm_.largest(domain_->bytes() + interface_->bytes() +
                    static_cast<double>(A_.n) * (sizeof(double) + 2 * sizeof(std::int32_t)));
}

void DomainsBackend::requireInverse() const {
  requireRoom("the inverse of " + A_.source,
              domain_->inverseBytes() + (inverted_ ? 0.0 : interface_->inverseBytes()));
  if (inverted_) return;
  interface_->invert(*domain_);
  inverted_ = true;
}

// The identity's sums in the rows of the interface, from those of the domains' boundaries.
Vector DomainsBackend::interfaceSums(const Vector& ofDomain) const {
  Vector sums = comm_.together([&] { return Vector(partition_.interfaceUnknowns.size(), 0.0); });
  for (size_t b = 0; b < boundary().size(); ++b) {
    sums[boundary()[b]] = ofDomain[interior_.size() + b];
  }
  for (size_t k = 0; k < interface_->entries().size(); ++k) {
    const InterfaceEntry& e = interface_->entries()[k];
    const double product = e.value * interface_->inverseAtEntries()[k];
    sums[e.row] += product;
    if (e.row != e.col) sums[e.col] += product;
  }
  comm_.sum(sums.data(), sums.size());
  return sums;
}

InverseCheck DomainsBackend::variances(double* diagonal) const {
  requireInverse();
  Vector own, sums;
  comm_.together([&] {
    own.resize(interior_.size() + boundary().size());
    sums.resize(own.size());
    domain_->variances(own.data(), sums.data());
  });
  std::fill_n(diagonal, A_.n, 0.0);
  for (size_t k = 0; k < interior_.size(); ++k) diagonal[interior_[k]] = own[k];
  for (size_t k = 0; k < interface_->entries().size(); ++k) {
    const InterfaceEntry& e = interface_->entries()[k];
    if (e.row != e.col) continue;
    diagonal[partition_.interfaceUnknowns[e.row]] = interface_->inverseAtEntries()[k];
  }
  comm_.sum(diagonal, A_.n);

  // The rows of the interface are counted once, on the first process.
  Vector rows = interfaceSums(sums);
  if (!comm_.first()) rows.clear();
  rows.insert(rows.end(), sums.begin(),
              sums.begin() + static_cast<std::ptrdiff_t>(interior_.size()));
  double largest = 0.0, squares = 0.0;
  for (const double sum : rows) {
    const double deviation = std::abs(sum - 1.0);
    if (!(deviation <= largest)) largest = deviation;
    squares += deviation * deviation;
  }
  InverseCheck check;
  const double norm = std::sqrt(comm_.sum(squares));
  check.identityResidual = comm_.largest(largest);
  if (std::isnan(norm)) check.identityResidual = norm;
  double products = 0.0;
  Weakness weak;
  comm_.together([&] { weak.rows.reserve(A_.n); });
  for (size_t i = 0; i < A_.n; ++i) {
    const double product = diagonal_[i] * diagonal[i];
    products += product * product;
    check.condition += product;
    weak.rows.push_back(product);
  }
  weak.size = check.condition;
  check.worstUnknown = weak.weakest();
  check.relativeErrorEstimate = relativeErrorEstimate(norm, std::sqrt(products));
  if (!(check.relativeErrorEstimate <= kLargestRelativeError)) return check;
  weakness_ = std::move(weak);  // of what chance has told
  for (size_t i = 0; i < A_.n; ++i) {
    diagonal[i] = std::ldexp(diagonal[i], 2 * exponent(i));
    if (std::isfinite(diagonal[i])) continue;
    comm_.fail(Error(ErrorKind::Unfit,
                     "entry " + position(A_.indexBase, i, i) + " of the inverse of " + A_.source +
                         " overflows; scale the equations",
                     static_cast<std::int64_t>(i)));
  }
  return check;
}

// Of this process's domain, or -1.
Index DomainsBackend::localOf(std::int64_t i) const {
  const auto unknown = static_cast<size_t>(i);
  const bool inside = partition_.domainOf[unknown] == comm_.rank();
  const std::vector<std::int32_t>& list = inside ? interior_ : boundary();
  const std::int32_t wanted =
      inside ? static_cast<std::int32_t>(i) : partition_.placeInInterface[unknown];
  const auto at = std::lower_bound(list.begin(), list.end(), wanted);
  if (at == list.end() || *at != wanted) return -1;
  return static_cast<Index>((at - list.begin()) +
                            (inside ? 0 : static_cast<std::ptrdiff_t>(interior_.size())));
}

// Entries of S⁻¹ that this process has, and which those are; zero elsewhere.
Vector DomainsBackend::onPattern(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                                 std::vector<unsigned char>& known) const {
  Vector values(count, 0.0);
  std::vector<Request> requests;
  for (size_t k = 0; k < count; ++k) {
    const auto i = static_cast<size_t>(rows[k]), j = static_cast<size_t>(cols[k]);
    const int domain = std::max(partition_.domainOf[i], partition_.domainOf[j]);
    if (domain == comm_.rank()) {
      const Index low = localOf(rows[k]), high = localOf(cols[k]);
      const Offset place = low < 0 || high < 0 ? -1 : domain_->placeInPanels(low, high);
      if (place >= 0) requests.push_back({place, k});
    } else if (domain < 0) {
      const auto [low, high] =
          std::minmax(partition_.placeInInterface[i], partition_.placeInInterface[j]);
      const std::ptrdiff_t entry = interface_->find(high, low);
      if (entry < 0) continue;
      values[k] = interface_->inverseAtEntries()[entry];
      known[k] = 1;
    }
  }
  std::sort(requests.begin(), requests.end(),
            [](const Request& a, const Request& b) { return a.place < b.place; });
  std::vector<Offset> places;
  places.reserve(requests.size());
  for (const Request& r : requests) places.push_back(r.place);
  const Vector found = domain_->entriesOfInverse(places);
  for (size_t k = 0; k < requests.size(); ++k) {
    values[requests[k].answer] = found[k];
    known[requests[k].answer] = 1;
  }
  return values;
}

Doubt DomainsBackend::covariance(const std::int64_t* rows, const std::int64_t* cols, size_t count,
                                 double* values) const {
  requireTrust();
  requireInverse();
  Vector found;
  std::vector<std::int64_t> missing;
  comm_.together([&] {
    std::vector<unsigned char> known(count, 0);
    found = onPattern(rows, cols, count, known);
    missing.assign(known.begin(), known.end());
  });
  comm_.sum(found.data(), count);
  comm_.sum(missing.data(), count);
  for (size_t k = 0; k < count; ++k) {
    if (missing[k] == 0) {
      comm_.fail(Error(
          ErrorKind::Unfit,
          "entry " +
              position(A_.indexBase, static_cast<size_t>(rows[k]), static_cast<size_t>(cols[k])) +
              " is not on the pattern of " + A_.source +
              ", where the engine \"domains\" has the inverse; take the engine "
              "\"mumps\", or solve for it",
          rows[k]));
    }
    values[k] = std::ldexp(
        found[k], exponent(static_cast<size_t>(rows[k])) + exponent(static_cast<size_t>(cols[k])));
  }
  if (count == 0) return {};
  std::vector<std::int64_t> asked(rows, rows + count);
  asked.insert(asked.end(), cols, cols + count);
  return {kEntryErrors * weak().size, weak().weakest(asked.data(), asked.size())};
}

void DomainsBackend::scaleRows(double* x) const {
  for (size_t i = 0; i < exponent_.size(); ++i) x[i] = std::ldexp(x[i], exponent_[i]);
}

// x = S⁻¹ x: the domains' interiors forward, the interface, the interiors backward.
void DomainsBackend::solveScaled(double* x) const {
  Vector own, right, between;
  comm_.together([&] {
    own.assign(interior_.size() + boundary().size(), 0.0);
    right.resize(boundary().size());
    between.resize(partition_.interfaceUnknowns.size());
    for (size_t k = 0; k < interior_.size(); ++k) own[k] = x[interior_[k]];
    domain_->eliminate(own.data(), right.data());
  });
  for (size_t b = 0; b < right.size(); ++b) between[boundary()[b]] = right[b];
  comm_.sum(between.data(), between.size());
  for (size_t i = 0; i < between.size(); ++i) between[i] += x[partition_.interfaceUnknowns[i]];
  interface_->solve(between.data());
  comm_.together([&] {
    for (size_t b = 0; b < right.size(); ++b) right[b] = between[boundary()[b]];
    domain_->substitute(own.data(), right.data());
  });
  std::fill_n(x, A_.n, 0.0);
  for (size_t k = 0; k < interior_.size(); ++k) x[interior_[k]] = own[k];
  comm_.sum(x, A_.n);
  for (size_t i = 0; i < between.size(); ++i) x[partition_.interfaceUnknowns[i]] = between[i];
}

void DomainsBackend::solve(double* x, bool) const {
  requireTrust();
  scaleRows(x);
  solveScaled(x);
  scaleRows(x);
}

// Before results that come without a check of their own.
void DomainsBackend::requireTrust() const {
  if (!(condition_ < kWorthlessCondition)) comm_.fail(singular(A_.source));
}

// The pivots tell of single directions that chance may have missed.
const Weakness& DomainsBackend::weak() const {
  if (!weakness_) {
    weakness_ = weakness(comm_, A_, *this);
    weakness_->size = std::max(weakness_->size, 1.0 / smallestPivotShare_);
  }
  return *weakness_;
}

Doubt DomainsBackend::solutionDoubt(double backwardError) const {
  // What is no larger than one off a diagonal of ones adds up to about the length of a row.
  const double row = static_cast<double>(A_.positions) / static_cast<double>(A_.n) + 1.0;
  const double error = std::max(backwardError, std::numeric_limits<double>::epsilon());
  return {error * row * weak().size, weak().weakest()};
}

Doubt DomainsBackend::determinantDoubt() const {
  requireTrust();
  return {kEntryErrors * weak().size, weak().weakest()};
}

}  // namespace

std::unique_ptr<DistributedBackend> makeDomainsBackend(const Communicator& comm, const Assembled& A,
                                                       const DistributedOptions& options) {
  return std::make_unique<DomainsBackend>(comm, A, options);
}

}  // namespace zeph::distributed
