#ifndef ZEPH_DISTRIBUTED_BLAS_THREADS_H
#define ZEPH_DISTRIBUTED_BLAS_THREADS_H

namespace zeph::distributed {

/// While one lives, the BLAS has so many threads. That is OpenBLAS, which by itself takes as many
/// as the machine has processors, on every process; others go by their own environment.
class BlasThreads {
 public:
  explicit BlasThreads(int threads);
  ~BlasThreads();
  BlasThreads(const BlasThreads&) = delete;
  BlasThreads& operator=(const BlasThreads&) = delete;

 private:
  void (*set_)(int) = nullptr;
  int before_ = 0;
};

}  // namespace zeph::distributed

#endif
