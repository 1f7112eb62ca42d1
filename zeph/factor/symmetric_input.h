#ifndef ZEPH_FACTOR_SYMMETRIC_INPUT_H
#define ZEPH_FACTOR_SYMMETRIC_INPUT_H

#include <cstddef>
#include <string>
#include <vector>

#include "sparse/pattern/columns.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// The lower triangle of a symmetric matrix, and where each entry of the input went: new values of
/// the same pattern take the same way.
struct SymmetricInput {
  std::string source;
  std::size_t indexBase = 0;
  /// Both triangles were given, and have to agree.
  bool both = false;
  korin::sparse::Columns lower;
  /// Place in `lower` of each input entry; ~place for those above the diagonal of a matrix of which
  /// both triangles were given.
  std::vector<korin::sparse::Offset> place;

  /// Puts other values in, in the order of the input. Returns why they are not those of a symmetric
  /// matrix, empty when they are: mirrored sums may differ by rounding. Throws Error(Unfit) for a
  /// value or a sum that is not finite.
  std::string fill(const double* values, std::size_t count);
};

/// Assembles A, whose form has been checked. `against` becomes why A is not symmetric, empty when
/// it is. Two counting passes, no sort.
SymmetricInput symmetricInput(const SparseMatrix& A, std::string& against);

/// Powers of two by which rows and columns of S = D A D are scaled so that its diagonal is near
/// one, or nothing where the diagonal of A is of moderate size. Such a scaling is exact; the factor
/// of S is that of A scaled, to the last bit, but that nothing overflows or underflows on the way.
std::vector<int> scalingExponents(const korin::sparse::Columns& lower);

/// The first row whose diagonal entry is not positive; -1 where all are.
korin::sparse::Index firstUnusableDiagonal(const korin::sparse::Columns& lower);

}  // namespace zeph

#endif
