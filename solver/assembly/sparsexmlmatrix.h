// Exchange record of a sparse matrix, made of standard arrays only.
#ifndef ZEPH_SOLVER_ASSEMBLY_SPARSEXMLMATRIX_H
#define ZEPH_SOLVER_ASSEMBLY_SPARSEXMLMATRIX_H

#include <cstdint>
#include <vector>

#include "solver/assembly/protosparse.h"
#include "solver/zeph_export.h"

namespace zeph_solver {

/// A ProtoSparse in a form that any serialiser can store and load field by field. Entry k is
/// values[k] at row indices[2k] and column indices[2k + 1], zero-based; duplicates add up.
///
///     zeph_solver::SparseXMLMatrix record(A);
///     store(record.size, record.indices, record.values);
class ZEPH_EXPORT SparseXMLMatrix {
 public:
  /// Empty arrays, to be filled by the reader of a stored record.
  SparseXMLMatrix() = default;

  /// The counts of p and its element list as it stands, neither sorted nor merged. The block of a
  /// dense p is not read: its record has the size only.
  SparseXMLMatrix(const ProtoSparse& p);

  /// p = this matrix. p gets the record's shape, with the mode `ProtoSparse::setSize` chooses, and
  /// loses its entries; zeros are not stored in sparse mode. Needs two entries in `size` and two
  /// in `indices` for each of `values`; not checked.
  void toProtoSparse(ProtoSparse& p) const;

  std::vector<std::uint64_t> size;     ///< row count, column count
  std::vector<std::uint64_t> indices;  ///< row, column of each entry
  std::vector<double> values;          ///< one for each entry
};

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_ASSEMBLY_SPARSEXMLMATRIX_H
