#include "distributed/domains/boundaries.h"

#include <algorithm>
#include <numeric>

namespace zeph::distributed {
namespace {

using std::size_t;

// Values that a process sends, or gets, at one time: some megabytes.
constexpr double kStripValues = double{1 << 22};

}  // namespace

Boundaries::Boundaries(const Communicator& comm, const BlockMatrix& matrix,
                       const std::vector<std::int32_t>& mine)
    : comm_(comm), mine_(mine), start_(static_cast<size_t>(comm.size()) + 1, 0) {
  std::vector<std::int64_t> counts =
      comm.gather(0, std::vector<std::int64_t>{static_cast<std::int64_t>(mine_.size())});
  comm.broadcast(0, counts);
  std::partial_sum(counts.begin(), counts.end(), start_.begin() + 1);
  all_ = comm.gather(0, mine_);
  comm.broadcast(0, all_);
  comm.together([&] {
    for (const std::int32_t i : mine_) rowOwner_.push_back(matrix.rowOwner(i));
    for (const std::int32_t i : all_) {
      const std::int64_t row = matrix.hasRow(i) ? matrix.localRow(i) : -1;
      localRow_.push_back(static_cast<std::int32_t>(row));
    }
  });
}

// Calls use(row, column, owner) for the lower triangle of this process's square, by places in the
// boundary, in the columns first <= j < end of the matrix.
template <class Use>
void Boundaries::forMine(const BlockMatrix& matrix, std::int64_t first, std::int64_t end,
                         const Use& use) const {
  const auto begin = std::lower_bound(mine_.begin(), mine_.end(), first) - mine_.begin();
  for (auto c = static_cast<size_t>(begin); c < mine_.size() && mine_[c] < end; ++c) {
    const int colOwner = matrix.colOwner(mine_[c]);
    for (size_t r = c; r < mine_.size(); ++r) {
      use(static_cast<Domain::Index>(r), static_cast<Domain::Index>(c),
          static_cast<size_t>(matrix.ownerAt(rowOwner_[r], colOwner)));
    }
  }
}

// Calls use(local row, local column) in the same order for those entries of process p's square
// that this process has of the matrix.
template <class Use>
void Boundaries::forOwned(const BlockMatrix& matrix, size_t p, std::int64_t first, std::int64_t end,
                          const Use& use) const {
  const auto begin = all_.begin() + start_[p], last = all_.begin() + start_[p + 1];
  for (auto c = std::lower_bound(begin, last, first); c < last && *c < end; ++c) {
    if (!matrix.hasCol(*c)) continue;
    const std::int64_t column = matrix.localCol(*c);
    for (auto row = localRow_.begin() + (c - all_.begin()); row < localRow_.begin() + start_[p + 1];
         ++row) {
      if (*row >= 0) use(*row, column);
    }
  }
}

double Boundaries::bytes() const {
  // A strip as it was collected and as it goes, and the same of what comes.
  double longest = 0.0;
  for (size_t p = 0; p + 1 < start_.size(); ++p) {
    longest = std::max(longest, static_cast<double>(start_[p + 1] - start_[p]));
  }
  return 4.0 * sizeof(double) * std::min(kStripValues + longest, longest * longest);
}

// Columns of the interface where strips begin and end.
std::vector<std::int64_t> Boundaries::strips(std::int64_t order) const {
  std::int64_t longest = 1, together = 1;
  for (size_t p = 0; p + 1 < start_.size(); ++p) {
    longest = std::max(longest, start_[p + 1] - start_[p]);
    together += start_[p + 1] - start_[p];
  }
  // What one sends, and what one of the processes gets of all.
  const auto processes = static_cast<double>(comm_.size());
  const double inColumn =
      std::max(static_cast<double>(longest), static_cast<double>(together) / processes);
  const auto columns = static_cast<std::int64_t>(std::max(1.0, kStripValues / inColumn));
  std::vector<std::int64_t> first{0};
  while (first.back() < order) first.push_back(std::min(order, first.back() + columns));
  return first;
}

void Boundaries::addSchur(const Domain& domain, BlockMatrix& matrix) const {
  const std::vector<std::int64_t> strip = strips(matrix.order());
  for (size_t s = 0; s + 1 < strip.size(); ++s) {
    auto to = comm_.together([&] {
      std::vector<std::vector<double>> parts(static_cast<size_t>(comm_.size()));
      forMine(matrix, strip[s], strip[s + 1], [&](Domain::Index r, Domain::Index c, size_t p) {
        parts[p].push_back(domain.schur(r, c));
      });
      return parts;
    });
    const std::vector<double> came = comm_.exchange(to);
    const double* next = came.data();
    for (size_t p = 0; p + 1 < start_.size(); ++p) {
      forOwned(matrix, p, strip[s], strip[s + 1], [&](std::int64_t row, std::int64_t column) {
        matrix.column(column)[row] += *next++;
      });
    }
  }
}

void Boundaries::takeInverse(const BlockMatrix& matrix, Domain& domain) const {
  const std::vector<std::int64_t> strip = strips(matrix.order());
  for (size_t s = 0; s + 1 < strip.size(); ++s) {
    auto to = comm_.together([&] {
      std::vector<std::vector<double>> parts(static_cast<size_t>(comm_.size()));
      for (size_t p = 0; p < parts.size(); ++p) {
        forOwned(matrix, p, strip[s], strip[s + 1], [&](std::int64_t row, std::int64_t column) {
          parts[p].push_back(matrix.inverseColumn(column)[row]);
        });
      }
      return parts;
    });
    const std::vector<double> came = comm_.exchange(to);
    // They came in the order of the senders: first how many of each, then each to its place.
    std::vector<size_t> next(static_cast<size_t>(comm_.size()) + 1, 0);
    forMine(matrix, strip[s], strip[s + 1],
            [&](Domain::Index, Domain::Index, size_t p) { ++next[p + 1]; });
    std::partial_sum(next.begin(), next.end(), next.begin());
    forMine(matrix, strip[s], strip[s + 1], [&](Domain::Index r, Domain::Index c, size_t p) {
      domain.setInverse(r, c, came[next[p]++]);
    });
  }
}

}  // namespace zeph::distributed
