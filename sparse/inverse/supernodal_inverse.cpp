#include "sparse/inverse/supernodal_inverse.h"

#include <algorithm>
#include <vector>

#include "sparse/inverse/panel_inverter.h"

namespace korin::sparse {

void supernodalInverse(const SupernodalFactor& factor) {
  const auto groups = static_cast<Index>(factor.groupCount);
  const auto* const firstColumn = reinterpret_cast<const Index*>(factor.firstColumn);
  const std::vector<Offset> rowStart(factor.rowStart, factor.rowStart + groups + 1);
  std::vector<Index> groupOf(factor.n);
  std::vector<double*> panels(factor.groupCount);
  for (Index g = 0; g < groups; ++g) {
    std::fill(groupOf.begin() + firstColumn[g], groupOf.begin() + firstColumn[g + 1], g);
    panels[g] = factor.values + factor.panelStart[g];
  }
  const PanelStructure structure{groups,          firstColumn,
                                 rowStart.data(), reinterpret_cast<const Index*>(factor.rows),
                                 groupOf.data(),  panels.data()};
  PanelInverter inverter(structure, InverterSizes(structure), nullptr);
  for (Index g = groups; g-- > 0;) inverter.invertGroup(g, panels[g]);
}

}  // namespace korin::sparse
