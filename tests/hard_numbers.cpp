// Prints what zeph makes of the hard matrices as a table; fails where a promise is not kept.
#include <cmath>
#include <cstdio>
#include <string>

#include "tests/zeph/factor/hard_matrices.h"
#include "zeph/factor/first_route.h"

int main() {
  bool kept = true;
  std::puts("| matrix | order | route | estimated error | true error | in other units |");
  std::puts("|---|---|---|---|---|---|");
  for (const HardMatrix& m : hardMatrices()) {
    const HardOutcome o = judge(m, m.A);
    std::string units = m.scalable ? "" : "–";
    double estimate = 0.0, error = 0.0;
    int refused = 0;
    for (unsigned seed = 1; m.scalable && seed < 4; ++seed) {
      const HardOutcome s = judge(m, inOtherUnits(m.A, seed == 1 ? 3 : 75, seed));
      kept = kept && s.fault.empty();
      if (!s.fault.empty()) units += "**" + s.fault + "** ";
      refused += !s.refusal.empty();
      estimate = std::fmax(estimate, s.estimate);
      error = std::fmax(error, s.error);
    }
    char text[120];
    if (refused > 0) {
      std::snprintf(text, sizeof text, "%d of 3 refused", refused);
      units += text;
    } else if (m.scalable) {
      std::snprintf(text, sizeof text, "%.0e, %.0e", estimate, error);
      units += text;
    }
    kept = kept && o.fault.empty();
    std::printf("| %s | %zu | ", m.name.c_str(), m.A.rows);
    if (!o.refusal.empty()) {
      std::printf("refused | *%s* | | %s |", o.refusal.c_str(), units.c_str());
    } else {
      std::printf("%s | %.0e | %.0e", zeph::name(o.route), o.estimate, o.error);
      if (o.uncertain > 0) std::printf(" (%ld uncertain)", o.uncertain);
      std::printf(" | %s |", units.c_str());
    }
    std::puts(o.fault.empty() ? "" : (" **" + o.fault + "**").c_str());
  }
  return kept ? 0 : 1;
}
