#ifndef ZEPH_CHECKS_ONE_TRIANGLE_H
#define ZEPH_CHECKS_ONE_TRIANGLE_H

#include <string>

#include "zeph/sparse_matrix.h"

namespace zeph {

/// What a square general matrix looks like when all its entries beside the diagonal lie in one
/// triangle, as one sentence for the user; empty for any other matrix, and when m says that it is
/// triangular. Such a matrix is nearly always half of a symmetric one whose file, format or program
/// does not say so, and its inverse is then wrong without a sign of it. Zeros do not count.
std::string oneTriangleOnly(const SparseMatrix& m);

/// That sentence for `count` such entries, of which e is one; of m the name and the base count.
std::string oneTriangleSentence(const SparseMatrix& m, const Entry& e, std::size_t count);

/// Throws Error(Unfit) with that sentence.
void requireBothTriangles(const SparseMatrix& m);

/// m as a symmetric matrix that is stored by one triangle.
/// Throws Error(Unfit) when m is not square, skew-symmetric, or has entries in both triangles.
void declareSymmetric(SparseMatrix& m);

}  // namespace zeph

#endif
