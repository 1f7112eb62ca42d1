#ifndef ZEPH_MATRIX_FILE_H
#define ZEPH_MATRIX_FILE_H

#include <string>

#include "zeph/api.h"
#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// What a reader lets pass.
struct ReadOptions {
  bool allowNonFinite = false;  ///< NaN and infinities are entries, not errors
};

/// Readers and writers that go by the file's ending: .csv is lines "row,col,value" (zero-based, no
/// header), everything else is Matrix Market. The name "-" stands for standard input or output, in
/// Matrix Market form.
/// Throw Error(Input) with the line at fault, Error(Output), Error(Memory).
ZEPH_API SparseMatrix readSparse(const std::string& path, const ReadOptions& options = {});
ZEPH_API DenseMatrix readDense(const std::string& path, const ReadOptions& options = {});

/// The file appears whole or not at all.
ZEPH_API void writeSparse(const std::string& path, SparseMatrix m);
ZEPH_API void writeDense(const std::string& path, const DenseMatrix& m);

}  // namespace zeph

#endif
