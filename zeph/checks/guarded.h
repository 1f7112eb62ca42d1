#ifndef ZEPH_CHECKS_GUARDED_H
#define ZEPH_CHECKS_GUARDED_H

#include <new>
#include <stdexcept>
#include <string>

#include "types/zttypes.h"
#include "zeph/error.h"

namespace zeph {

/// Made beforehand, as a sentence takes memory as well.
inline const Error kNoMemory(ErrorKind::Memory, "not enough memory");

inline Error outOfMemory(const std::string& source) {
  try {
    return Error(ErrorKind::Memory, "not enough memory for " + source);
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

/// Runs work() and turns what the library and the standard library throw into Error, so that
/// callers of the checked layer see one exception type.
template <class Work>
auto guarded(const std::string& source, const Work& work) -> decltype(work()) {
  try {
    return work();
  } catch (const Error&) {
    throw;
  } catch (const ZtException&) {
    // What the solver throws for operands that have been checked: a solve that found no memory.
    throw outOfMemory(source);
  } catch (const std::bad_alloc&) {
    throw outOfMemory(source);
  } catch (const std::length_error&) {
    throw outOfMemory(source);
  }
}

}  // namespace zeph

#endif
