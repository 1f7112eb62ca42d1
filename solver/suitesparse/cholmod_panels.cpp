#include "solver/suitesparse/cholmod_panels.h"

#include <cholmod.h>

namespace zeph_solver {

CholmodPanels::CholmodPanels(const cholmod_factor& factor)
    : starts_(static_cast<const int*>(factor.px),
              static_cast<const int*>(factor.px) + factor.nsuper + 1),
      panels_{static_cast<unsigned int>(factor.n),
              static_cast<unsigned int>(factor.nsuper),
              static_cast<const unsigned int*>(factor.super),
              static_cast<const unsigned int*>(factor.pi),
              static_cast<const unsigned int*>(factor.s),
              starts_.data(),
              static_cast<double*>(factor.x)},
      permutation_(static_cast<const unsigned int*>(factor.Perm)) {}

}  // namespace zeph_solver
