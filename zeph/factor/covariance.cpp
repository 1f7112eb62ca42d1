// Chosen entries of the inverse: from the part of the selected inverse that they need, from the
// paths of their unknowns in the elimination tree, or from solves, whichever costs least.
#include <algorithm>
#include <cmath>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "sparse/inverse/covariance_block.h"
#include "sparse/inverse/selected_inverse.h"
#include "sparse/numeric/solve.h"
#include "zeph/factor/cholesky_backend.h"

namespace zeph {
namespace {

namespace sparse = korin::sparse;
using sparse::Index;
using sparse::Offset;
using std::size_t;

// Columns of the inverse that are solved for at once.
constexpr size_t kSolvesAtOnce = 64;
// Blocks of more unknowns than this would be mostly entries that nobody asked for.
constexpr size_t kLargestBlock = 4096;
// Solves and paths are bound by memory, panels by arithmetic: what an operation of theirs costs.
constexpr double kMemoryBound = 4.0;

// An entry asked for: places of its row and column among those of L, and whose answer it is.
struct Request {
  Index low;   // the smaller place
  Index high;  // the larger one
  size_t answer;
  Offset inPanel = -1;  // where it stands in the panel of low's group; -1 off the pattern

  std::pair<Index, Index> entry() const { return {low, high}; }
};

// Finds where requests stand in the panels.
void locate(const sparse::Symbolic& s, Request& r) {
  const Index g = s.groupOf[r.low];
  const Index* rows = s.rowsOf(g);
  const Index* at = std::lower_bound(rows, rows + s.height(g), r.high);
  if (at == rows + s.height(g) || *at != r.high) return;
  r.inPanel = Offset{r.low - s.firstColumn[g]} * s.height(g) + (at - rows);
}

using Requests = std::span<Request>;
// What a request takes with its places in lists of rows and columns.
constexpr double kRequestBytes = sizeof(Request) + 3.0 * sizeof(Index);

std::vector<Index> distinct(std::vector<Index> indices) {
  std::sort(indices.begin(), indices.end());
  indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
  return indices;
}

// The places that occur in requests.
std::vector<Index> placesOf(Requests requests) {
  std::vector<Index> places;
  places.reserve(2 * requests.size());
  for (const Request& r : requests) {
    places.push_back(r.low);
    places.push_back(r.high);
  }
  return distinct(std::move(places));
}

// Cost of the block of the inverse for some places: a solve along the path of each, and a product
// along the shared part of the paths for each pair.
double blockCost(const sparse::Symbolic& s, const std::vector<Index>& places) {
  if (places.size() > kLargestBlock) return HUGE_VAL;
  std::vector<double> path(static_cast<size_t>(s.groups())), length(path.size());
  for (Index g = s.groups(); g-- > 0;) {
    const Index p = s.parent[g];
    path[g] = static_cast<double>(s.panelSize(g)) + (p < 0 ? 0.0 : path[p]);
    length[g] = static_cast<double>(s.width(g)) + (p < 0 ? 0.0 : length[p]);
  }
  double solves = 0.0, columns = 0.0;
  for (const Index k : places) {
    solves += path[s.groupOf[k]];
    columns += length[s.groupOf[k]];
  }
  return kMemoryBound * solves + 0.5 * columns * static_cast<double>(places.size());
}

std::vector<bool> groupsOf(const sparse::Symbolic& s, Requests requests) {
  std::vector<bool> wanted(static_cast<size_t>(s.groups()), false);
  for (const Request& r : requests) wanted[s.groupOf[r.low]] = true;
  return wanted;
}

// The side of the pairs with fewer distinct places, as columns to solve for.
struct SolvedColumns {
  std::vector<Index> places;
  bool high = false;

  Index placeOf(const Request& r) const { return high ? r.high : r.low; }
};

SolvedColumns fewerColumns(Requests requests) {
  std::vector<Index> low, high;
  low.reserve(requests.size());
  high.reserve(requests.size());
  for (const Request& r : requests) {
    low.push_back(r.low);
    high.push_back(r.high);
  }
  low = distinct(std::move(low));
  high = distinct(std::move(high));
  if (high.size() <= low.size()) return {std::move(high), true};
  return {std::move(low), false};
}

}  // namespace

void CholeskyBackend::blockEntries(const std::int64_t* indices, size_t count, double* block,
                                   Watch& watch, double there) const {
  requireTrust(watch);
  watch.begin("inverting along paths", 0.0);
  std::vector<Index> own(indices, indices + count);
  korin::kernels::Team team(threads(), watch.poll());
  const auto fit = [&](Index most, const std::function<double(Index)>& need) {
    return static_cast<Index>(columnsAtOnce(
        "a block of the inverse of", static_cast<size_t>(most),
        [&](size_t columns) { return need(static_cast<Index>(columns)); }, there));
  };
  sparse::covarianceBlock(symbolic_, factor(), static_cast<Index>(count), own.data(), block, team,
                          fit);
  for (size_t j = 0; j < count; ++j) {
    for (size_t i = 0; i < count; ++i) {
      block[i + j * count] = unscaled(block[i + j * count], indices[i], indices[j]);
    }
  }
}

void CholeskyBackend::covarianceEntries(const std::int64_t* rows, const std::int64_t* cols,
                                        size_t count, double* values, Watch& watch,
                                        double there) const {
  requireTrust(watch);
  const double taken = kRequestBytes * static_cast<double>(count), held = there + taken;
  requireRoom("covariances of " + input_.source,
              taken + 2.0 * sizeof(double) * static_cast<double>(symbolic_.groups()),
              bytes() + there);
  // An entry and its mirror image are one, so that both get the same bits.
  std::vector<Request> requests;
  requests.reserve(count);
  for (size_t k = 0; k < count; ++k) {
    const auto [low, high] = std::minmax(placeOfRow_[rows[k]], placeOfRow_[cols[k]]);
    requests.push_back({low, high, k});
    locate(symbolic_, requests.back());
  }
  const auto middle = std::partition(requests.begin(), requests.end(),
                                     [](const Request& r) { return r.inPanel >= 0; });
  const Requests all(requests), onPattern(requests.begin(), middle),
      offPattern(middle, requests.end());

  const auto unitSolve = 2.0 * kMemoryBound * static_cast<double>(symbolic_.storage());
  const SolvedColumns columns = fewerColumns(offPattern);
  const double solves = unitSolve * static_cast<double>(columns.places.size());
  const double offBlock = blockCost(symbolic_, placesOf(offPattern));
  const std::vector<bool> wanted = groupsOf(symbolic_, onPattern);
  const double panels = onPattern.empty() ? 0.0 : sparse::inverseWork(symbolic_, &wanted);

  const auto fromBlock = [&](Requests asked) {
    const std::vector<Index> places = placesOf(asked);
    std::vector<std::int64_t> indices;
    indices.reserve(places.size());
    for (const Index k : places) indices.push_back(symbolic_.permutation[k]);
    const double bytes = sizeof(double) * std::pow(static_cast<double>(places.size()), 2);
    requireRoom("covariances of " + input_.source, bytes, this->bytes() + held);
    std::vector<double> block(places.size() * places.size());
    blockEntries(indices.data(), indices.size(), block.data(), watch, held + bytes);
    const auto at = [&](Index k) {
      return static_cast<size_t>(std::lower_bound(places.begin(), places.end(), k) -
                                 places.begin());
    };
    for (const Request& r : asked) {
      values[r.answer] = block[at(r.low) + at(r.high) * places.size()];
    }
  };
  const auto fromSolves = [&] {
    watch.begin("solving for columns of the inverse", 0.0);
    std::sort(offPattern.begin(), offPattern.end(), [&](const Request& a, const Request& b) {
      return columns.placeOf(a) < columns.placeOf(b);
    });
    korin::kernels::Team team(threads(), watch.poll());
    const auto n = static_cast<size_t>(symbolic_.n);
    const auto need = [this](size_t some) {
      return vectors(static_cast<double>(some)) +
             sparse::solveMemory(symbolic_, static_cast<Index>(some), threads());
    };
    const size_t most =
        columnsAtOnce("covariances of", std::min(columns.places.size(), kSolvesAtOnce), need, held);
    std::vector<double> x;
    auto next = offPattern.begin();
    for (size_t first = 0; first < columns.places.size(); first += most) {
      const size_t some = std::min(most, columns.places.size() - first);
      x.assign(n * some, 0.0);
      for (size_t j = 0; j < some; ++j) {
        x[static_cast<size_t>(symbolic_.permutation[columns.places[first + j]]) + j * n] = 1.0;
      }
      sparse::solve(symbolic_, factor(), static_cast<Index>(some), x.data(), team);
      for (size_t j = 0; j < some; ++j) {
        const Index place = columns.places[first + j], col = symbolic_.permutation[place];
        for (; next != offPattern.end() && columns.placeOf(*next) == place; ++next) {
          const Index row = symbolic_.permutation[columns.high ? next->low : next->high];
          values[next->answer] = unscaled(x[static_cast<size_t>(row) + j * n], row, col);
        }
      }
    }
  };
  const auto fromPanels = [&] {
    const Means means = meansToInvert("inverting a part of", 0.0, held);
    std::sort(onPattern.begin(), onPattern.end(),
              [](const Request& a, const Request& b) { return a.low < b.low; });
    const auto read = [&](Index g, const double* z) {
      auto r = std::lower_bound(onPattern.begin(), onPattern.end(), symbolic_.firstColumn[g],
                                [](const Request& a, Index k) { return a.low < k; });
      for (; r != onPattern.end() && r->low < symbolic_.firstColumn[g + 1]; ++r) {
        values[r->answer] = unscaled(z[r->inPanel], rows[r->answer], cols[r->answer]);
      }
    };
    watch.begin("inverting", panels);
    korin::kernels::Team team(threads(), watch.poll());
    onDisk([&] {
      sparse::selectedInverse(symbolic_, factor(means.thrift), &wanted, read, team, watch.meter());
    });
  };

  if (blockCost(symbolic_, placesOf(all)) < panels + std::min(solves, offBlock)) {
    fromBlock(all);
    return;
  }
  if (!onPattern.empty()) fromPanels();
  if (offPattern.empty()) return;
  if (offBlock < solves) {
    fromBlock(offPattern);
  } else {
    fromSolves();
  }
}

}  // namespace zeph
