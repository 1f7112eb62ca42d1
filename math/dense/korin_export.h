// Visibility of the few dense members that the sparse library's interface hands to its callers.
#ifndef ZEPH_MATH_DENSE_KORIN_EXPORT_H
#define ZEPH_MATH_DENSE_KORIN_EXPORT_H

/// Lets a shared library that contains the dense library export the member; whether it does is for
/// that library's version script to say. Everything else is compiled hidden.
#define KORIN_EXPORT __attribute__((visibility("default")))

#endif
