// The recurrence of the selected inverse on dense panels, one group of columns at a time.
#ifndef ZEPH_SPARSE_INVERSE_PANEL_INVERTER_H
#define ZEPH_SPARSE_INVERSE_PANEL_INVERTER_H

#include <cstddef>
#include <vector>

#include "kernels/block.h"
#include "kernels/panel_storage.h"
#include "kernels/products/panel_product.h"
#include "kernels/team.h"
#include "kernels/triangles/triangle_inverse.h"
#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// The groups of a factor as the recurrence sees them, and where their panels of the inverse are.
/// Panels of the inverse are laid out like those of the factor. Nothing is owned.
struct PanelStructure {
  Index groups;
  const Index* firstColumn;
  const Offset* rowStart;
  const Index* rows;
  const Index* groupOf;
  /// One for each group; those of a group and its ancestors must be there when it is inverted.
  double* const* inverse;

  std::size_t width(Index g) const {
    return static_cast<std::size_t>(firstColumn[g + 1] - firstColumn[g]);
  }
  std::size_t height(Index g) const {
    return static_cast<std::size_t>(rowStart[g + 1] - rowStart[g]);
  }
  const Index* rowsOf(Index g) const { return rows + rowStart[g]; }
};

/// The inverse on the rows below a group, copied together from its ancestors' panels, which the
/// groups of its subtree then read instead. Nothing is owned.
struct KnownBlock {
  const Index* rows;
  std::size_t count;
  /// The first row that no group of the subtree has as a column.
  Index firstRow;
  /// A packed lower triangle.
  double* values;
};

/// The workspace that the largest groups need.
struct InverterSizes {
  explicit InverterSizes(const PanelStructure& structure);
  /// Of one inverter.
  double bytes() const;
  std::size_t values() const;
  std::size_t packedTriangle() const;
  std::size_t triangle() const;
  std::size_t scratch() const;

  std::size_t widest = 0;
  std::size_t y = 0;
  std::size_t strip = 0;
  std::size_t tallest = 0;
};

/// One thread's workspace for the recurrence.
///
/// With a group's panel [L11; L21] and the inverse Z22 on its rows below, taken from its ancestors'
/// panels: Y = L21 L11^-1, Z21 = -Z22 Y, Z11 = L11^-T L11^-1 - Y^T Z21 (Takahashi, Fagan and Chin,
/// 1973; on dense panels as in Lin, Yang, Meza, Lu, Ying and E, 2011). The top square Z11 is full.
///
/// A zero on L's diagonal gives infinities and NaN. The bits depend neither on the team nor on
/// where the panels are.
class PanelInverter {
 public:
  /// `team`, which may be null, helps with large groups. Throws std::bad_alloc.
  PanelInverter(const PanelStructure& structure, const InverterSizes& sizes, kernels::Team* team);

  /// Writes inverse[g] from g's panel of the factor, which may lie in the same place. `known`,
  /// where given, is of g or one of its ancestors. Throws std::bad_alloc and what the team's poll
  /// throws.
  void invertGroup(Index g, const double* factor, const KnownBlock* known = nullptr);

  /// Copies the inverse on the rows below g, of which there are some, to `values`:
  /// kernels::packedSize of their count.
  KnownBlock collectKnown(Index g, double* values);

 private:
  friend struct InverterSizes;
  /// Some neighbouring columns of a group and the rows below them.
  struct Part {
    std::size_t columns;
    std::size_t count;
    const Index* below;
    kernels::ConstBlock l11;
    kernels::ConstBlock l21;
    kernels::Block square;  // Z11, above Z21 in the panel
    kernels::Block under;
  };
  /// Consecutive rows, within one ancestor, among the rows below a part: local index of the first.
  struct Run {
    std::size_t first;
    std::size_t length;
  };

  void invertPart(const Part& part);
  void invertColumn(const Part& part);
  void findRuns(const Part& part);
  std::size_t runOf(std::size_t row) const;
  void placeRows(const Part& part, std::size_t run, const Index* begin, const Index* end,
                 Index* place) const;
  template <class Use>
  void forAncestors(const Part& part, std::size_t begin, std::size_t end, Index* place,
                    const Use& use) const;
  void gatherAncestor(const Part& part, Index ancestor, std::size_t first, std::size_t begin,
                      std::size_t end, std::size_t last, kernels::Block strip, Index* place) const;
  void gatherKnown(const Part& part, std::size_t first, std::size_t begin, std::size_t end,
                   std::size_t last, kernels::Block strip, Index* place) const;
  void gatherColumns(const Part& part, std::size_t first, std::size_t begin, std::size_t end,
                     std::size_t last, kernels::Block strip, Index* place) const;
  void gatherStrip(const Part& part, std::size_t first, std::size_t last, kernels::Block strip,
                   kernels::Team* team);
  void multiplyByTriangle(const Part& part, const kernels::PackedRows& w,
                          const kernels::PackedRows& y, kernels::Team* team);
  void multiplyByKnown(const Part& part, const kernels::PackedRows& y, kernels::Team* team);
  static void multiplyRows(const Part& part, const kernels::PackedRows& y, std::size_t first,
                           std::size_t end, std::size_t row, std::size_t count,
                           kernels::Block strip);
  static void multiplyTurned(const Part& part, const kernels::PackedRows& y, std::size_t first,
                             std::size_t end, std::size_t column, std::size_t count,
                             kernels::Block strip);
  void completeSquare(const Part& part, const kernels::PackedRows& w, const kernels::PackedRows& y,
                      kernels::Team* team);

  PanelStructure s_;
  kernels::Team* team_;
  kernels::TriangleInverseFunction invertSmall_;
  const KnownBlock* known_ = nullptr;
  std::vector<Run> runs_;
  /// Of each row below the part its place among the rows of the ancestor being read.
  kernels::PanelStorage workspace_;
  double* packedW_;
  double* y_;
  double* w_;
  double* scratch_;
  double* strip_;
  std::vector<Index> place_;
};

}  // namespace korin::sparse

#endif
