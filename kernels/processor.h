#ifndef ZEPH_KERNELS_PROCESSOR_H
#define ZEPH_KERNELS_PROCESSOR_H

namespace korin::kernels {

/// The processor levels that have kernels of their own, in increasing order.
enum class ProcessorLevel {
  Baseline,  ///< x86-64 with SSE2, runs everywhere
  Avx2,      ///< AVX2 and FMA
  Avx512,    ///< AVX-512 F, DQ and VL on top of Avx2
};

/// The level in use. At first use it is the highest that processor and operating system support,
/// lowered by the environment variable ZEPH_PROCESSOR (`baseline`, `avx2` or `avx512`) where set;
/// a value that is higher than what is there, or none of these words, changes nothing.
ProcessorLevel processorLevel();

/// The highest level this machine supports, whatever the environment says.
ProcessorLevel detectedProcessorLevel();

/// For tests and benchmarks: use `level` from now on, or the detected one where that is lower.
/// Returns the level now in use. Not to be called while another thread runs kernels.
ProcessorLevel forceProcessorLevel(ProcessorLevel level);

/// The processors that this thread may run on, at least 1.
int availableProcessors();

}  // namespace korin::kernels

#endif
