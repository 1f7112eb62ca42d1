#ifndef ZEPH_FILES_TRIPLET_CSV_H
#define ZEPH_FILES_TRIPLET_CSV_H

#include <string>

#include "zeph/files/atomic_file.h"
#include "zeph/files/line_reader.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// Reads triplet CSV: lines "row,col,value", zero-based unless the options say otherwise;
/// duplicates add up. What else a line may look like is FieldReader's. The file does not tell the
/// size of the matrix: it is one more than the largest row and column, so empty last rows and
/// columns are lost. Errors as in readMatrixMarket.
SparseMatrix readTripletCsv(LineReader& in, const ReadOptions& options = {});
SparseMatrix readTripletCsv(const std::string& path, const ReadOptions& options = {});

/// Writes what ProtoSparse::writeToCsv writes, byte for byte (compressed order, 18 significant
/// digits, all positions of a vector-shaped matrix), but into a file that appears whole or not at
/// all. Symmetric matrices are completed: the form has no header to say that they are.
void writeTripletCsv(AtomicFile& out, SparseMatrix m);

/// All positions of a dense matrix, row by row, in the same form.
void writeTripletCsv(AtomicFile& out, const DenseMatrix& m);

}  // namespace zeph

#endif
