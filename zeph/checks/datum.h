// What is wrong with a matrix that is singular because nothing in it says where its unknowns are.
#ifndef ZEPH_CHECKS_DATUM_H
#define ZEPH_CHECKS_DATUM_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "zeph/error.h"
#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// A symmetric positive semidefinite matrix with a null space: heights of which only differences
/// were measured, poses without a prior. Unknowns are zero-based.
struct DatumDefect {
  std::size_t dimension = 0;  ///< of the null space
  bool atLeast = false;       ///< the dimension may be larger: it was not looked for further
  std::size_t parts = 0;      ///< connected parts of the matrix that have a share in it
  std::size_t allParts = 0;   ///< connected parts of the matrix
  /// All unknowns of such a part can be shifted by the same amount: differences are all it knows.
  bool levelled = false;
  std::vector<std::size_t> carriers;  ///< an unknown of each part that moves, ascending
};

/// Looks for one in a matrix that has been found symmetric, whatever its form says; of a general
/// one the lower triangle is read. Nothing for a matrix that is not semidefinite, that has a
/// diagonal entry that is not positive, or whose small eigenvalues are no datum defect: a null
/// space has to stand out from the other eigenvalues by a factor of a thousand. Of `options` the
/// threads, the memory and the progress count.
///
/// A part with entries of one sign beside the diagonal and rows that add up to zero has a null
/// space of dimension one; rows that do not add up to zero hold it. Other parts are judged by
/// inverse iteration with a block of vectors on the matrix scaled to a diagonal of ones and shifted
/// by a trifle (Rayleigh and Ritz, part by part). Cost: at most one ordering and factorisation
/// twice, and some solves; what memory does not suffice for is not looked for.
std::optional<DatumDefect> findDatumDefect(const SparseMatrix& A, const Options& options = {});

/// "no point is held fixed ...; add ...": what to say of it, indices counted from indexBase.
std::string explanation(const DatumDefect& defect, std::size_t indexBase);

/// Error(Singular) that explains a defect; row() is the first unknown that moves.
class DatumError : public Error {
 public:
  DatumError(const std::string& source, std::size_t indexBase, DatumDefect found);

  DatumDefect defect;
};

}  // namespace zeph

#endif
