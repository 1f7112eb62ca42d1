// Products of korin::Matrix: the choice of kernel, and products through non-zero lists.
#include <algorithm>
#include <cstddef>
#include <vector>

#include "kernels/products/block_product.h"
#include "kernels/products/ordered_product.h"
#include "kernels/products/overlap.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_rows.h"
#include "math/dense/korin_sparse_info.h"

namespace korin {
namespace {

using kernels::kBlockedLimit;

bool isLarge(const ZtMatrix& result, ZtSize inner) {
  return result.rows > kBlockedLimit && result.cols > kBlockedLimit && inner > kBlockedLimit;
}

bool overlap(const ZtMatrix& x, const ZtMatrix& y) {
  return kernels::overlap({x.data, x.rows, x.cols, x.stride}, {y.data, y.rows, y.cols, y.stride});
}

// The lists of m that a product reads: those of info, or of a copy made here where info was built
// without them.
class ListsOf {
 public:
  ListsOf(const ZtMatrix& m, const SparseInfo& info, bool rowLists)
      : info_(&info), rowLists_(rowLists) {
    if (rowLists ? info.hasRowLists() : info.hasColLists()) return;
    own_.update(m, rowLists, !rowLists);
    info_ = &own_;
  }
  ListsOf(const ListsOf&) = delete;
  ListsOf& operator=(const ListsOf&) = delete;
  const ZtSize* operator[](ZtSize i) const {
    return rowLists_ ? info_->rowList(i) : info_->colList(i);
  }

 private:
  SparseInfo own_;
  const SparseInfo* info_;
  bool rowLists_;
};

// The non-zero elements of a matrix row by row: entries first[r] .. first[r + 1] - 1.
struct NonZeroRows {
  struct Entry {
    ZtSize col;
    ZtReal value;
  };
  std::vector<ZtSize> first;
  std::vector<Entry> entries;

  explicit NonZeroRows(const ZtMatrix& m) : first(m.rows + 1, 0) {
    for (ZtSize r = 0; r < m.rows; ++r) {
      const ZtReal* row = rowOf(m, r);
      for (ZtSize c = 0; c < m.cols; ++c) {
        if (row[c] != 0.0) entries.push_back({c, row[c]});
      }
      first[r + 1] = entries.size();
    }
  }
};

}  // namespace

void Matrix::setMatMulMat(const ZtMatrix& a, const ZtMatrix& b) {
  if (isLarge(*this, a.cols)) {
    setMatMulMatBlocked(a, b);
  } else {
    setMatMulMatTrivial(a, b, 0);
  }
}

void Matrix::setMatMulMatTrivial(const ZtMatrix& a, const ZtMatrix& b, unsigned char) {
  kernels::loopProduct(rows, cols, a.cols, a.data, step(a), b.data, step(b), data, step(*this));
}

void Matrix::setMatMulMatBlocked(const ZtMatrix& a, const ZtMatrix& b) {
  kernels::blockProduct(a.rows, b.cols, a.cols, a.data, step(a), b.data, step(b), data,
                        step(*this));
}

void Matrix::setMatMulTransMat(const ZtMatrix& a, const ZtMatrix& b) {
  if (isLarge(*this, a.cols)) {
    setMatMulTransMatBlocked(a, b);
  } else {
    setMatMulTransMatTrivial(a, b);
  }
}

void Matrix::setMatMulTransMatTrivial(const ZtMatrix& a, const ZtMatrix& b) {
  if (!overlap(*this, a) && !overlap(*this, b)) {
    return kernels::orderedProductTransposed(rows, cols, a.cols, a.data, step(a), b.data, step(b),
                                             data, step(*this));
  }
  // Elements are stored one by one, so that later ones see them through the overlap.
  for (ZtSize i = 0; i < rows; ++i) {
    for (ZtSize j = 0; j < cols; ++j) {
      ZtReal sum = 0.0;
      for (ZtSize p = 0; p < a.cols; ++p) sum += rowOf(a, i)[p] * rowOf(b, j)[p];
      rowOf(*this, i)[j] = sum;
    }
  }
}

void Matrix::setMatMulTransMatBlocked(const ZtMatrix& a, const ZtMatrix& b) {
  Matrix transposed;
  transposed.changeSize(b.cols, b.rows);  // keeps the shape where the constructor makes 0 x 0
  transposed.setTransposeOf(b);
  setMatMulMatBlocked(a, transposed);
}

// Row i of the result gathers multiples of b's rows in increasing p, so each element receives the
// same terms in the same order as from a merge of a's row list with b's column list, at a cost
// proportional to the terms. Both operands are copied first: this may overlap them.
void Matrix::setMatMulMatSparse(const ZtMatrix& a, const ZtMatrix& b) {
  const NonZeroRows left(a);
  const NonZeroRows right(b);
  for (ZtSize i = 0; i < a.rows; ++i) {
    ZtReal* out = rowOf(*this, i);
    std::fill_n(out, b.cols, 0.0);
    for (ZtSize e = left.first[i]; e < left.first[i + 1]; ++e) {
      const auto [p, value] = left.entries[e];
      if (p >= b.rows) break;
      for (ZtSize f = right.first[p]; f < right.first[p + 1]; ++f) {
        out[right.entries[f].col] += value * right.entries[f].value;
      }
    }
  }
}

void Matrix::setMatMulMat(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
                          const SparseInfo& bInfo) {
  const ListsOf aRows(a, aInfo, true);
  const ListsOf bCols(b, bInfo, false);
  for (ZtSize i = 0; i < rows; ++i) {
    for (ZtSize j = 0; j < cols; ++j) {
      rowOf(*this, i)[j] =
          SparseInfo::sparseMulAcc(aRows[i], rowOf(a, i), 1, bCols[j], b.data + j, b.stride);
    }
  }
}

void Matrix::setMatMulTransMat(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
                               const SparseInfo& bInfo) {
  const ListsOf aRows(a, aInfo, true);
  const ListsOf bRows(b, bInfo, true);
  for (ZtSize i = 0; i < rows; ++i) {
    for (ZtSize j = 0; j < cols; ++j) {
      rowOf(*this, i)[j] =
          SparseInfo::sparseMulAcc(aRows[i], rowOf(a, i), 1, bRows[j], rowOf(b, j), 1);
    }
  }
}

void Matrix::setABAt(const ZtMatrix& a, const SparseInfo& aInfo, const ZtMatrix& b,
                     const SparseInfo& bInfo) {
  Matrix ab;
  ab.changeSize(a.rows, b.cols);
  ab.setMatMulMat(a, aInfo, b, bInfo);
  setMatMulTransMat(ab, SparseInfo(ab, true, false), a, aInfo);
}

void Matrix::setMatMulMat(const MatMulMatTemplate& pattern, const ZtMatrix& a, const ZtMatrix& b) {
  if (rows == 0 || cols == 0) return;
  const ZtSize* next = pattern.indices();
  for (ZtSize i = 0; i < rows; ++i) {
    for (ZtSize j = 0; j < cols; ++j) {
      ZtReal sum = 0.0;
      for (; *next != kIndexListEnd; next += 2) sum += b.data[next[1]] * a.data[next[0]];
      ++next;
      rowOf(*this, i)[j] = sum;
    }
  }
}

}  // namespace korin
