#include "zeph/general/scaling.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <utility>

namespace zeph {
namespace {

using zeph_solver::ProtoSparse;

constexpr int kMostPasses = 40;
constexpr int kNothing = INT_MIN;

template <class Use>
void forEachEntry(const ProtoSparse& m, const Use& use) {
  if (m.isDense()) return use(std::size_t{0}, std::size_t{0}, m.denseBlock->data[0]);
  for (const auto& e : m.elements) use(std::size_t{e.row}, std::size_t{e.col}, e.value);
}

// Halves the distance of every largest exponent to 0; false when all are there.
bool approach(const std::vector<int>& largest, std::vector<int>& scale) {
  bool moved = false;
  for (std::size_t i = 0; i < scale.size(); ++i) {
    if (largest[i] == kNothing || largest[i] / 2 == 0) continue;
    scale[i] -= largest[i] / 2;
    moved = true;
  }
  return moved;
}

Scaling byLargestEntries(const ProtoSparse& m) {
  Scaling s{std::vector<int>(m.rowCount, 0), std::vector<int>(m.colCount, 0)};
  std::vector<int> row, col;
  for (int pass = 0; pass < kMostPasses; ++pass) {
    row.assign(m.rowCount, kNothing);
    col.assign(m.colCount, kNothing);
    forEachEntry(m, [&](std::size_t r, std::size_t c, double value) {
      if (value == 0.0) return;
      const int exponent = std::ilogb(value) + s.row[r] + s.col[c];
      row[r] = std::max(row[r], exponent);
      col[c] = std::max(col[c], exponent);
    });
    const bool rowsMoved = approach(row, s.row);
    const bool colsMoved = approach(col, s.col);
    if (!rowsMoved && !colsMoved) break;
  }
  return s;
}

// The assignment of rows to columns with the least sum of costs -log2|a(i, j)|, by shortest
// augmenting paths. Its dual variables u and v are the logarithms of the scales:
// cost(i, j) - u(i) - v(j) >= 0, and 0 for the assigned entries.
class LargestProduct {
 public:
  explicit LargestProduct(const ProtoSparse& m)
      : n_(m.colCount),
        start_(n_ + 1, 0),
        u_(n_, kFar),
        v_(n_, kFar),
        columnOf_(n_, kNone),
        rowOf_(n_, kNone),
        distance_(n_, kFar),
        from_(n_, kNone) {
    for (const auto& e : m.elements) {
      if (e.value == 0.0) continue;
      ++start_[e.col + 1];
      row_.push_back(e.row);
      cost_.push_back(-std::log2(std::abs(e.value)));
    }
    for (std::size_t j = 0; j < n_; ++j) start_[j + 1] += start_[j];
    budget_ = kLongestSearch * (row_.size() + n_);
  }

  /// Nothing where no assignment exists or the budget is spent.
  std::optional<Scaling> find(bool symmetric) {
    assignCheapest();
    for (std::size_t j = 0; j < n_; ++j) {
      if (rowOf_[j] == kNone && !augment(j)) return std::nullopt;
    }
    Scaling s{std::vector<int>(n_), std::vector<int>(n_)};
    for (std::size_t i = 0; i < n_; ++i) {
      const double mean = 0.5 * (u_[i] + v_[i]);
      s.row[i] = static_cast<int>(std::lround(symmetric ? mean : u_[i]));
      s.col[i] = static_cast<int>(std::lround(symmetric ? mean : v_[i]));
    }
    return s;
  }

 private:
  static constexpr double kFar = std::numeric_limits<double>::infinity();
  static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t kLongestSearch = 200;  // times the entries

  double reduced(std::size_t p, std::size_t j) const { return cost_[p] - u_[row_[p]] - v_[j]; }

  void assignCheapest() {
    for (std::size_t j = 0; j < n_; ++j) {
      for (std::size_t p = start_[j]; p < start_[j + 1]; ++p) v_[j] = std::min(v_[j], cost_[p]);
      for (std::size_t p = start_[j]; p < start_[j + 1]; ++p) {
        u_[row_[p]] = std::min(u_[row_[p]], cost_[p] - v_[j]);
      }
    }
    for (std::size_t j = 0; j < n_; ++j) {
      for (std::size_t p = start_[j]; p < start_[j + 1] && rowOf_[j] == kNone; ++p) {
        if (columnOf_[row_[p]] != kNone || reduced(p, j) > 0.0) continue;
        rowOf_[j] = row_[p];
        columnOf_[row_[p]] = j;
      }
    }
  }

  // Dijkstra from an unassigned column over rows to the nearest unassigned one.
  bool augment(std::size_t column) {
    using Reached = std::pair<double, std::size_t>;
    std::priority_queue<Reached, std::vector<Reached>, std::greater<>> queue;
    std::vector<std::size_t> touched, settled;
    std::size_t j = column;
    std::size_t last = kNone;
    double length = 0.0;
    while (last == kNone) {
      if (budget_ < start_[j + 1] - start_[j]) return false;
      budget_ -= start_[j + 1] - start_[j];
      for (std::size_t p = start_[j]; p < start_[j + 1]; ++p) {
        const std::size_t i = row_[p];
        const double there = length + std::max(reduced(p, j), 0.0);
        if (there >= distance_[i]) continue;
        if (distance_[i] == kFar) touched.push_back(i);
        distance_[i] = there;
        from_[i] = j;
        queue.push({there, i});
      }
      while (!queue.empty() && queue.top().first > distance_[queue.top().second]) queue.pop();
      if (queue.empty()) return false;
      const std::size_t i = queue.top().second;
      length = queue.top().first;
      queue.pop();
      settled.push_back(i);
      if (columnOf_[i] == kNone) {
        last = i;
      } else {
        j = columnOf_[i];
      }
    }
    v_[column] += length;
    for (const std::size_t i : settled) {
      u_[i] -= length - distance_[i];
      if (i != last) v_[columnOf_[i]] += length - distance_[i];
    }
    for (const std::size_t i : touched) distance_[i] = kFar;
    for (std::size_t i = last; i != kNone;) {
      columnOf_[i] = from_[i];
      std::swap(i, rowOf_[from_[i]]);
    }
    return true;
  }

  std::size_t n_;
  std::vector<std::size_t> start_;
  std::vector<std::uint32_t> row_;
  std::vector<double> cost_;
  std::vector<double> u_, v_;
  std::vector<std::size_t> columnOf_, rowOf_;  // kNone where not assigned
  std::vector<double> distance_;
  std::vector<std::size_t> from_;
  std::size_t budget_ = 0;
};

}  // namespace

Scaling diagonalScaling(const ProtoSparse& m) {
  std::vector<int> scale(m.rowCount, 0);
  forEachEntry(m, [&](std::size_t row, std::size_t col, double value) {
    if (row != col || value == 0.0) return;
    scale[row] = -static_cast<int>(std::floor(0.5 * std::log2(std::abs(value)) + 0.5));
  });
  return {scale, scale};
}

Scaling equilibration(const ProtoSparse& m, bool symmetric) {
  if (!m.isDense()) {
    const std::optional<Scaling> s = LargestProduct(m).find(symmetric);
    if (s) return *s;
  }
  return byLargestEntries(m);
}

void applyScaling(const Scaling& s, ProtoSparse& m) {
  if (m.isDense()) {
    m.denseBlock->data[0] = std::ldexp(m.denseBlock->data[0], s.row[0] + s.col[0]);
    return;
  }
  for (auto& e : m.elements) e.value = std::ldexp(e.value, s.row[e.row] + s.col[e.col]);
}

}  // namespace zeph
