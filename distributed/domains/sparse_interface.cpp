#include "distributed/domains/sparse_interface.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zeph/factor/trust.h"

namespace zeph::distributed {
namespace {

using std::size_t;
using Index = Domain::Index;

constexpr double kMega = 1e6;
// Entries of the inverse that are asked for at one time, by all processes together.
constexpr double kStripEntries = double{1 << 21};
// Columns of the inverse that MUMPS computes together. 16 take twice as long; what solving for
// whole columns takes is no less.
constexpr MUMPS_INT kColumns = 64;
// On the first process: a place as it came, sorted, and as MUMPS has it with its value; the answer.
constexpr double kStripEntryBytes = 40.0;

// What is left of the limit for MUMPS, which works as ScaLAPACK does, on one thread of each
// process.
DistributedOptions forMumps(const DistributedOptions& options, double beside) {
  DistributedOptions own;
  own.threads = 1;
  if (options.memoryLimit > 0.0) own.memoryLimit = std::max(1.0, options.memoryLimit - beside);
  return own;
}

}  // namespace

SparseInterface::SparseInterface(const Surroundings& around, std::vector<std::int32_t> boundary,
                                 std::vector<InterfaceEntry> entries, double beside)
    : Interface(around, std::move(boundary), std::move(entries)),
      mumps_(comm(), Form::Definite, around.A.source, forMumps(around.options, beside)),
      wanted_(comm().sum(triplets())) {
  mumps_.control(18) = 3;  // entries are distributed
  mumps_.control(28) = 1;  // ordered on one process
  mumps_.control(27) = kColumns;
  mumps_.control(33) = 1;  // the determinant too
  mumps_->n = static_cast<MUMPS_INT>(order());
  setPattern();
  mumps_.run(Phase::Analyse);
  rows_ = cols_ = {};
}

// Calls square(r, c) for the lower triangle of the boundary's square, by places in the boundary,
// and own(k) for the entries, in the columns first <= j < end of the interface.
template <class Square, class Own>
void SparseInterface::forMine(std::int64_t first, std::int64_t end, const Square& square,
                              const Own& own) const {
  const std::vector<std::int32_t>& b = boundary();
  const auto begin = std::lower_bound(b.begin(), b.end(), first) - b.begin();
  for (auto c = static_cast<size_t>(begin); c < b.size() && b[c] < end; ++c) {
    for (size_t r = c; r < b.size(); ++r) square(r, c);
  }
  for (size_t k = 0; k < entries_.size(); ++k) {
    if (first <= entries_[k].col && entries_[k].col < end) own(k);
  }
}

double SparseInterface::triplets() const {
  const auto b = static_cast<double>(boundary().size());
  return b * (b + 1.0) / 2.0 + static_cast<double>(entries_.size());
}

// MUMPS wants arrays even where there is nothing in them.
void SparseInterface::setPattern() {
  comm().together([&] {
    rows_.clear();  // where the last run threw
    cols_.clear();
    rows_.reserve(static_cast<size_t>(triplets()) + 1);
    cols_.reserve(static_cast<size_t>(triplets()) + 1);
    const auto add = [&](std::int32_t row, std::int32_t col) {
      rows_.push_back(row + 1);
      cols_.push_back(col + 1);
    };
    forMine(
        0, order(), [&](size_t r, size_t c) { add(boundary()[r], boundary()[c]); },
        [&](size_t k) { add(entries_[k].row, entries_[k].col); });
  });
  mumps_->nnz_loc = static_cast<MUMPS_INT8>(rows_.size());
  mumps_->irn_loc = rows_.data();
  mumps_->jcn_loc = cols_.data();
}

double SparseInterface::bytes() const {
  return kMega * std::max<MUMPS_INT>(1, mumps_.local(16));
}

double SparseInterface::factorBytes() const {
  return kMega * std::max<MUMPS_INT>(1, mumps_.local(15)) +
         triplets() * (2 * sizeof(MUMPS_INT) + sizeof(double));
}

double SparseInterface::inverseBytes() const {
  const double each = comm().first() ? kStripEntryBytes : sizeof(double) + sizeof(WantedPlace);
  return each * std::min(wanted_, kStripEntries + static_cast<double>(order()));
}

std::int64_t SparseInterface::entriesOfL() const {
  return static_cast<std::int64_t>(Instance::counted(mumps_.global(29)));
}

void SparseInterface::factorise(const Domain& domain) {
  setPattern();
  std::vector<double> values;
  comm().together([&] {
    values.reserve(rows_.size() + 1);
    forMine(
        0, order(),
        [&](size_t r, size_t c) {
          values.push_back(domain.schur(static_cast<Index>(r), static_cast<Index>(c)));
        },
        [&](size_t k) { values.push_back(entries_[k].value); });
  });
  mumps_->a_loc = values.data();
  mumps_.run(Phase::Factorise);
  mumps_->irn_loc = mumps_->jcn_loc = nullptr;
  mumps_->a_loc = nullptr;
  rows_ = cols_ = {};
  // An odd number of them shows in the sign as well, and NaN in the determinant alone.
  const double determinant = mumps_.realGlobal(12);
  if (mumps_.global(12) > 0 || determinant < 0.0 || !std::isfinite(determinant)) {
    comm().fail(negativePivots(around_.A.source, mumps_.global(12)));
  }
  if (determinant == 0.0) comm().fail(singular(around_.A.source));
}

double SparseInterface::logDeterminant() const {
  return comm().first() ? mumps_.logDeterminant() : 0.0;
}

// Columns where strips begin and end.
std::vector<std::int64_t> SparseInterface::strips() const {
  std::vector<double> inColumn =
      comm().together([&] { return std::vector<double>(static_cast<size_t>(order()), 0.0); });
  for (size_t c = 0; c < boundary().size(); ++c) {
    inColumn[static_cast<size_t>(boundary()[c])] += static_cast<double>(boundary().size() - c);
  }
  for (const InterfaceEntry& e : entries_) inColumn[static_cast<size_t>(e.col)] += 1.0;
  comm().sum(inColumn.data(), inColumn.size());
  std::vector<std::int64_t> first{0};
  double together = 0.0;
  for (std::int64_t j = 0; j < order(); ++j) {
    together += inColumn[static_cast<size_t>(j)];
    if (together > kStripEntries && j > first.back()) {
      first.push_back(j);
      together = inColumn[static_cast<size_t>(j)];
    }
  }
  if (first.back() < order()) first.push_back(order());
  return first;
}

// What this process wants in those columns, in the order of forMine. The first process asks MUMPS
// for all, each entry once.
std::vector<double> SparseInterface::inverseIn(WantedEntries& wanted, std::int64_t first,
                                               std::int64_t end) const {
  std::vector<WantedPlace> places;
  comm().together([&] {
    const auto add = [&](std::int32_t row, std::int32_t col) {
      places.push_back({static_cast<std::uint32_t>(col), static_cast<std::uint32_t>(row)});
    };
    forMine(
        first, end, [&](size_t r, size_t c) { add(boundary()[r], boundary()[c]); },
        [&](size_t k) { add(entries_[k].row, entries_[k].col); });
  });
  const std::vector<std::uint64_t> counts =
      comm().gather(0, std::vector<std::uint64_t>{places.size()});
  places = comm().gather(0, places);
  comm().together([&] {
    if (comm().first()) wanted.set(places);
  });
  mumps_.invert(wanted);
  auto to = comm().together([&] {
    std::vector<std::vector<double>> answers(static_cast<size_t>(comm().size()));
    size_t next = 0;
    for (size_t p = 0; p < counts.size(); ++p) {
      answers[p].reserve(counts[p]);
      for (const size_t last = next + counts[p]; next < last; ++next) {
        answers[p].push_back(wanted.at(places[next].row, places[next].col));
      }
    }
    return answers;
  });
  return comm().exchange(to);
}

void SparseInterface::invert(Domain& domain) {
  WantedEntries wanted =
      comm().together([&] { return WantedEntries(static_cast<size_t>(order())); });
  comm().together([&] { inverseAtEntries_.assign(entries_.size(), 0.0); });
  const std::vector<std::int64_t> strip = strips();
  for (size_t s = 0; s + 1 < strip.size(); ++s) {
    const std::vector<double> came = inverseIn(wanted, strip[s], strip[s + 1]);
    const double* next = came.data();
    forMine(
        strip[s], strip[s + 1],
        [&](size_t r, size_t c) {
          domain.setInverse(static_cast<Index>(r), static_cast<Index>(c), *next++);
        },
        [&](size_t k) { inverseAtEntries_[k] = *next++; });
  }
}

}  // namespace zeph::distributed
