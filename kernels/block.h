#ifndef ZEPH_KERNELS_BLOCK_H
#define ZEPH_KERNELS_BLOCK_H

#include <cstddef>

namespace korin::kernels {

/// A dense matrix, or a block of one, by the strides of its rows and columns: element (i, j) lies
/// at data[i*rowStride + j*colStride]. Transposed and row- or column-major operands are all
/// described alike. Owns nothing and knows no size.
template <class Element>
struct StridedBlock {
  Element* data = nullptr;
  std::ptrdiff_t rowStride = 0;
  std::ptrdiff_t colStride = 0;

  /// The block whose first element is (i, j).
  StridedBlock at(std::size_t i, std::size_t j) const {
    return {data + static_cast<std::ptrdiff_t>(i) * rowStride +
                static_cast<std::ptrdiff_t>(j) * colStride,
            rowStride, colStride};
  }
  Element& operator()(std::size_t i, std::size_t j) const { return *at(i, j).data; }
  StridedBlock transposed() const { return {data, colStride, rowStride}; }
  operator StridedBlock<const Element>() const { return {data, rowStride, colStride}; }
};

using Block = StridedBlock<double>;
using ConstBlock = StridedBlock<const double>;

}  // namespace korin::kernels

#endif
