// The panels of a factor, wherever they are.
#ifndef ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H
#define ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H

#include "kernels/panel_file.h"
#include "kernels/panel_storage.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// The panels that `factorise` has made, to be read: in memory, or in a file, which is told how far
/// the reader has come. Owns nothing.
class FactorPanels {
 public:
  FactorPanels(const double* values) : values_(values) {}  // NOLINT: a pointer is one
  /// With `keeps`, large blocks that a computation makes on its way are in the file as well.
  FactorPanels(const kernels::PanelFile& file, bool keeps)
      : values_(file.values()), file_(&file), keeps_(keeps) {}

  const double* of(const Symbolic& s, Index g) const { return values_ + s.panelStart[g]; }

  /// Whether blocks of so many doubles are kept in the file.
  bool keepsLarge() const { return keeps_; }
  bool keeps(std::size_t count) const { return keeps_ && isLarge(count); }
  static bool isLarge(std::size_t count) { return count >= kLeastKept; }

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
  static constexpr std::size_t kLeastKept = std::size_t{1} << 17;

  static std::size_t at(const Symbolic& s, Index g) {
    return static_cast<std::size_t>(s.panelStart[g]);
  }

  const double* values_;
  const kernels::PanelFile* file_ = nullptr;
  bool keeps_ = false;
};

}  // namespace korin::sparse

#endif
