// korin::Vector: construction and sizing.
#include "math/dense/korin_vector.h"

#include <algorithm>

#include "math/dense/korin_matrix.h"
#include "math/dense/zt_error.h"

namespace korin {

namespace {

// Capital R on purpose, unlike the matrix's text: callers tell the two apart.
constexpr char kVectorResizeRefused[] = "Resizing of this object is not allowed";

bool isViewWithData(const ZtVector& v) {
  return v.data != nullptr && (v.flags & kZtManaged) == 0;
}

}  // namespace

Vector::Vector(ZtSize size) : ZtVector(size) {}

Vector::Vector(ZtSize size, const ZtReal* source) : ZtVector(size, source) {}

Vector::Vector(ZtSize size, const ZtVector& parent, ZtSize offset) {
  this->data = parent.data + offset;
  this->size = size;
}

Vector::Vector(korin::Matrix& m, ZtSize index) {
  // Without columns there is no row to find, and flatRow would divide by zero.
  data = m.cols == 0 ? m.data : m.flatRow(index);
  size = m.cols;
}

Vector::Vector(const ZtQuaternion& q) : ZtVector(4) {
  data[0] = q.w;
  data[1] = q.x;
  data[2] = q.y;
  data[3] = q.z;
}

Vector::Vector(const ZtVector& other) : ZtVector(other) {}

Vector::Vector(const Vector& other) : ZtVector(other) {}

Vector& Vector::operator=(const ZtVector& other) {
  ZtVector::operator=(other);
  return *this;
}

Vector& Vector::operator=(const Vector& other) {
  ZtVector::operator=(other);
  return *this;
}

void Vector::changeSize(ZtSize newSize) {
  if (newSize == size) return;
  if (isViewWithData(*this)) throwError(__PRETTY_FUNCTION__, kVectorResizeRefused);
  if (data == nullptr || size == 0) {
    ZtVector_assign(this, newSize, nullptr);
    return;
  }
  ZtVector resized(newSize);
  const ZtSize kept = std::min(newSize, size);
  std::copy_n(data, kept, resized.data);
  std::fill(resized.data + kept, resized.data + newSize, 0.0);
  ZtVector_swap(this, &resized);
}

void Vector::insertItems(ZtSize before, ZtSize count, ZtReal value) {
  if (isViewWithData(*this)) throwError(__PRETTY_FUNCTION__, kVectorResizeRefused);
  const ZtSize oldSize = size;
  changeSize(size + count);
  if (before < oldSize) {
    std::copy_backward(data + before, data + oldSize, data + oldSize + count);
  }
  std::fill_n(data + before, count, value);
}

void Vector::push_back(ZtReal value) {
  // A refused append is reported under changeSize's signature, on purpose.
  changeSize(size + 1);
  data[size - 1] = value;
}

}  // namespace korin
