#include "sparse/inverse/lu_inverse.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "kernels/block.h"
#include "kernels/copy_placed.h"
#include "kernels/panel_storage.h"
#include "kernels/products/fused_product.h"
#include "sparse/inverse/lu_groups.h"

namespace korin::sparse {
namespace {

using std::ptrdiff_t;
using std::size_t;

using kernels::Block;
using RoomForInverse = std::function<void(double held, double more)>;
using Indices = std::span<const int>;

// A column-major block that knows its size.
struct Panel : Block {
  size_t rows = 0;
  size_t cols = 0;

  Panel() = default;
  Panel(const Block& block, size_t r, size_t c) : Block(block), rows(r), cols(c) {}
  // At `data`, without gaps between its columns.
  Panel(double* data, size_t r, size_t c) : Panel({data, 1, static_cast<ptrdiff_t>(r)}, r, c) {}

  double* col(size_t j) const { return data + static_cast<ptrdiff_t>(j) * colStride; }
  double& operator()(size_t i, size_t j) const { return col(j)[i]; }
  size_t size() const { return rows * cols; }
  Panel colsFrom(size_t first, size_t count) const { return {at(0, first), rows, count}; }
  Panel rowsFrom(size_t first, size_t count) const { return {at(first, 0), count, cols}; }
};

void setZero(const Panel& block) {
  for (size_t j = 0; j < block.cols; ++j) std::fill_n(block.col(j), block.rows, 0.0);
}

// Memory for one block at a time. It is told the size of the largest beforehand: large blocks that
// grow in steps leave as many holes behind.
class Workspace {
 public:
  void require(size_t rows, size_t cols) { size_ = std::max(size_, rows * cols); }
  size_t size() const { return size_; }
  void allocate() { store_ = kernels::rawPanels(size_); }
  Panel shaped(size_t rows, size_t cols) const { return {store_.get(), rows, cols}; }

 private:
  kernels::PanelStorage store_;
  size_t size_ = 0;
};

// Up to this many multiplications a product is done by plain loops, without packing.
constexpr size_t kSmallProduct = 1000;
// Columns of Z22 gathered at a time: a strip of it stays in the cache for two products.
constexpr size_t kGatheredColumns = 192;
// Most pivots solved for by plain loops.
constexpr size_t kPlainSolve = 8;
// A list this many times as long as what is looked up in it is searched by bisection.
constexpr size_t kFewWanted = 16;

void subtractScaled(double* target, double factor, const double* source, size_t count) {
  if (factor == 0.0) return;
  for (size_t i = 0; i < count; ++i) target[i] -= factor * source[i];
}

double dot(const double* x, const double* y, size_t count) {
  double even = 0.0;
  double odd = 0.0;
  size_t i = 0;
  for (; i + 1 < count; i += 2) {
    even += x[i] * y[i];
    odd += x[i + 1] * y[i + 1];
  }
  if (i < count) even += x[i] * y[i];
  return even + odd;
}

// Whether a product is subtracted from what the target holds, or from zero.
enum class Write { Over, Subtract };

// C = [C] - A B by the dense kernels, where A is m x k and C is m x n.
void subtractByKernel(const Panel& c, Write write, size_t k, const Block& a, const Block& b) {
  kernels::fusedProduct(c.rows, c.cols, k, -1.0, a, b, write == Write::Over ? 0.0 : 1.0, c);
}

// C -= A B
void subtractProduct(const Panel& c, const Panel& a, const Panel& b) {
  if (a.size() * b.cols > kSmallProduct) {
    return subtractByKernel(c, Write::Subtract, a.cols, a, b);
  }
  for (size_t j = 0; j < b.cols; ++j) {
    for (size_t k = 0; k < a.cols; ++k) subtractScaled(c.col(j), b(k, j), a.col(k), a.rows);
  }
}

// C = [C] - A^T B
void subtractTransposedProduct(const Panel& c, Write write, const Panel& a, const Panel& b) {
  if (a.size() * b.cols > kSmallProduct)
    return subtractByKernel(c, write, a.rows, a.transposed(), b);
  if (write == Write::Over) setZero(c);
  for (size_t j = 0; j < b.cols; ++j) {
    for (size_t i = 0; i < a.cols; ++i) c(i, j) -= dot(a.col(i), b.col(j), a.rows);
  }
}

// Z on the transposed pattern of the groups, in their numbers of rows and columns.
class SelectedInverse {
 public:
  SelectedInverse(const LuFactors& factors, const RoomForInverse& room)
      : factors_(factors), groups_(luGroups(factors)), row_(factors.n), places_(factors.n) {
    layOut(room);
    for (int g = groups_.count() - 1; g >= 0; --g) invertGroup(g);
  }

  // Z(row, col) of L U as the factors number them; in the pattern of the groups.
  double at(int row, int col) const;

 private:
  // Z of one group's pivots: their columns, from the rows of the group itself (Z11) to those beyond
  // it (Z21), and the columns of their rows beyond the group (Z12).
  struct Known {
    Panel columns;
    Panel z12;
  };
  enum class Part { Lower, Upper };

  void layOut(const RoomForInverse& room);
  void invertGroup(int g);
  void load(int g);
  void loadBeyond(Part part, int g);
  void solve(size_t first, size_t end);
  void gatherColumns(Indices rows, Indices cols, const Panel& z22);
  void gatherRows(Indices rows, Indices cols, const Panel& z22);
  void findPlaces(Indices wanted, int t, Indices beyond);
  template <class Use>
  void forEachGroup(Indices list, Use use) const;

  const LuFactors& factors_;
  LuGroups groups_;
  kernels::PanelStorage store_;
  std::vector<Known> known_;

  // Of the group at hand: L11 and U11 in one square; -L11^-1 with Y below it; the transpose of
  // U11^-1 with the transpose of X below it.
  Panel lu11_, y_, xt_;
  Workspace lu11Store_, yStore_, xtStore_, z22Store_;
  // In y_ (or xt_) the row of each pivot that the group has beyond itself.
  std::vector<int> row_;
  // Places of a list's pivots among those of the group that is being read.
  std::vector<int> places_;
};

void SelectedInverse::layOut(const RoomForInverse& room) {
  known_.resize(static_cast<size_t>(groups_.count()));
  size_t total = 0;
  size_t listed = sizeof(int) * 6 * row_.size();
  for (int g = 0; g < groups_.count(); ++g) {
    Known& known = known_[g];
    listed += sizeof known + 2 * sizeof(std::vector<int>);
    const size_t width = static_cast<size_t>(groups_.width(g));
    const size_t below = groups_.below[g].size();
    const size_t right = groups_.right[g].size();
    listed += sizeof(int) * (below + right);
    known.columns = {nullptr, width + right, width};
    known.z12 = {nullptr, width, below};
    total += known.columns.size() + known.z12.size();
    lu11Store_.require(width, width);
    yStore_.require(width + below, width);
    xtStore_.require(width + right, width);
    z22Store_.require(right, std::min(below, kGatheredColumns));
  }
  Workspace* const workspaces[] = {&lu11Store_, &yStore_, &xtStore_, &z22Store_};
  size_t all = total;
  for (const Workspace* store : workspaces) all += store->size();
  if (room) room(static_cast<double>(listed), sizeof(double) * static_cast<double>(all));
  for (Workspace* store : workspaces) store->allocate();
  // Left uninitialised: every entry is written before it is read.
  store_ = kernels::rawPanels(total);
  double* next = store_.get();
  for (Known& known : known_) {
    for (Panel* block : {&known.columns, &known.z12}) {
      block->data = next;
      next += block->size();
    }
  }
}

void SelectedInverse::invertGroup(int g) {
  const size_t width = static_cast<size_t>(groups_.width(g));
  const Indices below = groups_.below[g];
  const Indices right = groups_.right[g];
  const Known& known = known_[g];
  load(g);
  solve(0, width);
  const Panel xt = xt_.rowsFrom(width, right.size());
  const Panel z21 = known.columns.rowsFrom(width, right.size());
  setZero(z21);
  for (size_t k = 0; k < below.size(); k += kGatheredColumns) {
    const Indices cols = below.subspan(k, std::min(kGatheredColumns, below.size() - k));
    const Panel z22 = z22Store_.shaped(right.size(), cols.size());
    gatherColumns(right, cols, z22);
    gatherRows(right, cols, z22);
    subtractProduct(z21, z22, y_.rowsFrom(width + k, cols.size()));
    subtractTransposedProduct(known.z12.colsFrom(k, cols.size()), Write::Over, xt, z22);
  }
  const Panel z11 = known.columns.rowsFrom(0, width);
  subtractTransposedProduct(z11, Write::Over, xt_.rowsFrom(0, width), y_.rowsFrom(0, width));
  subtractTransposedProduct(z11, Write::Subtract, xt, z21);
}

// The group's part of L and U as dense blocks, below the unit matrices that become the inverses of
// L11 (negative) and U11.
void SelectedInverse::load(int g) {
  const size_t width = static_cast<size_t>(groups_.width(g));
  lu11_ = lu11Store_.shaped(width, width);
  y_ = yStore_.shaped(width + groups_.below[g].size(), width);
  xt_ = xtStore_.shaped(width + groups_.right[g].size(), width);
  for (const Panel& block : {lu11_, y_, xt_}) setZero(block);
  for (size_t j = 0; j < width; ++j) {
    lu11_(j, j) = factors_.diagonal[groups_.pivot[groups_.first[g] + static_cast<int>(j)]];
    y_(j, j) = -1.0;
    xt_(j, j) = 1.0;
  }
  loadBeyond(Part::Lower, g);
  loadBeyond(Part::Upper, g);
}

void SelectedInverse::loadBeyond(Part part, int g) {
  const bool lower = part == Part::Lower;
  const Columns& lines = lower ? factors_.lower : factors_.upper;
  const Panel& target = lower ? y_ : xt_;
  const int first = groups_.first[g];
  const int end = groups_.first[g + 1];
  int row = end - first;
  for (int i : (lower ? groups_.below : groups_.right)[g]) row_[i] = row++;
  for (int j = first; j < end; ++j) {
    const int c = j - first;
    double* column = target.col(c);
    const int pivot = groups_.pivot[j];
    for (Offset p = lines.start[pivot]; p < lines.start[pivot + 1]; ++p) {
      const int i = groups_.position[lines.row[p]];
      if (i >= end) {
        column[row_[i]] = lines.value[p];
      } else {
        (lower ? lu11_(i - first, c) : lu11_(c, i - first)) = lines.value[p];
      }
    }
  }
}

// Y L11 = L21 and U11 X = U12 in place, with what stands above them, for the pivots first .. end-1,
// when those behind are done and their part has been subtracted: by halves, so that most of it is
// products.
void SelectedInverse::solve(size_t first, size_t end) {
  if (end - first > kPlainSolve) {
    const size_t middle = first + (end - first) / 2;
    const size_t rest = end - middle;
    solve(middle, end);
    subtractByKernel(y_.colsFrom(first, middle - first), Write::Subtract, rest, y_.at(0, middle),
                     lu11_.at(middle, first));
    subtractByKernel(xt_.colsFrom(first, middle - first), Write::Subtract, rest, xt_.at(0, middle),
                     lu11_.at(first, middle).transposed());
    solve(first, middle);
    return;
  }
  for (size_t j = end; j-- > first;) {
    for (size_t m = j + 1; m < end; ++m) {
      subtractScaled(y_.col(j), lu11_(m, j), y_.col(m), y_.rows);
      subtractScaled(xt_.col(j), lu11_(j, m), xt_.col(m), xt_.rows);
    }
    for (size_t i = 0; i < xt_.rows; ++i) xt_(i, j) /= lu11_(j, j);
  }
}

// Index of the first element of list[from ...] that is not before pivot `end`.
size_t firstFrom(Indices list, size_t from, int end) {
  while (from < list.size() && list[from] < end) ++from;
  return from;
}

// use(t, k, kEnd) for each group t that has pivots in an ascending list: list[k] .. list[kEnd - 1].
template <class Use>
void SelectedInverse::forEachGroup(Indices list, Use use) const {
  for (size_t k = 0, kEnd = 0; k < list.size(); k = kEnd) {
    const int t = groups_.groupOf[list[k]];
    kEnd = firstFrom(list, k, groups_.first[t + 1]);
    use(t, k, kEnd);
  }
}

// places_[i] = place of wanted[i] among the pivots of group t and, behind them, the list of what it
// has beyond them. These hold all that is wanted; all three ascend.
void SelectedInverse::findPlaces(Indices wanted, int t, Indices beyond) {
  const int first = groups_.first[t];
  const int width = groups_.width(t);
  size_t i = 0;
  for (; i < wanted.size() && wanted[i] < first + width; ++i) places_[i] = wanted[i] - first;
  const bool few = (wanted.size() - i) * kFewWanted < beyond.size();
  auto at = beyond.begin();
  for (; i < wanted.size(); ++i) {
    if (few) at = std::lower_bound(at, beyond.end(), wanted[i]);
    while (*at != wanted[i]) ++at;
    places_[i] = width + static_cast<int>(at - beyond.begin());
  }
}

// Z22(i, k) = Z(rows[i], cols[k]) where the row lies in the column's group t or in a later one:
// entries of t's columns.
void SelectedInverse::gatherColumns(Indices rows, Indices cols, const Panel& z22) {
  size_t i = 0;
  forEachGroup(cols, [&](int t, size_t k, size_t kEnd) {
    const int first = groups_.first[t];
    const Panel& columns = known_[t].columns;
    i = firstFrom(rows, i, first);
    findPlaces(rows.subspan(i), t, groups_.right[t]);
    for (; k < kEnd; ++k) {
      const int next = k + 1 < kEnd ? cols[k + 1] - cols[k] : 0;
      kernels::copyPlaced(columns.col(static_cast<size_t>(cols[k] - first)),
                          static_cast<size_t>(next) * columns.rows, places_.data(), rows.size() - i,
                          z22.col(k) + i);
    }
  });
}

// Z22(i, k) = Z(rows[i], cols[k]) where the column lies in a later group than the row's, t: entries
// of t's rows.
void SelectedInverse::gatherRows(Indices rows, Indices cols, const Panel& z22) {
  size_t later = 0;
  forEachGroup(rows, [&](int t, size_t i, size_t iEnd) {
    const int first = groups_.first[t];
    const int width = groups_.width(t);
    later = firstFrom(cols, later, first + width);
    findPlaces(cols.subspan(later), t, groups_.below[t]);
    const bool consecutive = static_cast<size_t>(rows[iEnd - 1] - rows[i]) == iEnd - 1 - i;
    for (size_t k = later; k < cols.size(); ++k) {
      const double* z12 = known_[t].z12.col(static_cast<size_t>(places_[k - later] - width));
      if (consecutive) {
        std::copy_n(z12 + (rows[i] - first), iEnd - i, z22.col(k) + i);
      } else {
        for (size_t r = i; r < iEnd; ++r) z22(r, k) = z12[rows[r] - first];
      }
    }
  });
}

// Position of an index that is in an ascending list.
size_t positionIn(Indices list, int index) {
  return static_cast<size_t>(std::lower_bound(list.begin(), list.end(), index) - list.begin());
}

double SelectedInverse::at(int rowOfFactors, int colOfFactors) const {
  const int row = groups_.position[rowOfFactors];
  const int col = groups_.position[colOfFactors];
  const int g = std::min(groups_.groupOf[row], groups_.groupOf[col]);
  const int first = groups_.first[g];
  const int end = groups_.first[g + 1];
  const Known& known = known_[g];
  if (row < end && col < end) return known.columns(row - first, col - first);
  if (col < end) {
    return known.columns(known.columns.cols + positionIn(groups_.right[g], row), col - first);
  }
  return known.z12(row - first, positionIn(groups_.below[g], col));
}

}  // namespace

void luInverseDiagonal(const LuFactors& factors, double* diagonal, const RoomForInverse& room) {
  const SelectedInverse inverse(factors, room);
  for (int i = 0; i < factors.n; ++i) {
    // A^-1 = Q Z P R
    const int row = factors.colPosition[i];
    const int col = factors.rowPosition[i];
    diagonal[i] = inverse.at(row, col) * factors.rowScale[i];
  }
}

}  // namespace korin::sparse
