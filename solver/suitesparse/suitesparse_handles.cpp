#include "solver/suitesparse/suitesparse_handles.h"

#include <cholmod.h>
#include <umfpack.h>

namespace zeph_solver {

CholmodCommon::CholmodCommon() : common_(new cholmod_common) {
  cholmod_start(common_);
  // CHOLMOD would otherwise write to standard output on failed analyses and indefinite matrices.
  common_->print = 0;
}

CholmodCommon::~CholmodCommon() {
  cholmod_finish(common_);
  delete common_;
}

void freeCholmod(cholmod_sparse* object, cholmod_common* common) {
  cholmod_free_sparse(&object, common);
}

void freeCholmod(cholmod_dense* object, cholmod_common* common) {
  cholmod_free_dense(&object, common);
}

void freeCholmod(cholmod_factor* object, cholmod_common* common) {
  cholmod_free_factor(&object, common);
}

UmfpackNumeric::~UmfpackNumeric() {
  reset();
}

void UmfpackNumeric::reset(void* numeric) {
  if (numeric_ != nullptr) umfpack_di_free_numeric(&numeric_);
  numeric_ = numeric;
}

}  // namespace zeph_solver
