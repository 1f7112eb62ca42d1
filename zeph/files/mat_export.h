#ifndef ZEPH_FILES_MAT_EXPORT_H
#define ZEPH_FILES_MAT_EXPORT_H

#include <string>

#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Writes a matrix as a MATLAB level-5 MAT-file holding one variable of that name: full, or sparse
/// with symmetric forms completed and duplicates summed.
/// Throws Error(Usage) when the name is not a letter followed by at most 62 letters, digits and
/// underscores, Error(Unfit) when the matrix exceeds the form's 2³²-1 bytes.
void exportMat(const std::string& path, const DenseMatrix& m, const std::string& variable);
void exportMat(const std::string& path, SparseMatrix m, const std::string& variable);

}  // namespace zeph

#endif
