#include "solver/lu_inverse.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "math/kernels/fused_product.h"
#include "solver/lu_groups.h"

namespace zeph_solver {
namespace {

using std::ptrdiff_t;
using std::size_t;

// Column-major view: column j starts at data + j * rows.
struct Block {
  double* data = nullptr;
  size_t rows = 0;
  size_t cols = 0;

  double* col(size_t j) const { return data + j * rows; }
  double& operator()(size_t i, size_t j) const { return data[j * rows + i]; }
  size_t size() const { return rows * cols; }
  void zero() const { std::fill_n(data, size(), 0.0); }
};

// Workspace that grows to the largest block asked for.
class Workspace {
 public:
  Block shaped(size_t rows, size_t cols) {
    if (store_.size() < rows * cols) store_.resize(rows * cols);
    return {store_.data(), rows, cols};
  }

 private:
  std::vector<double> store_;
};

// Up to this many multiplications a product is done by plain loops, without packing.
constexpr size_t kSmallProduct = 4096;

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

// C = -A B
void setNegatedProduct(const Block& c, const Block& a, const Block& b) {
  if (a.size() * b.cols > kSmallProduct) {
    korin::kernels::fusedProduct(
        a.rows, b.cols, a.cols, -1.0, a.data, 1, static_cast<ptrdiff_t>(a.rows), b.data, 1,
        static_cast<ptrdiff_t>(b.rows), 0.0, c.data, 1, static_cast<ptrdiff_t>(c.rows));
    return;
  }
  c.zero();
  for (size_t j = 0; j < b.cols; ++j) {
    for (size_t k = 0; k < a.cols; ++k) subtractScaled(c.col(j), b(k, j), a.col(k), a.rows);
  }
}

// C = beta C - A^T B, beta 0 or 1
void subtractTransposedProduct(const Block& c, double beta, const Block& a, const Block& b) {
  if (a.size() * b.cols > kSmallProduct) {
    korin::kernels::fusedProduct(
        a.cols, b.cols, a.rows, -1.0, a.data, static_cast<ptrdiff_t>(a.rows), 1, b.data, 1,
        static_cast<ptrdiff_t>(b.rows), beta, c.data, 1, static_cast<ptrdiff_t>(c.rows));
    return;
  }
  if (beta == 0.0) c.zero();
  for (size_t j = 0; j < b.cols; ++j) {
    for (size_t i = 0; i < a.cols; ++i) c(i, j) -= dot(a.col(i), b.col(j), a.rows);
  }
}

// Z on the transposed pattern of the groups.
class SelectedInverse {
 public:
  explicit SelectedInverse(const LuFactors& factors)
      : factors_(factors), groups_(luGroups(factors)) {
    layOut();
    for (int g = groups_.count() - 1; g >= 0; --g) invertGroup(g);
  }

  // Address of Z(row, col); null outside the pattern.
  const double* find(int row, int col) const;

 private:
  // Z of one group's pivots: their square, the rows of their columns beyond it (Z21), and the
  // columns of their rows beyond it (Z12).
  struct Known {
    Block square;
    Block z21;
    Block z12;
  };

  void layOut();
  void invertGroup(int g);
  void load(int g);
  void loadBeyond(const CompressedLines& lines, int g, const std::vector<int>& beyond, bool lower,
                  const Block& target);
  void solveBeyond();
  void invertSquare(const Block& result);
  void gatherColumns(const std::vector<int>& rows, const std::vector<int>& cols);
  void gatherRows(const std::vector<int>& rows, const std::vector<int>& cols);
  void locate(const std::vector<int>& wanted, size_t from, const std::vector<int>& list);

  const LuFactors& factors_;
  LuGroups groups_;
  std::unique_ptr<double[]> store_;
  std::vector<Known> known_;

  // Of the group at hand: L11 and U11 in one square, Y, the transpose of X, and Z22.
  Block lu11_, y_, xt_, z22_;
  Workspace lu11Store_, yStore_, xtStore_, z22Store_;
  std::vector<size_t> place_;
};

void SelectedInverse::layOut() {
  known_.resize(static_cast<size_t>(groups_.count()));
  size_t total = 0;
  for (int g = 0; g < groups_.count(); ++g) {
    Known& known = known_[g];
    const size_t width = static_cast<size_t>(groups_.width(g));
    known.square = {nullptr, width, width};
    known.z21 = {nullptr, groups_.right[g].size(), width};
    known.z12 = {nullptr, width, groups_.below[g].size()};
    total += known.square.size() + known.z21.size() + known.z12.size();
  }
  // Left uninitialised: every entry is written before it is read.
  store_ = std::make_unique_for_overwrite<double[]>(total);
  double* next = store_.get();
  for (Known& known : known_) {
    for (Block* block : {&known.square, &known.z21, &known.z12}) {
      block->data = next;
      next += block->size();
    }
  }
}

void SelectedInverse::invertGroup(int g) {
  const std::vector<int>& below = groups_.below[g];
  const std::vector<int>& right = groups_.right[g];
  const Known& known = known_[g];
  load(g);
  solveBeyond();
  z22_ = z22Store_.shaped(right.size(), below.size());
  gatherColumns(right, below);
  gatherRows(right, below);
  setNegatedProduct(known.z21, z22_, y_);
  subtractTransposedProduct(known.z12, 0.0, xt_, z22_);
  invertSquare(known.square);
  subtractTransposedProduct(known.square, 1.0, xt_, known.z21);
}

// The group's part of L and U as dense blocks.
void SelectedInverse::load(int g) {
  const int first = groups_.first[g];
  const size_t width = static_cast<size_t>(groups_.width(g));
  lu11_ = lu11Store_.shaped(width, width);
  lu11_.zero();
  for (size_t j = 0; j < width; ++j) lu11_(j, j) = factors_.diagonal[first + j];
  y_ = yStore_.shaped(groups_.below[g].size(), width);
  xt_ = xtStore_.shaped(groups_.right[g].size(), width);
  loadBeyond(factors_.lower, g, groups_.below[g], true, y_);
  loadBeyond(factors_.upper, g, groups_.right[g], false, xt_);
}

void SelectedInverse::loadBeyond(const CompressedLines& lines, int g,
                                 const std::vector<int>& beyond, bool lower, const Block& target) {
  const int first = groups_.first[g];
  const int end = groups_.first[g + 1];
  target.zero();
  for (int j = first; j < end; ++j) {
    const size_t c = static_cast<size_t>(j - first);
    size_t r = 0;
    for (int p = lines.start[j]; p < lines.start[j + 1]; ++p) {
      const int index = lines.index[p];
      if (index < end) {
        const size_t inside = static_cast<size_t>(index - first);
        (lower ? lu11_(inside, c) : lu11_(c, inside)) = lines.value[p];
      } else {
        while (beyond[r] != index) ++r;
        target(r, c) = lines.value[p];
      }
    }
  }
}

// Y L11 = L21 and U11 X = U12 in place, from the last pivot to the first.
void SelectedInverse::solveBeyond() {
  const size_t width = lu11_.rows;
  for (size_t j = width; j-- > 0;) {
    for (size_t m = j + 1; m < width; ++m) {
      subtractScaled(y_.col(j), lu11_(m, j), y_.col(m), y_.rows);
      subtractScaled(xt_.col(j), lu11_(j, m), xt_.col(m), xt_.rows);
    }
    for (size_t i = 0; i < xt_.rows; ++i) xt_(i, j) /= lu11_(j, j);
  }
}

// U11^-1 L11^-1: the columns of the unit matrix solved with L11, then with U11.
void SelectedInverse::invertSquare(const Block& result) {
  const size_t width = lu11_.rows;
  result.zero();
  for (size_t c = 0; c < width; ++c) {
    double* x = result.col(c);
    x[c] = 1.0;
    for (size_t j = c; j < width; ++j) {
      subtractScaled(x + j + 1, x[j], lu11_.col(j) + j + 1, width - j - 1);
    }
    for (size_t j = width; j-- > 0;) {
      x[j] /= lu11_(j, j);
      subtractScaled(x, x[j], lu11_.col(j), j);
    }
  }
}

// place_[i] = position in `list` of wanted[from + i]; `list` holds all of them.
void SelectedInverse::locate(const std::vector<int>& wanted, size_t from,
                             const std::vector<int>& list) {
  place_.resize(wanted.size() - from);
  size_t p = 0;
  for (size_t i = from; i < wanted.size(); ++i) {
    while (list[p] != wanted[i]) ++p;
    place_[i - from] = p;
  }
}

// End of the run of list[from ...] that lies before pivot `end`.
size_t runEnd(const std::vector<int>& list, size_t from, int end) {
  while (from < list.size() && list[from] < end) ++from;
  return from;
}

// The part of Z22 whose row lies in the column's group or in a later one.
void SelectedInverse::gatherColumns(const std::vector<int>& rows, const std::vector<int>& cols) {
  size_t firstRow = 0;
  for (size_t k = 0, kEnd = 0; k < cols.size(); k = kEnd) {
    const int t = groups_.groupOf[cols[k]];
    const int first = groups_.first[t];
    const Known& known = known_[t];
    kEnd = runEnd(cols, k, groups_.first[t + 1]);
    firstRow = runEnd(rows, firstRow, first);
    const size_t beyond = runEnd(rows, firstRow, groups_.first[t + 1]);
    locate(rows, beyond, groups_.right[t]);
    for (size_t c = k; c < kEnd; ++c) {
      const size_t pivot = static_cast<size_t>(cols[c] - first);
      const double* square = known.square.col(pivot);
      const double* z21 = known.z21.col(pivot);
      double* target = z22_.col(c);
      for (size_t i = firstRow; i < beyond; ++i) target[i] = square[rows[i] - first];
      target += beyond;
      for (size_t i = 0; i < place_.size(); ++i) target[i] = z21[place_[i]];
    }
  }
}

// The part of Z22 whose column lies in a later group than the row.
void SelectedInverse::gatherRows(const std::vector<int>& rows, const std::vector<int>& cols) {
  size_t beyond = 0;
  for (size_t i = 0, iEnd = 0; i < rows.size(); i = iEnd) {
    const int t = groups_.groupOf[rows[i]];
    const int first = groups_.first[t];
    iEnd = runEnd(rows, i, groups_.first[t + 1]);
    beyond = runEnd(cols, beyond, groups_.first[t + 1]);
    locate(cols, beyond, groups_.below[t]);
    for (size_t k = 0; k < place_.size(); ++k) {
      const double* z12 = known_[t].z12.col(place_[k]);
      double* target = z22_.col(beyond + k);
      for (size_t r = i; r < iEnd; ++r) target[r] = z12[rows[r] - first];
    }
  }
}

// Position of `wanted` in an ascending list, or the list's size.
size_t search(const std::vector<int>& list, int wanted) {
  const auto it = std::lower_bound(list.begin(), list.end(), wanted);
  return it != list.end() && *it == wanted ? static_cast<size_t>(it - list.begin()) : list.size();
}

const double* SelectedInverse::find(int row, int col) const {
  const int g = std::min(groups_.groupOf[row], groups_.groupOf[col]);
  const int first = groups_.first[g];
  const int end = groups_.first[g + 1];
  const Known& known = known_[g];
  if (row < end && col < end) return &known.square(row - first, col - first);
  if (col < end) {
    const size_t r = search(groups_.right[g], row);
    return r < known.z21.rows ? &known.z21(r, col - first) : nullptr;
  }
  const size_t c = search(groups_.below[g], col);
  return c < known.z12.cols ? &known.z12(row - first, c) : nullptr;
}

// One entry of Z by the pair of solves L a = e(col), U^T b = e(row): Z(row, col) = b . a.
class SingleEntry {
 public:
  explicit SingleEntry(const LuFactors& factors)
      : factors_(factors), a_(factors.n, 0.0), b_(factors.n, 0.0) {}

  double operator()(int row, int col) {
    a_[col] = 1.0;
    b_[row] = 1.0;
    double sum = 0.0;
    for (int j = std::min(row, col); j < factors_.n; ++j) {
      b_[j] /= factors_.diagonal[j];
      eliminate(factors_.lower, a_, j);
      eliminate(factors_.upper, b_, j);
      sum += a_[j] * b_[j];
      a_[j] = b_[j] = 0.0;
    }
    return sum;
  }

 private:
  static void eliminate(const CompressedLines& lines, std::vector<double>& x, int j) {
    if (x[j] == 0.0) return;
    for (int p = lines.start[j]; p < lines.start[j + 1]; ++p) {
      x[lines.index[p]] -= x[j] * lines.value[p];
    }
  }

  const LuFactors& factors_;
  std::vector<double> a_;
  std::vector<double> b_;
};

}  // namespace

void luInverseDiagonal(const LuFactors& factors, double* diagonal) {
  const SelectedInverse inverse(factors);
  SingleEntry solveFor(factors);
  for (int i = 0; i < factors.n; ++i) {
    // A^-1 = Q Z P R
    const int row = factors.colPosition[i];
    const int col = factors.rowPosition[i];
    const double* known = inverse.find(row, col);
    diagonal[i] = (known != nullptr ? *known : solveFor(row, col)) * factors.rowScale[i];
  }
}

}  // namespace zeph_solver
