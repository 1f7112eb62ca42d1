#ifndef ZEPH_FACTOR_SYMMETRIC_INPUT_H
#define ZEPH_FACTOR_SYMMETRIC_INPUT_H

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sparse/pattern/columns.h"
#include "sparse/pattern/slots.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// The pattern of a symmetric matrix and where each entry of the input went: values take the same
/// way.
struct SymmetricInput {
  std::string source;
  std::size_t indexBase = 0;
  /// Both triangles were given, and have to agree.
  bool both = false;
  /// The lower triangle, without values.
  korin::sparse::Columns lower;
  /// Place in `lower`, or where that has been moved to, of each input entry; mirrored are those
  /// above the diagonal.
  korin::sparse::Slots slots;
  /// The first row whose diagonal entry is not positive; -1 where all are.
  korin::sparse::Index unusableDiagonal = -1;
};

/// Compressed columns whose entries are called by their rows and columns in A, the row the larger.
struct NamedColumns {
  korin::sparse::Index cols;
  const korin::sparse::Offset* start;
  std::function<std::pair<korin::sparse::Index, korin::sparse::Index>(korin::sparse::Index column,
                                                                      korin::sparse::Offset place)>
      name;
};

/// Bytes that assembling, ordering and analysing take beside A: about, and for each node of the
/// graph some more.
double analysisBytes(double unknowns, double entriesOfATriangle);

/// Throws Error(Memory) unless there is room for most of what a step of the analysis is estimated
/// to take.
void requireToAnalyse(const std::string& source, double estimate);

/// Gives back to the system what the heap keeps of freed memory.
void returnFreeMemory();

/// Assembles A, whose form has been checked. `against` becomes why A is not symmetric, empty when
/// it is.
SymmetricInput symmetricInput(const SparseMatrix& A, std::string& against);

/// Puts values in, in the order of the input, `step` apart: sum becomes those of the lower
/// triangle, for the columns that the slots lead to. `upper`, which may be null, gets those of the
/// other one where both were given, and then the result is why the two are not those of a symmetric
/// matrix, empty when they are: mirrored sums may differ by rounding. Throws Error(Unfit) for a
/// value or a sum that is not finite.
std::string sumValues(const SymmetricInput& in, const NamedColumns& columns, const double* values,
                      std::size_t step, double* sum, double* upper);

/// Powers of two by which rows and columns of S = D A D are scaled so that its diagonal is near
/// one, or nothing where the diagonal of A is of moderate size. Such a scaling is exact; the factor
/// of S is that of A scaled, to the last bit, but that nothing overflows or underflows on the way.
std::vector<int> scalingExponents(const std::vector<double>& diagonal);

}  // namespace zeph

#endif
