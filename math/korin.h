// The dense library, special functions and sparse containers: every header of this floor.
#ifndef ZEPH_MATH_KORIN_H
#define ZEPH_MATH_KORIN_H

#include "math/korin_matrix.h"
#include "math/korin_sparse_info.h"
#include "math/korin_vector.h"
#include "math/sparsemxmatrix.h"

#endif
