// The panels of a factor, wherever they are.
#ifndef ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H
#define ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H

#include <cstddef>
#include <limits>

#include "kernels/panel_file.h"
#include "kernels/panel_storage.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// The size, in doubles, from which on blocks wait in a file, where none do.
inline constexpr std::size_t kKeepNothing = std::numeric_limits<std::size_t>::max();
/// Smaller ones take longer to write and to map than they are worth.
inline constexpr std::size_t kLeastKept = std::size_t{1} << 17;

/// How a computation saves memory.
struct Thrift {
  /// Blocks of so many doubles and more that it makes on its way wait in the file of the panels.
  std::size_t keptFrom = kKeepNothing;
  /// The threads do not work on subtrees of their own, but share the fronts of one after the other.
  bool together = false;
};

/// The panels that `factorise` has made, to be read: in memory, or in a file, which is told how far
/// the reader has come. Owns nothing.
class FactorPanels {
 public:
  FactorPanels(const double* values, Thrift thrift = {})  // NOLINT: a pointer is one
      : values_(values), thrift_(thrift) {}
  FactorPanels(const kernels::PanelFile& file, Thrift thrift)
      : values_(file.values()), file_(&file), thrift_(thrift) {}

  const double* of(const Symbolic& s, Index g) const { return values_ + s.panelStart[g]; }

  bool inFile() const { return file_ != nullptr; }
  /// Memory for what a computation makes on its way. Throws std::bad_alloc.
  kernels::PanelStorage room(std::size_t count) const {
    const bool mapped = inFile() && count * sizeof(double) >= kernels::kLargePanels;
    return mapped ? kernels::mappedPanels(count) : kernels::rawPanels(count);
  }
  /// Of so many threads those that work on subtrees of their own.
  int apart(int threads) const { return thrift_.together ? 1 : threads; }
  std::size_t keptFrom() const { return thrift_.keptFrom; }
  /// Whether a block of so many doubles is kept in the file.
  bool keeps(std::size_t count) const { return count >= thrift_.keptFrom; }

  /// The same values in the file, only to be read. Throws as PanelFile::keep.
  kernels::PanelStorage keep(const double* values, std::size_t count) const {
    return file_->keep(values, count);
  }

  /// To be called when the panel of g has been read, on the way to g + 1.
  void passedForward(const Symbolic& s, Index g) const {
    if (file_ == nullptr) return;
    file_->passedForward(at(s, g), at(s, g + 1), at(s, g + 1 < s.groups() ? g + 2 : g + 1));
  }

  /// The same on the way to g - 1.
  void passedBackward(const Symbolic& s, Index g) const {
    if (file_ == nullptr) return;
    file_->passedBackward(at(s, g), at(s, g + 1), at(s, g > 0 ? g - 1 : g));
  }

 private:
  static std::size_t at(const Symbolic& s, Index g) {
    return static_cast<std::size_t>(s.panelStart[g]);
  }

  const double* values_;
  const kernels::PanelFile* file_ = nullptr;
  Thrift thrift_;
};

}  // namespace korin::sparse

#endif
