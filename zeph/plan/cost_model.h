// How long the Cholesky route takes on a matrix, from the structure of its factor.
#ifndef ZEPH_PLAN_COST_MODEL_H
#define ZEPH_PLAN_COST_MODEL_H

#include <array>
#include <cstddef>

#include "kernels/processor.h"
#include "sparse/symbolic/symbolic.h"

namespace zeph {

/// Seconds of dense work on a front, by the columns of its panel and the rows below them.
///
/// Measured at powers of two and interpolated between them in the logarithms; beyond the last ones
/// they grow as operations do, those of the update matrix among them where that is kept.
class FrontTable {
 public:
  explicit FrontTable(bool keepsUpdate = true) : keepsUpdate_(keepsUpdate) {}

  static constexpr std::array<int, 10> kWidths{1, 2, 4, 8, 16, 32, 64, 128, 256, 512};
  static constexpr std::array<int, 11> kBelow{0, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048};

  double& at(std::size_t width, std::size_t below) { return seconds_[width][below]; }
  double at(std::size_t width, std::size_t below) const { return seconds_[width][below]; }

  /// width >= 1 columns and `below` >= 0 rows.
  double seconds(double width, double below) const;

 private:
  std::array<std::array<double, kBelow.size()>, kWidths.size()> seconds_{};
  bool keepsUpdate_;
};

/// What else is counted while the groups of a factor are walked over.
enum class FactorTerm {
  Groups,       ///< groups
  Rows,         ///< rows of all groups
  Passed,       ///< entries of children's update matrices, one triangle
  LeafPassed,   ///< the same of leaves, which are made again for their parent
  LeafProduct,  ///< operations of that
  Entries,      ///< entries of A that the caller gives
  FarEntries,   ///< these times the doublings of A's size beyond kNear
  Unknowns,     ///< rows of A
  FarUnknowns,  ///< these times the doublings of a vector's size beyond kNear
  Count
};

enum class InverseTerm {
  Groups,
  Rows,
  Gathered,  ///< entries of the inverse copied from ancestors' panels, one triangle
  Placed,    ///< rows looked up among those of an ancestor
  Entries,
  FarEntries,
  Unknowns,
  FarUnknowns,
  Count
};

/// Bytes of an array up to which all of it is near the processor.
inline constexpr double kNear = 0x1p19;

template <class Term>
using Terms = std::array<double, static_cast<std::size_t>(Term::Count)>;

/// What dense work and each of the counted things take on a machine, in seconds.
struct CostModel {
  FrontTable factor;             ///< a panel and its update matrix
  FrontTable factorLeaf{false};  ///< a panel whose update matrix is not kept
  FrontTable inverse;            ///< the inverse's panel, its ancestors' entries near at hand
  Terms<FactorTerm> factorTerms{};
  Terms<InverseTerm> inverseTerms{};
  double smallPages = 0.0;  ///< seconds that fresh memory takes at its first touch, a byte
  double largePages = 0.0;  ///< the same in blocks of kernels::kLargePanels and more
  /// Processor time of all threads over that of one for the same work, by which threads that share
  /// caches and memory slow each other down; at least 1.
  double sharing = 1.0;
  double program = 1e7;       ///< bytes that the process holds beside all matrices and factors
  double scratchWrite = 5e8;  ///< bytes a second to a scratch file; those of a common disk
  double scratchRead = 1.5e9;
  double scratchWriting = 6e-10;  ///< the processor's seconds a byte meanwhile
  double scratchReading = 3e-10;
  double scratchPanel = 2e-6;  ///< and for each panel, however small
};

/// Figures of one processor of the level that is at hand, rounded.
CostModel defaultCostModel(korin::kernels::ProcessorLevel level);

/// Seconds of one thread.
struct StageSeconds {
  double factor = 0.0;
  double inverse = 0.0;
};

/// What is counted of group g of a structure.
struct FrontCounts {
  Terms<FactorTerm> factor{};
  Terms<InverseTerm> inverse{};
};
FrontCounts countFront(const korin::sparse::Symbolic& symbolic, korin::sparse::Index g);

/// Dense work of group g alone, and with what is counted of it; a kept one is only assembled.
StageSeconds denseSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                          korin::sparse::Index g);
StageSeconds frontSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                          korin::sparse::Index g);

/// The same of what is not any front's: A's rows and its entries, as many as the caller gives.
FrontCounts countCommon(double unknowns, double entriesGiven);

/// The first touch of a block of so many bytes.
double touchSeconds(const CostModel& model, double bytes);

/// First touches of the memory that the stages take.
StageSeconds pageSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                         double entriesGiven, int threads);

/// What is not any front's: A's entries on their way in, and fresh memory.
StageSeconds commonSeconds(const CostModel& model, const korin::sparse::Symbolic& symbolic,
                           double entriesGiven, int threads);

}  // namespace zeph

#endif
