#ifndef ZEPH_MATH_CONTAINERS_SPARSEVECTOR_H
#define ZEPH_MATH_CONTAINERS_SPARSEVECTOR_H

#include "math/containers/allocator.h"
#include "math/containers/skiplist.h"
#include "math/dense/korin_vector.h"

namespace korin {

class SparseMatrix;

/// Sparse vector: the stored entries of a vector of given length, ordered by index in one skip
/// list. Entries not stored read as 0.0.
///
/// A stored entry stays until a range is cleared, also when its value becomes 0.0; reading through
/// a non-const vector stores an explicit 0.0. Indices are zero-based and, like lengths, not
/// checked; the three-operand operations leave the length as it is. Element access and each
/// insertion cost expected O(log length) for the length given at construction (see SkipList),
/// everything else is linear in the stored entries. Nothing throws but the allocator.
///
///   korin::SparseVector v(1000, nullptr), w(1000, nullptr);
///   v[3] = 1.5;
///   w.setScaMulVecAddScaMulVec(2.0, v, -1.0, w);   // w = 2 v - w
class SparseVector {
 public:
  using Entries = SkipList<unsigned long, double>;
  using Callback = void (*)(void* context, unsigned long index, double value);

  unsigned long length;
  Allocator* allocator;  ///< the list's
  Entries list;

  /// No entries. A null allocator means defaultAllocator; any other must outlive the vector.
  SparseVector(unsigned long length, Allocator* a);
  /// Copies length and entries, with the source's allocator (but the target's own on assignment).
  SparseVector(const SparseVector& other);
  SparseVector& operator=(const SparseVector& other);
  /// Takes the size of a dense vector and stores its elements other than 0.0 and -0.0.
  SparseVector& operator=(const ZtVector& dense);

  double operator[](unsigned long i) const { return list.find(i); }
  double& operator[](unsigned long i) { return list.findOrInsert(i); }

  /// Changes the length. Shrinking removes the entries with index > n: one stored at index n itself
  /// is kept and is in the vector again when that grows.
  void resize(unsigned long n);
  /// Removes all entries, or those of a range.
  void setZero() { list.clear(); }
  void setSub_zero(unsigned long first, unsigned long count);

  /// dst[dstFirst + k] = this[srcFirst + k] for k < count.
  void getSubVector(korin::Vector& dst, unsigned long dstFirst, unsigned long count,
                    unsigned long srcFirst) const;
  /// this[first + k] = src[srcFirst + k] for k < count: the range is cleared, then the entries that
  /// src stores there (of a dense one, the elements other than 0.0) are stored. src may be this.
  void setSubVector(const SparseVector& src, unsigned long first, unsigned long count,
                    unsigned long srcFirst);
  void setSubVector(const ZtVector& src, unsigned long first, unsigned long count,
                    unsigned long srcFirst);

  double sumVal() const;
  double cartesianLength() const;
  /// Sum in ascending order over the indices that both store. Cost: the smaller number of entries
  /// times at most a logarithm.
  double dotProduct(const SparseVector& other) const;
  /// Sum of value * data[index * stride] over the stored entries. data must reach the largest
  /// stored index, which is the length itself after a resize that kept an entry there.
  double dotProduct(const double* data, unsigned long stride) const;
  /// The same; entries beyond the end of v count as 0.
  double dotProduct(const ZtVector& v) const;

  /// this *= s. Stored entries stay, for s = 0 with value 0.0.
  void isSelfMulSca(double s);
  /// this += b, s * b, -b, over the union of the stored indices. b may be this.
  void isSelfAddVec(const SparseVector& b);
  void isSelfAddScaMulVec(double s, const SparseVector& b);
  void isSelfSubVec(const SparseVector& b);
  /// this = a + b, a - b, sa * a + sb * b, over the union of the stored indices. this may be an
  /// operand, with one exception: setVecSubVec(a, this) leaves this without entries.
  void setVecAddVec(const SparseVector& a, const SparseVector& b);
  void setVecSubVec(const SparseVector& a, const SparseVector& b);
  void setScaMulVecAddScaMulVec(double sa, const SparseVector& a, double sb, const SparseVector& b);
  /// this = -a. a may be this.
  void setNegVec(const SparseVector& a);
  /// Removes all entries; to negate in place call setNegVec(*this).
  void isSelfNegVec();
  /// Scales to Euclidean length 1 and returns the length before; below 1e-16 all entries are
  /// removed instead.
  double setNormalizeSelf();
  /// this = m * v; products that are exactly 0.0 are not stored. this may be v. Throws as
  /// SparseMatrix::getValue for a matrix without data; without row data, rows are built on the
  /// side.
  void setMatMulVec(const SparseMatrix& m, const SparseVector& v);

  /// Calls callback(context, index, value) for the stored entries in ascending order.
  void forEach(void* context, Callback callback) const;

 private:
  void appendAll(const SparseVector& other);
  void setUnion(double sa, const SparseVector& a, double sb, const SparseVector& b);
};

}  // namespace korin

#endif
