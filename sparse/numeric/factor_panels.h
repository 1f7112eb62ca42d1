// The panels of a factor, wherever they are.
#ifndef ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H
#define ZEPH_SPARSE_NUMERIC_FACTOR_PANELS_H

#include "kernels/panel_file.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// The panels that `factorise` has made, to be read: in memory, or in a file, which is told how far
/// the reader has come. Owns nothing.
class FactorPanels {
 public:
  FactorPanels(const double* values) : values_(values) {}  // NOLINT: a pointer is one
  explicit FactorPanels(const kernels::PanelFile& file) : values_(file.values()), file_(&file) {}

  const double* of(const Symbolic& s, Index g) const { return values_ + s.panelStart[g]; }

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
};

}  // namespace korin::sparse

#endif
