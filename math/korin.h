// The dense library, special functions and sparse containers: every header of this floor.
#ifndef ZEPH_MATH_KORIN_H
#define ZEPH_MATH_KORIN_H

#include "math/allocator.h"
#include "math/korin_math_base.h"
#include "math/korin_matrix.h"
#include "math/korin_quaternion.h"
#include "math/korin_sparse_info.h"
#include "math/korin_vector.h"
#include "math/mtsort.h"
#include "math/skiplist.h"
#include "math/sparsematrix.h"
#include "math/sparsemxmatrix.h"
#include "math/sparsevector.h"

#endif
