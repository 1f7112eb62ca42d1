#ifndef ZEPH_FILES_RUTHERFORD_BOEING_H
#define ZEPH_FILES_RUTHERFORD_BOEING_H

#include "zeph/files/line_reader.h"
#include "zeph/matrix_file.h"

namespace zeph {

/// Reads a Rutherford-Boeing file, or one of its forerunner Harwell-Boeing (right-hand sides are
/// passed over): assembled, real or integer; unsymmetric, rectangular, symmetric or
/// skew-symmetric. Numbers stand in columns of fixed width, which need no blank between (Duff,
/// Grimes and Lewis, 1997).
/// Throws Error(Input) with the line at fault.
SparseMatrix readRutherfordBoeing(LineReader& in, const ReadOptions& options);

}  // namespace zeph

#endif
