#include "sparse/pattern/compress.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace korin::sparse {
namespace {

/// The rows below the diagonal of column j.
struct Below {
  const Index* begin;
  const Index* end;
  auto size() const { return end - begin; }
};

Below below(const ColumnsView& lower, Index j) {
  const Index* begin = lower.row + lower.start[j];
  const Index* end = lower.row + lower.start[j + 1];
  if (begin != end && *begin == j) ++begin;
  return {begin, end};
}

/// starts[j] = 1 where unknown j cannot share a node with j - 1.
///
/// Two neighbouring unknowns are alike if column j is what column j - 1 has below its first entry,
/// and if no column before them has only one of the two.
std::vector<unsigned char> runStarts(const ColumnsView& lower) {
  const Index n = lower.cols;
  std::vector<unsigned char> starts(static_cast<std::size_t>(n) + 1, 0);
  starts[0] = 1;
  Below previous{nullptr, nullptr};
  for (Index j = 0; j < n; ++j) {
    const Below rows = below(lower, j);
    const bool alike = previous.size() == rows.size() + 1 && *previous.begin == j &&
                       std::equal(rows.begin, rows.end, previous.begin + 1);
    previous = rows;
    if (alike) continue;  // its rows break where those of column j - 1 do
    starts[j] = 1;
    Index last = j;
    for (const Index* r = rows.begin; r != rows.end; ++r) {
      if (*r != last + 1) starts[last + 1] = starts[*r] = 1;
      last = *r;
    }
    starts[last + 1] = 1;
  }
  return starts;
}

/// Graph of the nodes that begin at the marked unknowns.
Graph graphOfRuns(const ColumnsView& lower, const std::vector<Index>& first) {
  const auto nodes = static_cast<Index>(first.size() - 1);
  const bool trivial = nodes == lower.cols;
  std::vector<Index> nodeOf;
  Graph graph;
  graph.weight.resize(static_cast<std::size_t>(nodes));
  for (Index k = 0; k < nodes; ++k) graph.weight[k] = first[k + 1] - first[k];
  if (!trivial) {
    nodeOf.resize(static_cast<std::size_t>(lower.cols));
    for (Index k = 0; k < nodes; ++k) {
      std::fill(nodeOf.begin() + first[k], nodeOf.begin() + first[k + 1], k);
    }
  }
  // A column that has the first unknown of a node has them all: each node is met once.
  const auto forEachEdge = [&](auto&& edge) {
    for (Index k = 0; k < nodes; ++k) {
      const Below rows = below(lower, first[k]);
      const Index* r = rows.begin + (trivial ? 0 : graph.weight[k] - 1);
      while (r != rows.end) {
        const Index other = trivial ? *r : nodeOf[*r];
        edge(k, other);
        r += trivial ? 1 : graph.weight[other];
      }
    }
  };
  graph.start.assign(static_cast<std::size_t>(nodes) + 1, 0);
  forEachEdge([&](Index a, Index b) {
    ++graph.start[a + 1];
    ++graph.start[b + 1];
  });
  std::partial_sum(graph.start.begin(), graph.start.end(), graph.start.begin());
  graph.neighbour.resize(static_cast<std::size_t>(graph.start[nodes]));
  std::vector<Offset> next(graph.start.begin(), graph.start.end() - 1);
  // Ascending: the edges to smaller nodes come while those are walked, before the node's own.
  forEachEdge([&](Index a, Index b) {
    graph.neighbour[next[a]++] = b;
    graph.neighbour[next[b]++] = a;
  });
  return graph;
}

/// A random-looking 64-bit number for each node (the finaliser of Steele, Lea and Flood, 2014).
std::uint64_t scramble(std::uint64_t x) {
  x = (x + 1) * 0x9e3779b97f4a7c15U;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9U;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebU;
  return x ^ (x >> 31);
}

bool sameClosedNeighbourhood(const Graph& graph, Index a, Index b) {
  Offset p = graph.start[a], q = graph.start[b];
  const Offset pEnd = graph.start[a + 1], qEnd = graph.start[b + 1];
  if (pEnd - p != qEnd - q) return false;
  for (;; ++p, ++q) {
    if (p != pEnd && graph.neighbour[p] == b) ++p;
    if (q != qEnd && graph.neighbour[q] == a) ++q;
    if (p == pEnd || q == qEnd) return p == pEnd && q == qEnd;
    if (graph.neighbour[p] != graph.neighbour[q]) return false;
  }
}

/// For each node the first node with the same closed neighbourhood; empty if all differ. The last
/// `kept` nodes are like no other.
std::vector<Index> firstAlike(const Graph& graph, Index kept) {
  const Index nodes = graph.nodes();
  const Index last = nodes - kept;
  std::vector<std::uint64_t> hash(static_cast<std::size_t>(nodes));
  for (Index k = 0; k < nodes; ++k) {
    std::uint64_t sum = scramble(static_cast<std::uint64_t>(k));
    for (Offset p = graph.start[k]; p < graph.start[k + 1]; ++p) {
      sum += scramble(static_cast<std::uint64_t>(graph.neighbour[p]));
    }
    hash[k] = sum;
  }
  std::vector<Index> alike;
  for (Index k = 0; k < last; ++k) {
    if (!alike.empty() && alike[k] != k) continue;
    for (Offset p = graph.start[k + 1]; p-- > graph.start[k];) {
      const Index other = graph.neighbour[p];
      if (other < k) break;
      if (other >= last || hash[other] != hash[k] || !sameClosedNeighbourhood(graph, k, other))
        continue;
      if (alike.empty()) {
        alike.resize(static_cast<std::size_t>(nodes));
        std::iota(alike.begin(), alike.end(), Index{0});
      }
      alike[other] = k;
    }
  }
  return alike;
}

/// The graph of the nodes that stand for others, with those neighbours that do; `nodeOf` becomes
/// each node's number in it.
Graph quotient(const Graph& graph, const std::vector<Index>& alike, std::vector<Index>& nodeOf) {
  const Index nodes = graph.nodes();
  nodeOf.resize(static_cast<std::size_t>(nodes));
  Index count = 0;
  Graph result;
  for (Index k = 0; k < nodes; ++k) {
    if (alike[k] == k) {
      nodeOf[k] = count++;
      result.weight.push_back(graph.weight[k]);
    } else {
      nodeOf[k] = nodeOf[alike[k]];
      result.weight[nodeOf[k]] += graph.weight[k];
    }
  }
  for (Index k = 0; k < nodes; ++k) {
    if (alike[k] != k) continue;
    for (Offset p = graph.start[k]; p < graph.start[k + 1]; ++p) {
      const Index other = graph.neighbour[p];
      if (alike[other] == other) result.neighbour.push_back(nodeOf[other]);
    }
    result.start.push_back(static_cast<Offset>(result.neighbour.size()));
  }
  return result;
}

}  // namespace

CompressedGraph compress(const ColumnsView& lower, Compression compression, Index kept) {
  const Index n = lower.cols;
  std::vector<Index> first;
  if (compression == Compression::None) {
    first.resize(static_cast<std::size_t>(n) + 1);
    std::iota(first.begin(), first.end(), Index{0});
  } else {
    const std::vector<unsigned char> starts = runStarts(lower);
    for (Index j = 0; j < n; ++j) {
      if (starts[j] != 0 || j >= n - kept) first.push_back(j);
    }
    first.push_back(n);
  }
  CompressedGraph result;
  result.graph = graphOfRuns(lower, first);
  result.member.resize(static_cast<std::size_t>(n));
  std::vector<Index> alike;
  if (compression == Compression::All) alike = firstAlike(result.graph, kept);
  if (alike.empty()) {
    std::iota(result.member.begin(), result.member.end(), Index{0});
    result.memberStart = std::move(first);
    return result;
  }
  std::vector<Index> nodeOf;
  result.graph = quotient(result.graph, alike, nodeOf);
  result.memberStart.resize(result.graph.weight.size() + 1);
  std::partial_sum(result.graph.weight.begin(), result.graph.weight.end(),
                   result.memberStart.begin() + 1);
  std::vector<Index> next(result.memberStart.begin(), result.memberStart.end() - 1);
  for (std::size_t run = 0; run < nodeOf.size(); ++run) {
    for (Index j = first[run]; j < first[run + 1]; ++j) result.member[next[nodeOf[run]]++] = j;
  }
  return result;
}

}  // namespace korin::sparse
