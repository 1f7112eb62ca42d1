#ifndef ZEPH_CHECKS_MEMORY_H
#define ZEPH_CHECKS_MEMORY_H

#include <string>

namespace zeph {

/// Bytes that this process can still take: the least of what the system has free, what the control
/// groups of the process leave (version 2 and 1) and what its limit on address space leaves.
double availableMemory();

/// What bounds it, each in bytes; infinite where there is no such limit.
struct MemorySeen {
  double installed = 0.0;
  double free = 0.0;           ///< as the system counts it: with what it would give back
  double controlGroups = 0.0;  ///< left by the tightest of them
  double addressSpace = 0.0;   ///< left by the limit on address space (ulimit -v)
};
MemorySeen memorySeen();

/// "1.5 GB"
std::string memoryText(double bytes);

/// Throws Error(Memory) unless a BLAS can be called: some of them take their buffers at the first
/// call and try for ever where a limit on address space does not leave them. Costs nothing where
/// there is no such limit. `what` as above.
void requireRoomForBlas(const std::string& what);

/// Whether `bytes` are available, and, with limit > 0, within the limit together with those `held`
/// already.
bool fitsMemory(double bytes, double limit, double held = 0.0);

/// Throws Error(Memory) that names both figures unless `bytes` are available, and, with limit > 0,
/// within the limit together with those `held` already. `what` completes "... would take N GB of
/// memory", such as "factorising A.mtx".
void requireBytes(const std::string& what, double bytes, double limit, double held = 0.0);

}  // namespace zeph

#endif
