// The whole sparse library.
#ifndef ZEPH_SOLVER_ZEPH_SOLVER_H
#define ZEPH_SOLVER_ZEPH_SOLVER_H

#include "math/dense/korin_matrix.h"
#include "math/dense/korin_vector.h"
#include "solver/assembly/protosparse.h"
#include "solver/assembly/sparsexmlmatrix.h"
#include "solver/ldl_minimal_set.h"
#include "solver/library.h"
#include "solver/partial_inverse_chol.h"
#include "solver/partial_inverse_lu.h"
#include "solver/partial_inverse_sqrt.h"
#include "solver/selected_inverse.h"
#include "solver/solver.h"

#endif  // ZEPH_SOLVER_ZEPH_SOLVER_H
