#ifndef ZEPH_MATRIX_RECORD_H
#define ZEPH_MATRIX_RECORD_H

#include "types/zttypes.h"
#include "zeph/dense_matrix.h"

namespace zeph {

/// The dense record of m, row after row, and the way back.
ZtMatrix toRecord(const DenseMatrix& m);
DenseMatrix fromRecord(const ZtMatrix& m);

}  // namespace zeph

#endif
