// Matrices that lie in several files, each with some of the entries.
#ifndef ZEPH_FILES_PARTS_H
#define ZEPH_FILES_PARTS_H

#include <cstddef>
#include <optional>
#include <string>

#include "zeph/matrix_file.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// A name such as "folder/A.2of4.mtx": the second of four parts.
struct PartName {
  std::string before;  ///< "folder/A"
  std::string after;   ///< ".mtx"
  std::size_t part = 1, parts = 1;

  /// The name of part `k`, counted from one.
  std::string path(std::size_t k) const;
};

/// Nothing for a name that is not of that form.
std::optional<PartName> partName(const std::string& path);

/// Parts first, first + step, ... of the matrix that `name` is of, counted from one, as one matrix,
/// whose source is "folder/A.mtx in 4 parts". Throws Error(Input) for a part that is missing or
/// that has another size or form than the others.
SparseMatrix readParts(const PartName& name, std::size_t first, std::size_t step,
                       const ReadOptions& options);

/// Writes the entries of A in `parts` files of as many entries each, in their order, every one a
/// Matrix Market file of the size and form of A. All get their names together, or none does.
void writeParts(const PartName& name, const SparseMatrix& A);

}  // namespace zeph

#endif
