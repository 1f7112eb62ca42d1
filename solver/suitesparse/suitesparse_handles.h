// Owning handles for the objects of CHOLMOD and UMFPACK, which free them; only UMFPACK's symbolic
// objects, which no function keeps, are freed where they were made.
// The handles convert to the raw pointers that the two libraries expect and need neither library's
// headers.
#ifndef ZEPH_SOLVER_SUITESPARSE_SUITESPARSE_HANDLES_H
#define ZEPH_SOLVER_SUITESPARSE_SUITESPARSE_HANDLES_H

#include <memory>
#include <utility>

struct cholmod_common_struct;
struct cholmod_sparse_struct;
struct cholmod_dense_struct;
struct cholmod_factor_struct;
typedef struct cholmod_common_struct cholmod_common;
typedef struct cholmod_sparse_struct cholmod_sparse;
typedef struct cholmod_dense_struct cholmod_dense;
typedef struct cholmod_factor_struct cholmod_factor;

namespace zeph_solver {

/// A started CHOLMOD workspace that prints nothing; finished and freed on destruction.
class CholmodCommon {
 public:
  CholmodCommon();
  ~CholmodCommon();
  CholmodCommon(const CholmodCommon&) = delete;
  CholmodCommon& operator=(const CholmodCommon&) = delete;

  cholmod_common* get() const { return common_; }

 private:
  cholmod_common* common_;
};

void freeCholmod(cholmod_sparse* object, cholmod_common* common);
void freeCholmod(cholmod_dense* object, cholmod_common* common);
void freeCholmod(cholmod_factor* object, cholmod_common* common);

/// A CHOLMOD object together with the workspace that frees it. The workspace must outlive it.
template <class Object>
class CholmodHandle {
 public:
  CholmodHandle() = default;
  CholmodHandle(Object* object, cholmod_common* common) : object_(object), common_(common) {}
  CholmodHandle(CholmodHandle&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)), common_(other.common_) {}
  CholmodHandle& operator=(CholmodHandle&& other) noexcept {
    if (this != &other) reset(std::exchange(other.object_, nullptr), other.common_);
    return *this;
  }
  ~CholmodHandle() { reset(); }

  void reset() { reset(nullptr, common_); }
  void reset(Object* object, cholmod_common* common) {
    if (object_ != nullptr) freeCholmod(object_, common_);
    object_ = object;
    common_ = common;
  }
  Object* get() const { return object_; }
  Object* operator->() const { return object_; }
  operator Object*() const { return object_; }

 private:
  Object* object_ = nullptr;
  cholmod_common* common_ = nullptr;
};

/// An UMFPACK Numeric object. What frees it is not inline, as programs that include this header
/// cannot call it.
class UmfpackNumeric {
 public:
  UmfpackNumeric() = default;
  UmfpackNumeric(const UmfpackNumeric&) = delete;
  UmfpackNumeric& operator=(const UmfpackNumeric&) = delete;
  ~UmfpackNumeric();

  void reset(void* numeric = nullptr);
  void* get() const { return numeric_; }
  operator void*() const { return numeric_; }

 private:
  void* numeric_ = nullptr;
};

/// An array obtained with new[], usable like the pointer it holds.
template <class T>
class OwnedArray {
 public:
  /// A count that is negative or too large throws std::bad_array_new_length.
  template <class Count>
  void allocate(Count count) {
    array_.reset(new T[count]);
  }
  void reset() { array_.reset(); }
  T* get() const { return array_.get(); }
  operator T*() const { return array_.get(); }

 private:
  std::unique_ptr<T[]> array_;
};

}  // namespace zeph_solver

#endif
