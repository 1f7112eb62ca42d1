// What a computation runs on: versions, processor, memory, and whether known answers come out.
#ifndef ZEPH_CHECKS_MACHINE_H
#define ZEPH_CHECKS_MACHINE_H

#include <string>
#include <utility>
#include <vector>

namespace zeph {

/// The libraries at work with their versions as they say themselves, and the compiler; what a
/// build leaves out is not listed.
std::vector<std::pair<std::string, std::string>> componentVersions();

/// "baseline", "AVX2" or "AVX-512": the level in use, and where it is not the same, the one that
/// the machine has.
std::string processorLevelText();

/// "1.2.3, sources of 2026-01-31"
std::string versionText();

/// "2026-01-31": the day of the sources.
std::string sourceDate();

struct SelfTestResult {
  std::string what;
  bool passed = false;
  std::string detail;
};

/// Problems whose answers are known in closed form, by every route of this build. Well under a
/// second.
std::vector<SelfTestResult> selfTest();

}  // namespace zeph

#endif
