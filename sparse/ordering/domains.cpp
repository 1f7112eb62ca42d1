#include "sparse/ordering/domains.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <new>
#include <numeric>
#include <utility>

#include "sparse/ordering/subgraph.h"
#include "sparse/pattern/compress.h"

namespace korin::sparse {
namespace {

/// A cut that leaves more than this share of the nodes on one side gains too little.
constexpr double kLargestDomainSide = 0.9;

/// Another cut is worth it from this share of the work on that the busiest has too much, and from
/// so many operations an unknown: with variances, which take twice as many again, somewhat more
/// than a microsecond, as cutting and ordering does.
constexpr double kUnbalanced = 0.2;
constexpr double kWorthCutting = 1e4;

/// A largest set of edges between the two halves without a common end.
class Matching {
 public:
  Matching(const Graph& graph, const std::vector<Side>& sides)
      : graph_(graph),
        sides_(sides),
        partner_(sides.size(), kNone),
        level_(sides.size()),
        next_(sides.size()) {
    for (Index k = 0; k < graph.nodes(); ++k) {
      if (sides[k] == Side::Left && hasCutEdge(k)) left_.push_back(k);
    }
    while (findLevels()) {
      for (const Index k : left_) next_[k] = graph.start[k];
      for (const Index k : left_) {
        if (partner_[k] == kNone) augment(k);
      }
    }
  }

  /// Calls use(node) for a smallest set of nodes with an end of every edge: those on the left that
  /// no alternating path from a node without partner reaches, and those on the right that one does.
  template <class Use>
  void forCover(Use use) const {
    for (const Index k : left_) {
      if (level_[k] == kNone) {
        use(k);
      } else {
        forCutEdges(k, use);
      }
    }
  }

 private:
  template <class Use>
  void forCutEdges(Index k, Use use) const {
    for (Offset p = graph_.start[k]; p < graph_.start[k + 1]; ++p) {
      if (sides_[graph_.neighbour[p]] == Side::Right) use(graph_.neighbour[p]);
    }
  }

  bool hasCutEdge(Index k) const {
    bool found = false;
    forCutEdges(k, [&](Index) { found = true; });
    return found;
  }

  /// Levels of alternating paths from the nodes without partner; whether one ends in another such.
  bool findLevels() {
    bool found = false;
    std::vector<Index> reached;
    for (const Index k : left_) {
      level_[k] = partner_[k] == kNone ? 0 : kNone;
      if (level_[k] == 0) reached.push_back(k);
    }
    for (std::size_t i = 0; i < reached.size(); ++i) {
      const Index k = reached[i];
      forCutEdges(k, [&](Index other) {
        const Index beyond = partner_[other];
        if (beyond == kNone) {
          found = true;
        } else if (level_[beyond] == kNone) {
          level_[beyond] = level_[k] + 1;
          reached.push_back(beyond);
        }
      });
    }
    return found;
  }

  /// Searches a path from this node on along ascending levels and changes partners on it.
  void augment(Index from) {
    std::vector<Index> path{from};
    while (!path.empty()) {
      const Index k = path.back();
      if (next_[k] == graph_.start[k + 1]) {
        path.pop_back();
        continue;
      }
      const Index other = graph_.neighbour[next_[k]++];
      if (sides_[other] != Side::Right) continue;
      const Index beyond = partner_[other];
      if (beyond == kNone) {
        for (const Index node : path) {
          partner_[node] = graph_.neighbour[next_[node] - 1];
          partner_[partner_[node]] = node;
        }
        return;
      }
      if (level_[beyond] == level_[k] + 1) path.push_back(beyond);
    }
  }

  const Graph& graph_;
  const std::vector<Side>& sides_;
  std::vector<Index> left_;
  std::vector<Index> partner_;
  std::vector<Index> level_;
  std::vector<Offset> next_;
};

/// Halves without a thought to edges, of which there are none.
std::vector<Side> splitWeight(const Graph& graph, double share) {
  const double all = std::accumulate(graph.weight.begin(), graph.weight.end(), 0.0);
  std::vector<Side> sides(graph.weight.size(), Side::Right);
  double before = 0.0;
  for (std::size_t k = 0; k < sides.size() && before < share * all; ++k) {
    sides[k] = Side::Left;
    before += graph.weight[k];
  }
  return sides;
}

/// Two sides, Left for `left` of `count` domains, and what separates them.
std::vector<Side> cut(const Graph& graph, Index left, Index count) {
  const double share = static_cast<double>(left) / count;
  if (graph.neighbour.empty()) return splitWeight(graph, share);
  if (2 * left == count) return separate(graph, Balance::Tight);
  std::vector<Side> sides = bisect(graph, share);
  separateHalves(graph, sides);
  return sides;
}

/// A part of the graph for the domains first .. first+count-1.
struct Task {
  Subgraph part;
  Index first;
  Index count;
};

void weigh(CompressedGraph& compressed, const std::vector<Index>& before,
           const std::vector<double>& share) {
  for (std::size_t node = 0; node < compressed.graph.weight.size(); ++node) {
    const Index domain = before[compressed.member[compressed.memberStart[node]]];
    if (domain == kInterface) continue;
    Index& weight = compressed.graph.weight[node];
    weight = static_cast<Index>(std::lround(weight * share[static_cast<std::size_t>(domain)]));
  }
}

}  // namespace

void separateHalves(const Graph& graph, std::vector<Side>& sides) {
  std::vector<Index> cover;
  Matching(graph, sides).forCover([&](Index k) { cover.push_back(k); });
  for (const Index k : cover) sides[k] = Side::Separator;
}

std::vector<Index> cutIntoDomains(const Graph& graph, Index domains) {
  if (!canDissect(graph)) throw std::bad_alloc();
  std::vector<Index> domainOf(graph.weight.size(), kInterface), place(graph.weight.size());
  std::vector<Task> waiting;
  waiting.push_back({wholeOf(graph), 0, domains});
  while (!waiting.empty()) {
    const Task task = std::move(waiting.back());
    waiting.pop_back();
    const Subgraph& part = task.part;
    const Index nodes = part.graph.nodes();
    const Index left = task.count / 2;
    std::vector<Side> sides(part.node.size(), Side::Left);
    if (task.count > 1 && nodes > 1) sides = cut(part.graph, left, task.count);
    const auto onLeft = std::count(sides.begin(), sides.end(), Side::Left);
    const auto onRight = std::count(sides.begin(), sides.end(), Side::Right);
    if (static_cast<double>(std::max(onLeft, onRight)) >= kLargestDomainSide * nodes) {
      for (const Index node : part.node) domainOf[node] = task.first;
      continue;
    }
    waiting.push_back({sideOf(part, sides, Side::Left, place), task.first, left});
    waiting.push_back(
        {sideOf(part, sides, Side::Right, place), task.first + left, task.count - left});
  }
  return domainOf;
}

std::vector<Index> cutUnknowns(const ColumnsView& lower, Index domains,
                               const std::vector<Index>* before, const std::vector<double>& share) {
  CompressedGraph compressed = compress(lower, Compression::All);
  if (before != nullptr) weigh(compressed, *before, share);
  const std::vector<Index> domain = cutIntoDomains(compressed.graph, domains);
  std::vector<Index> domainOf(static_cast<std::size_t>(lower.cols));
  for (std::size_t node = 0; node < domain.size(); ++node) {
    for (Index m = compressed.memberStart[node]; m < compressed.memberStart[node + 1]; ++m) {
      domainOf[compressed.member[m]] = domain[node];
    }
  }
  return domainOf;
}

bool worthAnotherCut(double most, double mean, double unknowns) {
  const double spare = most - mean;
  return spare >= kUnbalanced * most && spare >= kWorthCutting * unknowns;
}

std::vector<double> sharesForLikeWork(const std::vector<DomainWork>& work) {
  std::vector<double> shares;
  double least = std::numeric_limits<double>::infinity();
  for (const DomainWork& w : work) {
    // Work grows with the power 1.5 to 2 of a part's unknowns.
    shares.push_back(std::pow(w.operations / std::max(1.0, w.unknowns), 2.0 / 3.0));
    if (w.unknowns > 0.0) least = std::min(least, shares.back());
  }
  for (double& s : shares) s = std::clamp(s / least, 1.0, kMostShare);
  return shares;
}

}  // namespace korin::sparse
