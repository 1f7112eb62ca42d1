#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "math/containers/sparsematrix.h"

namespace korin {

namespace {

using Node = SparseVector::Entries::Node;

// The entries of a matrix by rows, in two plain arrays: row k has those from start[k] on, its
// columns ascending. They come from its column vectors where those exist, with the entries that a
// shrinking resize left in them.
struct RightFactor {
  struct Entry {
    unsigned long col;
    double value;
  };

  explicit RightFactor(const SparseMatrix& m) {
    if (!m.hasRowData && !m.hasColData) m.getValue(0, 0);  // throws "no data!"
    visit(m, [&](unsigned long k, Entry) {
      if (k + 1 >= start.size()) start.resize(k + 2, 0);
      ++start[k + 1];
    });
    for (std::size_t k = 1; k < start.size(); ++k) start[k] += start[k - 1];
    entries.resize(start.back());
    std::vector<unsigned long> next = start;
    visit(m, [&](unsigned long k, Entry e) { entries[next[k]++] = e; });
  }

  template <class Visit>
  static void visit(const SparseMatrix& m, Visit visit) {
    for (unsigned long j = 0; m.hasColData && j < m.cols; ++j) {
      const Node* node = m.colData[j]->list.first();
      for (; node != nullptr; node = node->next(0)) visit(node->key, {j, node->value});
    }
    for (unsigned long k = 0; !m.hasColData && k < m.rows; ++k) {
      const Node* node = m.rowData[k]->list.first();
      for (; node != nullptr; node = node->next(0)) visit(k, {node->key, node->value});
    }
  }

  unsigned long rows() const { return start.size() - 1; }

  std::vector<unsigned long> start = {0};
  std::vector<Entry> entries;
};

}  // namespace

// Every sum below works on the rows and on the columns separately: the same operations on the same
// numbers, so that both keep the same bits.

void SparseMatrix::isSelfMulSca(double s) {
  for (unsigned long r = 0; hasRowData && r < rows; ++r) rowData[r]->isSelfMulSca(s);
  for (unsigned long c = 0; hasColData && c < cols; ++c) colData[c]->isSelfMulSca(s);
}

void SparseMatrix::isSelfAddMat(const SparseMatrix& m) {
  setSelfAddScaMulMat(1.0, m);
}

void SparseMatrix::isSelfSubMat(const SparseMatrix& m) {
  setSelfAddScaMulMat(-1.0, m);
}

void SparseMatrix::setSelfAddScaMulMat(double s, const SparseMatrix& m) {
  if (hasRowData) {
    const auto source = SparseMatrixLines::rowsOf(m);
    for (unsigned long r = 0; r < rows; ++r) rowData[r]->isSelfAddScaMulVec(s, source[r]);
  }
  if (hasColData) {
    const auto source = SparseMatrixLines::colsOf(m);
    for (unsigned long c = 0; c < cols; ++c) colData[c]->isSelfAddScaMulVec(s, source[c]);
  }
}

void SparseMatrix::setScaMulMatAddScaMulMat(double sa, const SparseMatrix& a, double sb,
                                            const SparseMatrix& b) {
  if (hasRowData) {
    const auto left = SparseMatrixLines::rowsOf(a);
    const auto right = SparseMatrixLines::rowsOf(b);
    for (unsigned long r = 0; r < rows; ++r) {
      rowData[r]->setScaMulVecAddScaMulVec(sa, left[r], sb, right[r]);
    }
  }
  if (hasColData) {
    const auto left = SparseMatrixLines::colsOf(a);
    const auto right = SparseMatrixLines::colsOf(b);
    for (unsigned long c = 0; c < cols; ++c) {
      colData[c]->setScaMulVecAddScaMulVec(sa, left[c], sb, right[c]);
    }
  }
}

void SparseMatrix::setMatMulMat(const SparseMatrix& a, const SparseMatrix& b) {
  if (this == &a || this == &b) {
    SparseMatrix product(rows, cols, hasRowData, hasColData, allocator);
    product.setMatMulMat(a, b);
    adopt(product);
  } else {
    setProduct(SparseMatrixLines::rowsOf(a), b);
  }
}

void SparseMatrix::setTransMatMulMat(const SparseMatrix& a, const SparseMatrix& b) {
  if (this == &a || this == &b) {
    SparseMatrix product(rows, cols, hasRowData, hasColData, allocator);
    product.setTransMatMulMat(a, b);
    adopt(product);
  } else {
    setProduct(SparseMatrixLines::colsOf(a), b);
  }
}

// Row i of the result is the sum of the rows k of b times element k of left row i, k ascending: for
// each element the sum of the dot product of a left row and a column of b, without visiting the
// positions where nothing meets. this is not an operand.
void SparseMatrix::setProduct(const SparseMatrixLines& left, const SparseMatrix& b) {
  constexpr unsigned long kNoRow = std::numeric_limits<unsigned long>::max();
  const RightFactor right(b);
  setZero();
  std::vector<double> sums(cols);
  std::vector<unsigned long> lastRow(cols, kNoRow);
  std::vector<unsigned long> touched;
  for (unsigned long i = 0; i < rows; ++i) {
    touched.clear();
    const Node* l = left[i].list.first();
    for (; l != nullptr && l->key < right.rows(); l = l->next(0)) {
      for (unsigned long p = right.start[l->key]; p < right.start[l->key + 1]; ++p) {
        const RightFactor::Entry& r = right.entries[p];
        if (r.col >= cols) break;
        if (lastRow[r.col] != i) {
          lastRow[r.col] = i;
          sums[r.col] = 0.0;
          touched.push_back(r.col);
        }
        sums[r.col] += l->value * r.value;
      }
    }
    std::sort(touched.begin(), touched.end());
    for (const unsigned long j : touched) {
      if (sums[j] != 0.0) appendValue(i, j, sums[j]);
    }
  }
}

void SparseMatrix::setMatMulMat(const ZtMatrix& a, const SparseMatrix& b) {
  if (this == &b) {
    SparseMatrix product(rows, cols, hasRowData, hasColData, allocator);
    product.setMatMulMat(a, b);
    adopt(product);
    return;
  }
  const auto columns = SparseMatrixLines::colsOf(b);
  setZero();
  for (unsigned long i = 0; i < rows; ++i) {
    const ZtReal* row = a.data + i * a.stride;
    for (unsigned long j = 0; j < cols; ++j) {
      double sum = 0.0;
      const Node* node = columns[j].list.first();
      for (; node != nullptr && node->key < b.rows; node = node->next(0)) {
        sum += row[node->key] * node->value;
      }
      if (sum != 0.0) appendValue(i, j, sum);
    }
  }
}

void SparseMatrix::isSelfAddVecMulMat(const ZtVector& v, const SparseMatrix& m) {
  const auto source = SparseMatrixLines::rowsOf(m);
  if (!hasRowData && !hasColData) static_cast<void>(getValue(0, 0));  // throws "no data!"
  for (unsigned long k = 0; k < m.rows; ++k) {
    const Node* node = source[k].list.first();
    for (; node != nullptr && node->key < m.cols; node = node->next(0)) {
      const double product = v.data[k] * node->value;
      if (hasRowData) (*rowData[0])[node->key] += product;
      if (hasColData) (*colData[node->key])[0] += product;
    }
  }
}

void SparseMatrix::setTransposeSelf() {
  const bool both = hasRowData && hasColData;
  std::swap(rowData, colData);
  std::swap(hasRowData, hasColData);
  std::swap(rows, cols);
  if (both) return;
  // Back to the kind of data there was.
  if (hasColData) {
    addRowData();
    freeColData();
  } else if (hasRowData) {
    addColData();
    freeRowData();
  }
}

}  // namespace korin
