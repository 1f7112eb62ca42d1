#include "distributed/domains/boundaries.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace zeph::distributed {
namespace {

using std::size_t;

// Values that a process sends, or gets, at one time: some megabytes.
constexpr double kStripValues = double{1 << 22};

// Calls use(column, row) for the lower triangle of a boundary's square, as places in the boundary,
// in the columns first <= j < end of the interface.
template <class Use>
void forSquare(const std::int32_t* boundary, size_t count, std::int64_t first, std::int64_t end,
               const Use& use) {
  const auto from = std::lower_bound(boundary, boundary + count, first) - boundary;
  for (auto c = static_cast<size_t>(from); c < count && boundary[c] < end; ++c) {
    for (size_t r = c; r < count; ++r) use(c, r);
  }
}

}  // namespace

Boundaries::Boundaries(const Communicator& comm, std::vector<std::int32_t> mine)
    : comm_(comm), mine_(std::move(mine)), start_(static_cast<size_t>(comm.size()) + 1, 0) {
  std::vector<std::int64_t> counts =
      comm.gather(0, std::vector<std::int64_t>{static_cast<std::int64_t>(mine_.size())});
  comm.broadcast(0, counts);
  std::partial_sum(counts.begin(), counts.end(), start_.begin() + 1);
  all_ = comm.gather(0, mine_);
  comm.broadcast(0, all_);
}

double Boundaries::bytes() const {
  return 4.0 * sizeof(double) * kStripValues;
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

void Boundaries::addSchur(const Domain& domain, Interface& interface) const {
  const std::vector<std::int64_t> strip = strips(interface.order());
  for (size_t s = 0; s + 1 < strip.size(); ++s) {
    auto to = comm_.together([&] {
      std::vector<std::vector<double>> parts(static_cast<size_t>(comm_.size()));
      forSquare(mine_.data(), mine_.size(), strip[s], strip[s + 1], [&](size_t c, size_t r) {
        parts[static_cast<size_t>(interface.owner(mine_[r], mine_[c]))].push_back(
            domain.schur(static_cast<Domain::Index>(r), static_cast<Domain::Index>(c)));
      });
      return parts;
    });
    const std::vector<double> came = comm_.exchange(to);
    const double* next = came.data();
    for (size_t p = 0; p + 1 < start_.size(); ++p) {
      const std::int32_t* const boundary = all_.data() + start_[p];
      forSquare(boundary, static_cast<size_t>(start_[p + 1] - start_[p]), strip[s], strip[s + 1],
                [&](size_t c, size_t r) {
                  if (!interface.hasCol(boundary[c]) || !interface.hasRow(boundary[r])) return;
                  interface.add(boundary[r], boundary[c], *next++);
                });
    }
  }
}

void Boundaries::takeInverse(const Interface& interface, Domain& domain) const {
  const std::vector<std::int64_t> strip = strips(interface.order());
  for (size_t s = 0; s + 1 < strip.size(); ++s) {
    auto to = comm_.together([&] {
      std::vector<std::vector<double>> parts(static_cast<size_t>(comm_.size()));
      for (size_t p = 0; p < parts.size(); ++p) {
        const std::int32_t* const boundary = all_.data() + start_[p];
        forSquare(boundary, static_cast<size_t>(start_[p + 1] - start_[p]), strip[s], strip[s + 1],
                  [&](size_t c, size_t r) {
                    if (!interface.hasCol(boundary[c]) || !interface.hasRow(boundary[r])) return;
                    parts[p].push_back(interface.inverse(boundary[r], boundary[c]));
                  });
      }
      return parts;
    });
    const std::vector<double> came = comm_.exchange(to);
    // They came in the order of the senders: first how many of each, then each to its place.
    std::vector<size_t> next(static_cast<size_t>(comm_.size()) + 1, 0);
    const auto forMine = [&](const auto& use) {
      forSquare(mine_.data(), mine_.size(), strip[s], strip[s + 1], [&](size_t c, size_t r) {
        use(c, r, static_cast<size_t>(interface.owner(mine_[r], mine_[c])));
      });
    };
    forMine([&](size_t, size_t, size_t owner) { ++next[owner + 1]; });
    std::partial_sum(next.begin(), next.end(), next.begin());
    forMine([&](size_t c, size_t r, size_t owner) {
      domain.setInverse(static_cast<Domain::Index>(r), static_cast<Domain::Index>(c),
                        came[next[owner]++]);
    });
  }
}

}  // namespace zeph::distributed
