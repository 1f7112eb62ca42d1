#ifndef ZEPH_FILES_MATRIX_FILE_H
#define ZEPH_FILES_MATRIX_FILE_H

#include <string>

#include "zeph/files/matrix_market.h"
#include "zeph/files/triplet_csv.h"

namespace zeph {

/// Readers and writers that go by the file's ending: .csv is the triplet CSV, everything else is
/// Matrix Market. The name "-" stands for standard input or output, in Matrix Market form.
SparseMatrix readSparse(const std::string& path, const ReadOptions& options = {});
DenseMatrix readDense(const std::string& path, const ReadOptions& options = {});
void writeSparse(const std::string& path, SparseMatrix m);

/// Writes a dense matrix as a Matrix Market array, or as lines "row,col,value" when path ends in
/// .csv.
void writeDense(const std::string& path, const ZtMatrix& m);

/// Writes lines "index,value" (zero-based, 17 significant digits), or a Matrix Market array when
/// path ends in .mtx.
void writeVector(const std::string& path, const ZtVector& v);

/// Throws Error(Usage) unless the path is "-" or ends in .csv or .mtx.
void requireMatrixEnding(const std::string& path);

}  // namespace zeph

#endif
