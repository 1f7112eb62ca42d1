#include "kernels/processor.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace korin::kernels {
namespace {

ProcessorLevel detect() {
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) {
    return ProcessorLevel::Baseline;
  }
  const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                    __builtin_cpu_supports("avx512vl");
  return wide ? ProcessorLevel::Avx512 : ProcessorLevel::Avx2;
}

ProcessorLevel chooseAtFirstUse() {
  const ProcessorLevel detected = detectedProcessorLevel();
  const char* wish = std::getenv("ZEPH_PROCESSOR");
  if (wish == nullptr) return detected;
  if (std::strcmp(wish, "baseline") == 0) return ProcessorLevel::Baseline;
  if (std::strcmp(wish, "avx2") == 0) return std::min(detected, ProcessorLevel::Avx2);
  return detected;
}

std::atomic<ProcessorLevel>& current() {
  static std::atomic<ProcessorLevel> level{chooseAtFirstUse()};
  return level;
}

}  // namespace

ProcessorLevel detectedProcessorLevel() {
  static const ProcessorLevel detected = detect();
  return detected;
}

ProcessorLevel processorLevel() {
  return current().load(std::memory_order_relaxed);
}

ProcessorLevel forceProcessorLevel(ProcessorLevel level) {
  const ProcessorLevel used = std::min(level, detectedProcessorLevel());
  current().store(used, std::memory_order_relaxed);
  return used;
}

// std::thread::hardware_concurrency reads a file and ignores that a process may be confined to some
// processors.
int availableProcessors() {
  cpu_set_t processors;
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) return 1;
  return std::max(1, CPU_COUNT(&processors));
}

}  // namespace korin::kernels
