#include "types/zttypes.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace {

// A cache line, and the width of the widest vector register.
constexpr ZtSize kAlignment = 64;

// The only place where a record's buffer is obtained; std::free releases it.
void* allocateBuffer(ZtSize count, ZtSize elementSize) {
  if (count > (std::numeric_limits<ZtSize>::max() - kAlignment) / elementSize) {
    throw std::bad_alloc();
  }
  const ZtSize bytes = (count * elementSize + kAlignment - 1) / kAlignment * kAlignment;
  void* buffer = std::aligned_alloc(kAlignment, bytes);
  if (buffer == nullptr) throw std::bad_alloc();
  return buffer;
}

ZtReal* allocateReals(ZtSize rows, ZtSize stride) {
  if (rows == 0 || stride == 0) return nullptr;
  if (rows > std::numeric_limits<ZtSize>::max() / stride) throw std::bad_alloc();
  return static_cast<ZtReal*>(allocateBuffer(rows * stride, sizeof(ZtReal)));
}

void copyRows(ZtReal* target, ZtSize targetStride, const ZtReal* source, ZtSize sourceStride,
              ZtSize rows, ZtSize cols) {
  if (cols == 0) return;  // the pointers may be null
  for (ZtSize r = 0; r < rows; ++r) {
    std::memmove(target + r * targetStride, source + r * sourceStride, cols * sizeof(ZtReal));
  }
}

char* elementAt(const ZtArray* array, ZtSize i) {
  return static_cast<char*>(array->data) + i * array->descriptor->elementSize;
}

// An array that frees what it holds when an exception passes, or when it goes out of use.
struct OwnedElements : ZtArray {
  OwnedElements() = default;
  OwnedElements(const OwnedElements&) = delete;
  OwnedElements& operator=(const OwnedElements&) = delete;
  ~OwnedElements() { ZtArray_destruct(this); }

  void reserve(const ZtArrayDescriptor* type, ZtSize count) {
    descriptor = type;
    flags = kZtManaged;
    if (count != 0) data = allocateBuffer(count, type->elementSize);
    reserved = count;
  }

  // Deep copies of the source's elements, in memory reserved before.
  void copy(const void* source, ZtSize count) {
    if (count == 0) return;
    if (descriptor->copyConstruct == nullptr) {
      std::memcpy(data, source, count * descriptor->elementSize);
      size = count;
      return;
    }
    for (; size < count; ++size) {
      const char* element = static_cast<const char*>(source) + size * descriptor->elementSize;
      descriptor->copyConstruct(elementAt(this, size), element);
    }
  }

  // Exchanges the elements and what is known of them.
  void swap(ZtArray& other) { std::swap(static_cast<ZtArray&>(*this), other); }
};

void copyString(void* target, const void* source) {
  ZtArray_copyConstruct(static_cast<ZtArray*>(target), static_cast<const ZtArray*>(source));
}

void destroyString(void* element) {
  ZtArray_destruct(static_cast<ZtArray*>(element));
}

ZtSize stringLength(const ZtArray* string) {
  return string->size == 0 ? 0 : string->size - 1;
}

}  // namespace

extern "C" {

const ZtArrayDescriptor g_ztStringDescriptor = {1, nullptr, nullptr};
const ZtArrayDescriptor g_ztStringArrayDescriptor = {sizeof(ZtString), copyString, destroyString};

void ZtArray_construct(ZtArray* array, const ZtArrayDescriptor* descriptor, ZtSize count,
                       const void* source) {
  OwnedElements elements;
  elements.reserve(descriptor, count);
  elements.copy(source, count);
  *array = ZtArray();
  elements.swap(*array);
}

void ZtArray_copyConstruct(ZtArray* array, const ZtArray* source) {
  ZtArray_construct(array, source->descriptor, source->size, source->data);
}

void ZtArray_copy(ZtArray* array, const ZtArray* source) {
  if (array == source) return;
  ZtArray copy;
  ZtArray_copyConstruct(&copy, source);
  ZtArray_destruct(array);
  *array = copy;
}

void ZtArray_destruct(ZtArray* array) {
  if ((array->flags & kZtManaged) != 0 && array->data != nullptr) {
    if (array->descriptor->destruct != nullptr) {
      for (ZtSize i = 0; i < array->size; ++i) array->descriptor->destruct(elementAt(array, i));
    }
    std::free(array->data);
  }
  array->data = nullptr;
  array->size = 0;
  array->reserved = 0;
}

void ZtArray_insert(ZtArray* array, ZtSize index, ZtSize count, const void* items) {
  if (count == 0) return;
  const ZtSize before = std::min(index, array->size);
  const ZtSize after = array->size - before;
  const ZtSize size = array->size + count;
  const ZtSize width = array->descriptor->elementSize;
  // The copies are made first, so that items may lie inside the array itself.
  OwnedElements inserted;
  inserted.reserve(array->descriptor, count);
  inserted.copy(items, count);
  const bool managed = (array->flags & kZtManaged) != 0;
  if (!managed || size > array->reserved) {
    OwnedElements moved;
    moved.reserve(array->descriptor, std::max(size, 2 * array->reserved));
    if (!managed) {
      moved.copy(array->data, array->size);
    } else if (array->size != 0) {
      // Elements are relocated as bytes: their records do not point into themselves.
      std::memcpy(moved.data, array->data, array->size * width);
      moved.size = std::exchange(array->size, 0);
    }
    moved.swap(*array);
  }
  if (after != 0) {
    std::memmove(elementAt(array, before + count), elementAt(array, before), after * width);
  }
  std::memcpy(elementAt(array, before), inserted.data, count * width);
  inserted.size = 0;
  array->size = size;
}

void ZtString_assignCharArray(ZtString* string, const char* text) {
  ZtArray copy;
  ZtArray_construct(&copy, &g_ztStringDescriptor, std::strlen(text) + 1, text);
  ZtArray_destruct(string);
  static_cast<ZtArray&>(*string) = copy;
}

void ZtString_append(ZtString* string, const ZtArray* other) {
  const ZtSize added = stringLength(other);
  if (added == 0) return;
  const ZtSize kept = stringLength(string);
  if (string->size == 0) {
    ZtArray_insert(string, 0, added, other->data);
    const char terminator = '\0';
    ZtArray_insert(string, added, 1, &terminator);
  } else {
    ZtArray_insert(string, kept, added, other->data);
  }
}

bool ZtString_empty(const ZtString* string) {
  return stringLength(string) == 0;
}

void ZtMatrix_construct(ZtMatrix* matrix, ZtSize rows, ZtSize cols, ZtSize stride,
                        const ZtReal* source, ZtSize sourceStride) {
  if (stride == 0) stride = cols;
  if (sourceStride == 0) sourceStride = stride;
  matrix->data = cols == 0 ? nullptr : allocateReals(rows, stride);
  matrix->rows = rows;
  matrix->cols = cols;
  matrix->stride = stride;
  matrix->flags = kZtManaged;
  if (source != nullptr) copyRows(matrix->data, stride, source, sourceStride, rows, cols);
}

void ZtMatrix_assign(ZtMatrix* matrix, ZtSize rows, ZtSize cols, ZtSize stride,
                     const ZtReal* source, ZtSize sourceStride) {
  if (stride == 0) stride = cols;
  const bool reusable = (matrix->flags & kZtManaged) != 0 && matrix->data != nullptr &&
                        matrix->rows == rows && matrix->cols == cols && matrix->stride == stride;
  if (reusable) {
    if (source == nullptr) return;
    // A source inside this very buffer may overlap rows that are still to be read.
    const ZtReal* end = matrix->data + rows * stride;
    if (source < matrix->data || source >= end) {
      copyRows(matrix->data, stride, source, sourceStride == 0 ? stride : sourceStride, rows, cols);
      return;
    }
  }
  ZtMatrix fresh;
  ZtMatrix_construct(&fresh, rows, cols, stride, source, sourceStride);
  ZtMatrix_swap(matrix, &fresh);
}

void ZtMatrix_copy(ZtMatrix* matrix, const ZtMatrix* source) {
  if (matrix == source && (matrix->flags & kZtManaged) != 0) return;
  ZtMatrix_assign(matrix, source->rows, source->cols, source->cols, source->data, source->stride);
}

void ZtMatrix_destruct(ZtMatrix* matrix) {
  if ((matrix->flags & kZtManaged) != 0) std::free(matrix->data);
  matrix->data = nullptr;
  matrix->rows = matrix->cols = matrix->stride = 0;
  matrix->flags = kZtView;
}

ZtSize ZtMatrix_offset(const ZtMatrix* matrix, ZtSize row, ZtSize col) {
  return row * matrix->stride + col;
}

void ZtMatrix_setZero(ZtMatrix* matrix) {
  if (matrix->cols == 0) return;
  for (ZtSize r = 0; r < matrix->rows; ++r) {
    std::fill_n(matrix->data + r * matrix->stride, matrix->cols, 0.0);
  }
}

void ZtMatrix_swap(ZtMatrix* matrix, ZtMatrix* other) {
  std::swap(matrix->data, other->data);
  std::swap(matrix->rows, other->rows);
  std::swap(matrix->cols, other->cols);
  std::swap(matrix->stride, other->stride);
  std::swap(matrix->flags, other->flags);
}

void ZtVector_construct(ZtVector* vector, ZtSize size, const ZtReal* source) {
  vector->data = allocateReals(1, size);
  vector->size = size;
  vector->flags = kZtManaged;
  if (source != nullptr) std::copy_n(source, size, vector->data);
}

void ZtVector_assign(ZtVector* vector, ZtSize size, const ZtReal* source) {
  if ((vector->flags & kZtManaged) != 0 && vector->data != nullptr && vector->size == size) {
    if (source != nullptr) std::memmove(vector->data, source, size * sizeof(ZtReal));
    return;
  }
  ZtVector fresh;
  ZtVector_construct(&fresh, size, source);
  ZtVector_swap(vector, &fresh);
}

void ZtVector_copy(ZtVector* vector, const ZtVector* source) {
  ZtVector_assign(vector, source->size, source->data);
}

void ZtVector_destruct(ZtVector* vector) {
  if ((vector->flags & kZtManaged) != 0) std::free(vector->data);
  vector->data = nullptr;
  vector->size = 0;
  vector->flags = kZtView;
}

void ZtVector_setZero(ZtVector* vector) {
  std::fill_n(vector->data, vector->size, 0.0);
}

void ZtVector_swap(ZtVector* vector, ZtVector* other) {
  std::swap(vector->data, other->data);
  std::swap(vector->size, other->size);
  std::swap(vector->flags, other->flags);
}

bool ZtVector_empty(const ZtVector* vector) {
  return vector->size == 0;
}

ZtReal ZtVector_dotProduct(const ZtVector* vector, const ZtVector* other) {
  ZtReal sum = 0.0;
  for (ZtSize i = 0; i < vector->size; ++i) sum += vector->data[i] * other->data[i];
  return sum;
}

ZtReal ZtVector_cartesianLength(const ZtVector* vector) {
  return std::sqrt(ZtVector_dotProduct(vector, vector));
}

void ZtVector_normalize(ZtVector* vector) {
  const ZtReal length = ZtVector_cartesianLength(vector);
  for (ZtSize i = 0; i < vector->size; ++i) vector->data[i] /= length;
}

void ZtQuaternion_inverse(const ZtQuaternion* q, ZtQuaternion* result) {
  const ZtReal squared = q->w * q->w + q->x * q->x + q->y * q->y + q->z * q->z;
  *result = {q->w / squared, -q->x / squared, -q->y / squared, -q->z / squared};
}

void ZtQuaternion_normalized(const ZtQuaternion* q, ZtQuaternion* result) {
  const ZtReal length = std::sqrt(q->w * q->w + q->x * q->x + q->y * q->y + q->z * q->z);
  *result = {q->w / length, q->x / length, q->y / length, q->z / length};
}
}
