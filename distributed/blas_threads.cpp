#include "distributed/blas_threads.h"

#include <dlfcn.h>

namespace zeph::distributed {
namespace {

template <class Function>
Function find(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, name));
}

}  // namespace

BlasThreads::BlasThreads(int threads) {
  set_ = find<void (*)(int)>("openblas_set_num_threads");
  const auto get = find<int (*)()>("openblas_get_num_threads");
  if (set_ == nullptr || get == nullptr) return;
  before_ = get();
  set_(threads);
}

BlasThreads::~BlasThreads() {
  if (before_ > 0) set_(before_);
}

}  // namespace zeph::distributed
