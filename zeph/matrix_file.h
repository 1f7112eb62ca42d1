#ifndef ZEPH_MATRIX_FILE_H
#define ZEPH_MATRIX_FILE_H

#include <functional>
#include <string>

#include "zeph/api.h"
#include "zeph/dense_matrix.h"
#include "zeph/sparse_matrix.h"

namespace zeph {

/// Forms that are read. Automatic goes by the content, and where that leaves it open by the ending
/// of the name.
enum class FileFormat {
  Automatic,
  MatrixMarket,     ///< .mtx
  Csv,              ///< .csv: lines row,col,value
  List,             ///< .txt: rows of numbers, for dense matrices
  Npz,              ///< scipy.sparse.save_npz; numpy.save for dense matrices
  RutherfordBoeing  ///< .rb, .hb and their kin
};

/// What a reader lets pass, and what it is told where a file does not tell.
struct ReadOptions {
  bool allowNonFinite = false;                ///< NaN and infinities are entries, not errors
  FileFormat format = FileFormat::Automatic;  ///< what the file is, where it is known
  bool oneBased = false;                      ///< indices of CSV files count from 1
  double memoryLimit = 0.0;  ///< bytes that the matrix may take; 0 for what the machine has

  /// Called now and then with the share of the file that has been read, where its size is known.
  /// What it throws comes through.
  std::function<void(double share)> progress = {};

  /// Told in a sentence what looks wrong in a file that can be read all the same.
  std::function<void(const std::string& sentence)> note = {};
};

/// Readers of all forms in FileFormat; files compressed with gzip are read as what is in them. The
/// name "-" stands for standard input or output. A file in none of these forms is refused as what
/// it is: an archive, text in UTF-16, a web page.
///
/// CSV may have a header, `;` or tabs for commas, comments after #, quotes, a byte order mark, and
/// exponents as Fortran writes them (4d0); a decimal comma is refused. readDense takes plain lists
/// too: a row of numbers a line; and lines "index,value", as the command writes them.
///
/// Throw Error(Input) with the line at fault, Error(Output), Error(Memory).
ZEPH_API SparseMatrix readSparse(const std::string& path, const ReadOptions& options = {});
ZEPH_API DenseMatrix readDense(const std::string& path, const ReadOptions& options = {});

/// Writers: CSV where the name ends in .csv, for dense matrices a row of numbers a line where it
/// ends in .txt, Matrix Market otherwise. The file appears whole or not at all.
ZEPH_API void writeSparse(const std::string& path, SparseMatrix m);
ZEPH_API void writeDense(const std::string& path, const DenseMatrix& m);

}  // namespace zeph

#endif
