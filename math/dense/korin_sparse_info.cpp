#include "math/dense/korin_sparse_info.h"

namespace korin {

void SparseInfo::update(const ZtMatrix& m, bool rowLists, bool colLists) {
  hasRowLists_ = hasColLists_ = false;  // should an allocation fail
  rowIndices_.resize(rowLists ? m.rows * (m.cols + 1) : 0);
  colIndices_.resize(colLists ? m.cols * (m.rows + 1) : 0);
  rows = m.rows;
  cols = m.cols;
  hasRowLists_ = rowLists;
  hasColLists_ = colLists;
  if (rowLists) {
    for (ZtSize r = 0; r < rows; ++r) {
      getSparseIndexes(m.data + r * m.stride, 1, cols, rowIndices_.data() + r * (cols + 1));
    }
  }
  if (colLists) {
    for (ZtSize c = 0; c < cols; ++c) {
      getSparseIndexes(m.data + c, m.stride, rows, colIndices_.data() + c * (rows + 1));
    }
  }
}

ZtSize SparseInfo::getSparseIndexes(const ZtReal* values, ZtSize step, ZtSize count, ZtSize* out) {
  for (ZtSize k = 0; k < count; ++k) {
    if (values[k * step] != 0.0) *out++ = k;
  }
  *out = kIndexListEnd;
  return kIndexListEnd;
}

ZtReal SparseInfo::sparseMulAcc(const ZtSize* xIndices, const ZtReal* x, ZtSize xStep,
                                const ZtSize* yIndices, const ZtReal* y, ZtSize yStep) {
  ZtReal sum = 0.0;
  while (*xIndices != kIndexListEnd && *yIndices != kIndexListEnd) {
    if (*xIndices < *yIndices) {
      ++xIndices;
    } else if (*yIndices < *xIndices) {
      ++yIndices;
    } else {
      sum += x[*xIndices * xStep] * y[*yIndices * yStep];
      ++xIndices;
      ++yIndices;
    }
  }
  return sum;
}

bool MatMulMatTemplate::isZeroElement(const ZtMatrix& m, MatrixShape shape, ZtSize r, ZtSize c) {
  switch (shape) {
    case MatrixShape::LowerTriangular:
      return c > r;
    case MatrixShape::UpperTriangular:
      return c < r;
    default:
      return m.data[r * m.stride + c] == 0.0;
  }
}

MatMulMatTemplate::MatMulMatTemplate(const ZtMatrix& a, MatrixShape aShape, const ZtMatrix& b,
                                     MatrixShape bShape, ZtReal) {
  for (ZtSize i = 0; i < a.rows; ++i) {
    for (ZtSize j = 0; j < b.cols; ++j) {
      for (ZtSize p = 0; p < a.cols; ++p) {
        if (isZeroElement(a, aShape, i, p) || isZeroElement(b, bShape, p, j)) continue;
        indices_.push_back(i * a.stride + p);
        indices_.push_back(p * b.stride + j);
      }
      indices_.push_back(kIndexListEnd);
    }
  }
}

}  // namespace korin
