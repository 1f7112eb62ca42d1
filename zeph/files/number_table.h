#ifndef ZEPH_FILES_NUMBER_TABLE_H
#define ZEPH_FILES_NUMBER_TABLE_H

#include "zeph/dense_matrix.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/line_reader.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// Reads dense numbers without a size line, in the form that the first line has:
///
///   * one number a line, or rows of numbers with blanks between: the matrix itself;
///   * two fields, "index,value": a column, each index once, counted from 0 (or 1, as the options
///     say);
///   * three fields, "row,col,value": triplet CSV.
///
/// With FileFormat::List in the options rows of any number of fields are the matrix itself.
/// Throws Error(Input) with the line at fault, also where rows differ in length.
DenseMatrix readNumberTable(LineReader& in, const ReadOptions& options);

/// A row of numbers a line, blanks between, as the shortest text that reads back to the same bits.
void writeNumberTable(AtomicFile& out, const DenseMatrix& m);

}  // namespace zeph

#endif
