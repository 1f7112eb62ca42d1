#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kernels/processor.h"
#include "tests/zeph/factor/hard_matrices.h"
#include "zeph/factor.h"
#include "zeph/factor/lu_backend.h"

namespace zeph {
namespace {

void judgeAll() {
  for (const HardMatrix& m : hardMatrices()) {
    const HardOutcome o = judge(m, m.A);
    if (!hasLuRoute() && o.refusal.find("LU") != std::string::npos) continue;
    EXPECT_EQ(o.fault, "") << m.name << ": error " << o.error << ", estimate " << o.estimate;
    for (unsigned seed = 1; m.scalable && seed < 4; ++seed) {
      const HardOutcome s = judge(m, inOtherUnits(m.A, seed == 1 ? 3 : 75, seed));
      EXPECT_EQ(s.fault, "") << m.name << " in units " << seed << ": error " << s.error
                             << ", estimate " << s.estimate;
    }
  }
}

// Fused kernels round differently on every level of processors, and add in other groups in large
// fronts: a dense block of 300 unknowns is one.
TEST(HardMatrices, AreRightWithinTheEstimateOrRefusedInAnyUnitsAndOnEveryLevel) {
  using korin::kernels::ProcessorLevel;
  SparseMatrix large;
  large.rows = large.cols = 300;
  large.symmetry = Symmetry::Symmetric;
  for (unsigned i = 0; i < 300; ++i) {
    for (unsigned j = 0; j < i; ++j) large.entries.push_back({i, j, std::sin(i * j + 1.0)});
    large.entries.push_back({i, i, 60.0 + i});
  }
  std::vector<double> first;
  double estimate = 0.0;
  const ProcessorLevel before = korin::kernels::processorLevel();
  for (const ProcessorLevel level :
       {ProcessorLevel::Baseline, ProcessorLevel::Avx2, ProcessorLevel::Avx512}) {
    if (korin::kernels::forceProcessorLevel(level) != level) continue;
    judgeAll();
    const Factor f(large);
    const std::vector<double> d = f.variances();
    estimate += f.report().relativeErrorEstimate;
    if (first.empty()) first = d;
    for (std::size_t i = 0; i < d.size(); ++i) {
      EXPECT_LE(std::fabs(d[i] - first[i]), estimate * first[i]) << i;
    }
  }
  korin::kernels::forceProcessorLevel(before);
  EXPECT_LT(estimate, 1e-11);
}

}  // namespace
}  // namespace zeph
