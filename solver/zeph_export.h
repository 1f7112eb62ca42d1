// Symbol visibility of the shared library.
#ifndef ZEPH_SOLVER_ZEPH_EXPORT_H
#define ZEPH_SOLVER_ZEPH_EXPORT_H

// Marks a class or function that hosts may call. Everything is compiled hidden, and the linker's
// version script (exports.map) has the last word: a new entry point needs this macro and a line
// there.
#define ZEPH_EXPORT __attribute__((visibility("default")))

#endif  // ZEPH_SOLVER_ZEPH_EXPORT_H
