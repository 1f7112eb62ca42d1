#include <gtest/gtest.h>

#include "tests/zeph/factor/hard_matrices.h"
#include "zeph/factor/lu_backend.h"

namespace {

TEST(HardMatrices, AreRightWithinTheEstimateOrRefusedInAnyUnits) {
  for (const HardMatrix& m : hardMatrices()) {
    const HardOutcome o = judge(m, m.A);
    if (!zeph::hasLuRoute() && o.refusal.find("LU") != std::string::npos) continue;
    EXPECT_EQ(o.fault, "") << m.name << ": error " << o.error << ", estimate " << o.estimate;
    for (unsigned seed = 1; m.scalable && seed < 4; ++seed) {
      const HardOutcome s = judge(m, inOtherUnits(m.A, seed == 1 ? 3 : 75, seed));
      EXPECT_EQ(s.fault, "") << m.name << " in units " << seed << ": error " << s.error
                             << ", estimate " << s.estimate;
    }
  }
}

}  // namespace
