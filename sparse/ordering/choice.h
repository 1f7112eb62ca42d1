// The orders of elimination that there are.
#ifndef ZEPH_SPARSE_ORDERING_CHOICE_H
#define ZEPH_SPARSE_ORDERING_CHOICE_H

namespace korin::sparse {

enum class Ordering {
  /// Minimum degree, and nested dissection where that promises to pay for its own time.
  Automatic,
  MinimumDegree,
  NestedDissection,
  Natural,
  /// The caller's permutation.
  Given,
};

}  // namespace korin::sparse

#endif
