// How the dense library and the solver report a failed check.
#ifndef ZEPH_MATH_DENSE_ZT_ERROR_H
#define ZEPH_MATH_DENSE_ZT_ERROR_H

#include "types/zttypes.h"

namespace korin {

/// The result value of every error; the message alone distinguishes them.
inline constexpr ZtResultValue kErrorValue = 256;

/// Throws ZtException(256, signature + " " + text). Call it with __PRETTY_FUNCTION__ from the
/// failing function itself, whose definition must be spelled with the type names that callers are
/// to read (ZtSize, ZtReal, const ZtMatrix&).
[[noreturn]] inline void throwError(const char* signature, const char* text) {
  ZtString message(signature);
  message << " ";
  const ZtString fixed(text);
  ZtString_append(&message, &fixed);
  throw ZtException(kErrorValue, message);
}

}  // namespace korin

#endif
