// The whole sparse library.
#ifndef ZEPH_SOLVER_ZEPH_SOLVER_H
#define ZEPH_SOLVER_ZEPH_SOLVER_H

#include "solver/library.h"
#include "solver/protosparse.h"
#include "solver/sparsexmlmatrix.h"

#endif  // ZEPH_SOLVER_ZEPH_SOLVER_H
