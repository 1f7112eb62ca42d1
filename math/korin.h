// The dense library, special functions and sparse containers: every header of this floor.
#ifndef ZEPH_MATH_KORIN_H
#define ZEPH_MATH_KORIN_H

#include "math/containers/allocator.h"
#include "math/containers/skiplist.h"
#include "math/containers/sparsematrix.h"
#include "math/containers/sparsemxmatrix.h"
#include "math/containers/sparsevector.h"
#include "math/dense/korin_matrix.h"
#include "math/dense/korin_sparse_info.h"
#include "math/dense/korin_vector.h"
#include "math/functions/korin_math_base.h"
#include "math/functions/korin_quaternion.h"
#include "math/sorting/mtsort.h"

#endif
