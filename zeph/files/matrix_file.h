#ifndef ZEPH_FILES_MATRIX_FILE_H
#define ZEPH_FILES_MATRIX_FILE_H

#include <cstddef>
#include <string>

#include "zeph/files/atomic_file.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// As readMatrixMarketAsStored; all other forms are sparse.
bool readAsStored(const std::string& path, SparseMatrix& sparse, DenseMatrix& dense,
                  const ReadOptions& options = {});

/// As the public one of that name, but without the commit.
void writeSparse(AtomicFile& out, SparseMatrix m);

/// Writes lines "index,value" (zero-based, 17 significant digits), a Matrix Market array when path
/// ends in .mtx, or the numbers alone, one a line, when it ends in .txt.
void writeVector(const std::string& path, const double* values, std::size_t count);

/// Throws Error(Usage) unless the path is "-" or in /dev/, or ends in .csv, .mtx or .txt.
void requireMatrixEnding(const std::string& path);

}  // namespace zeph

#endif
