#include "math/containers/sparsevector.h"

#include <cmath>
#include <utility>
#include <vector>

#include "math/containers/sparsematrix.h"

namespace korin {

namespace {

using Node = SparseVector::Entries::Node;

constexpr double kZeroLength = 1e-16;
// Nodes to step over one by one before searching from the top: keeps merging a short list into a
// long one from walking all of the long one.
constexpr int kStepsBeforeSearch = 8;

// The first node from `node` on whose key is not below `key`.
template <class List, class NodePointer>
NodePointer advance(List& list, NodePointer node, unsigned long key) {
  for (int step = 0; node != nullptr && node->key < key; ++step) {
    if (step == kStepsBeforeSearch) return list.lowerBound(key);
    node = node->next(0);
  }
  return node;
}

}  // namespace

SparseVector::SparseVector(unsigned long size, Allocator* a)
    : length(size), allocator(nullptr), list(size, a) {
  allocator = list.allocator;
}

SparseVector::SparseVector(const SparseVector& other)
    : length(other.length), allocator(other.allocator), list(other.length, other.allocator) {
  appendAll(other);
}

SparseVector& SparseVector::operator=(const SparseVector& other) {
  if (this == &other) return *this;
  list.clear();
  length = other.length;
  appendAll(other);
  return *this;
}

SparseVector& SparseVector::operator=(const ZtVector& dense) {
  list.clear();
  length = dense.size;
  for (unsigned long i = 0; i < length; ++i) {
    if (dense.data[i] != 0.0) list.append(i, dense.data[i]);
  }
  return *this;
}

void SparseVector::resize(unsigned long n) {
  // From n + 1, not n: an entry at index n is kept on purpose.
  if (n < length) list.eraseRange(n + 1, length - n);
  length = n;
}

void SparseVector::setSub_zero(unsigned long first, unsigned long count) {
  if (first == 0 && count == length) {
    list.clear();
  } else {
    list.eraseRange(first, count);
  }
}

void SparseVector::getSubVector(korin::Vector& dst, unsigned long dstFirst, unsigned long count,
                                unsigned long srcFirst) const {
  dst.setSub_zero(dstFirst, count);
  for (const Node* node = list.lowerBound(srcFirst);
       node != nullptr && node->key - srcFirst < count; node = node->next(0)) {
    dst[node->key - srcFirst + dstFirst] = node->value;
  }
}

void SparseVector::setSubVector(const SparseVector& src, unsigned long first, unsigned long count,
                                unsigned long srcFirst) {
  // Taken out first, because clearing the range may remove what is to be copied.
  std::vector<std::pair<unsigned long, double>> entries;
  for (const Node* node = src.list.lowerBound(srcFirst);
       node != nullptr && node->key - srcFirst < count; node = node->next(0)) {
    entries.emplace_back(node->key - srcFirst + first, node->value);
  }
  setSub_zero(first, count);
  for (const auto& [index, value] : entries) list.findOrInsert(index) = value;
}

void SparseVector::setSubVector(const ZtVector& src, unsigned long first, unsigned long count,
                                unsigned long srcFirst) {
  setSub_zero(first, count);
  for (unsigned long k = 0; k < count; ++k) {
    const double value = src.data[srcFirst + k];
    if (value != 0.0) list.findOrInsert(first + k) = value;
  }
}

double SparseVector::sumVal() const {
  double sum = 0.0;
  for (const Node* node = list.first(); node != nullptr; node = node->next(0)) sum += node->value;
  return sum;
}

double SparseVector::cartesianLength() const {
  double sum = 0.0;
  for (const Node* node = list.first(); node != nullptr; node = node->next(0)) {
    sum += node->value * node->value;
  }
  return std::sqrt(sum);
}

double SparseVector::dotProduct(const SparseVector& other) const {
  double sum = 0.0;
  const Node* mine = list.first();
  const Node* theirs = other.list.first();
  while (mine != nullptr && theirs != nullptr) {
    if (mine->key == theirs->key) {
      sum += mine->value * theirs->value;
      mine = mine->next(0);
      theirs = theirs->next(0);
    } else if (mine->key < theirs->key) {
      mine = advance(list, mine, theirs->key);
    } else {
      theirs = advance(other.list, theirs, mine->key);
    }
  }
  return sum;
}

double SparseVector::dotProduct(const double* data, unsigned long stride) const {
  double sum = 0.0;
  for (const Node* node = list.first(); node != nullptr; node = node->next(0)) {
    sum += node->value * data[node->key * stride];
  }
  return sum;
}

double SparseVector::dotProduct(const ZtVector& v) const {
  double sum = 0.0;
  for (const Node* node = list.first(); node != nullptr && node->key < v.size;
       node = node->next(0)) {
    sum += node->value * v.data[node->key];
  }
  return sum;
}

void SparseVector::isSelfMulSca(double s) {
  for (Node* node = list.first(); node != nullptr; node = node->next(0)) node->value *= s;
}

void SparseVector::isSelfAddVec(const SparseVector& b) {
  isSelfAddScaMulVec(1.0, b);
}

void SparseVector::isSelfAddScaMulVec(double s, const SparseVector& b) {
  Node* mine = list.first();
  for (const Node* theirs = b.list.first(); theirs != nullptr; theirs = theirs->next(0)) {
    mine = advance(list, mine, theirs->key);
    if (mine != nullptr && mine->key == theirs->key) {
      mine->value += s * theirs->value;
    } else {
      list.findOrInsert(theirs->key) = s * theirs->value;
    }
  }
}

void SparseVector::isSelfSubVec(const SparseVector& b) {
  isSelfAddScaMulVec(-1.0, b);
}

void SparseVector::setVecAddVec(const SparseVector& a, const SparseVector& b) {
  setScaMulVecAddScaMulVec(1.0, a, 1.0, b);
}

void SparseVector::setVecSubVec(const SparseVector& a, const SparseVector& b) {
  if (this == &a) {
    isSelfSubVec(b);
  } else if (this == &b) {
    // Ends without entries, on purpose: isSelfNegVec removes them.
    isSelfSubVec(a);
    isSelfNegVec();
  } else {
    setUnion(1.0, a, -1.0, b);
  }
}

void SparseVector::setScaMulVecAddScaMulVec(double sa, const SparseVector& a, double sb,
                                            const SparseVector& b) {
  if (this == &a && this == &b) {
    for (Node* node = list.first(); node != nullptr; node = node->next(0)) {
      node->value = sa * node->value + sb * node->value;
    }
  } else if (this == &a) {
    isSelfMulSca(sa);
    isSelfAddScaMulVec(sb, b);
  } else if (this == &b) {
    isSelfMulSca(sb);
    isSelfAddScaMulVec(sa, a);
  } else {
    setUnion(sa, a, sb, b);
  }
}

void SparseVector::setNegVec(const SparseVector& a) {
  if (this == &a) {
    isSelfMulSca(-1.0);
    return;
  }
  list.clear();
  for (const Node* node = a.list.first(); node != nullptr; node = node->next(0)) {
    list.append(node->key, -node->value);
  }
}

void SparseVector::isSelfNegVec() {
  // Clears before it negates what remains, on purpose: that is nothing.
  list.clear();
}

double SparseVector::setNormalizeSelf() {
  const double size = cartesianLength();
  if (size < kZeroLength) {
    list.clear();
  } else {
    isSelfMulSca(1.0 / size);
  }
  return size;
}

void SparseVector::setMatMulVec(const SparseMatrix& m, const SparseVector& v) {
  if (this == &v) {
    SparseVector operand(v.length, nullptr);
    operand = v;
    setMatMulVec(m, operand);
    return;
  }
  const SparseMatrixLines matrixRows = SparseMatrixLines::rowsOf(m);
  list.clear();
  for (unsigned long r = 0; r < m.rows; ++r) {
    const double product = matrixRows[r].dotProduct(v);
    if (product != 0.0) list.append(r, product);
  }
}

void SparseVector::forEach(void* context, Callback callback) const {
  for (const Node* node = list.first(); node != nullptr; node = node->next(0)) {
    callback(context, node->key, node->value);
  }
}

void SparseVector::appendAll(const SparseVector& other) {
  for (const Node* node = other.list.first(); node != nullptr; node = node->next(0)) {
    list.append(node->key, node->value);
  }
}

// this = sa * a + sb * b by a merge of both lists; neither is this.
void SparseVector::setUnion(double sa, const SparseVector& a, double sb, const SparseVector& b) {
  list.clear();
  const Node* left = a.list.first();
  const Node* right = b.list.first();
  while (left != nullptr || right != nullptr) {
    if (right == nullptr || (left != nullptr && left->key < right->key)) {
      list.append(left->key, sa * left->value);
      left = left->next(0);
    } else if (left == nullptr || right->key < left->key) {
      list.append(right->key, sb * right->value);
      right = right->next(0);
    } else {
      list.append(left->key, sa * left->value + sb * right->value);
      left = left->next(0);
      right = right->next(0);
    }
  }
}

}  // namespace korin
