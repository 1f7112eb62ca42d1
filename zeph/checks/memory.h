#ifndef ZEPH_CHECKS_MEMORY_H
#define ZEPH_CHECKS_MEMORY_H

#include <string>

namespace zeph {

/// Bytes that this process can still take: the least of what the system has free, what the control
/// groups of the process leave (version 2 and 1) and what its limit on address space leaves.
double availableMemory();

/// Throws Error(Memory) that names both figures unless `bytes` are available, and, with limit > 0,
/// within the limit together with those `held` already. `what` completes "... would take N GB of
/// memory", such as "factorising A.mtx".
void requireBytes(const std::string& what, double bytes, double limit, double held = 0.0);

}  // namespace zeph

#endif
