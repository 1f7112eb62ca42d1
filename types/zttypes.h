// The dense value records that cross every boundary of the library, and the functions that own
// their buffers. This is the whole interface of libzttypes.so; a host may bring a library of its
// own with the same records and functions.
//
// All indices are zero-based. A record is either *managed* (it owns its buffer, which came from
// this library) or a *view* on memory that belongs to somebody else; copies are always deep and
// managed.
#ifndef ZEPH_TYPES_ZTTYPES_H
#define ZEPH_TYPES_ZTTYPES_H

#include <cstdint>
#include <cstring>
#include <exception>

#if defined(ZTTYPES_BUILDING)
#define ZTTYPES_API __attribute__((visibility("default")))
#else
#define ZTTYPES_API
#endif

using ZtSize = unsigned long;
using ZtReal = double;
using ZtDataFlags = std::uint32_t;
using ZtResultValue = std::uint32_t;

/// The record is a view: its buffer is never freed and never resized through it.
inline constexpr ZtDataFlags kZtView = 0;
/// The record owns its buffer.
inline constexpr ZtDataFlags kZtManaged = 1;

struct ZtMatrix;
struct ZtVector;
struct ZtArray;
struct ZtString;
struct ZtStringArray;
struct ZtQuaternion;

/// How a ZtArray treats its elements: their size, and how one is deep-copied into raw memory and
/// destroyed. Null functions mean plain bytes.
struct ZtArrayDescriptor {
  ZtSize elementSize;
  void (*copyConstruct)(void* target, const void* source);
  void (*destruct)(void* element);
};

// Every function takes its record first and reports nothing; running out of memory throws
// std::bad_alloc. The `assign` and `copy` functions leave a managed record, also where it was a
// view before: the view is let go and what it viewed is not touched.
extern "C" {
/// Initialises raw memory as an array of `count` elements deep-copied from `source` (0, null:
/// empty).
ZTTYPES_API void ZtArray_construct(ZtArray* array, const ZtArrayDescriptor* descriptor,
                                   ZtSize count, const void* source);
/// Initialises raw memory as a deep copy of `source`.
ZTTYPES_API void ZtArray_copyConstruct(ZtArray* array, const ZtArray* source);
/// Makes an initialised array a deep copy of `source`.
ZTTYPES_API void ZtArray_copy(ZtArray* array, const ZtArray* source);
/// Frees the elements if managed and leaves an empty record; calling it again is harmless.
ZTTYPES_API void ZtArray_destruct(ZtArray* array);
/// Inserts deep copies of `count` items before `index`; an index with all bits set appends.
ZTTYPES_API void ZtArray_insert(ZtArray* array, ZtSize index, ZtSize count, const void* items);

/// Replaces the contents by a copy of NUL-terminated `text`.
ZTTYPES_API void ZtString_assignCharArray(ZtString* string, const char* text);
/// Appends the characters of `other`, a record of characters.
ZTTYPES_API void ZtString_append(ZtString* string, const ZtArray* other);
/// True when the string holds no characters.
ZTTYPES_API bool ZtString_empty(const ZtString* string);

/// Initialises raw memory as a managed rows x cols matrix with the given stride (0: cols), copied
/// from `source` when that is not null, whose rows are `sourceStride` apart (0: stride). Without
/// source the elements are not set.
ZTTYPES_API void ZtMatrix_construct(ZtMatrix* matrix, ZtSize rows, ZtSize cols, ZtSize stride,
                                    const ZtReal* source, ZtSize sourceStride);
/// The same for an initialised matrix, whose old elements are lost. `source` may lie in its buffer.
ZTTYPES_API void ZtMatrix_assign(ZtMatrix* matrix, ZtSize rows, ZtSize cols, ZtSize stride,
                                 const ZtReal* source, ZtSize sourceStride);
/// Makes an initialised matrix a managed deep copy of `source`, with stride = cols.
ZTTYPES_API void ZtMatrix_copy(ZtMatrix* matrix, const ZtMatrix* source);
/// Frees the buffer if managed and leaves an empty matrix.
ZTTYPES_API void ZtMatrix_destruct(ZtMatrix* matrix);
/// row * stride + col.
ZTTYPES_API ZtSize ZtMatrix_offset(const ZtMatrix* matrix, ZtSize row, ZtSize col);
/// Sets the rows x cols elements to 0.0, leaving the gaps between rows alone.
ZTTYPES_API void ZtMatrix_setZero(ZtMatrix* matrix);
/// Exchanges all fields of the two records.
ZTTYPES_API void ZtMatrix_swap(ZtMatrix* matrix, ZtMatrix* other);

/// Initialises raw memory as a managed vector, copied from `source` when that is not null.
ZTTYPES_API void ZtVector_construct(ZtVector* vector, ZtSize size, const ZtReal* source);
/// The same for an initialised vector. `source` may lie in its buffer.
ZTTYPES_API void ZtVector_assign(ZtVector* vector, ZtSize size, const ZtReal* source);
/// Makes an initialised vector a managed deep copy of `source`.
ZTTYPES_API void ZtVector_copy(ZtVector* vector, const ZtVector* source);
/// Frees the buffer if managed and leaves an empty vector.
ZTTYPES_API void ZtVector_destruct(ZtVector* vector);
/// Sets every element to 0.0.
ZTTYPES_API void ZtVector_setZero(ZtVector* vector);
/// Exchanges all fields of the two records.
ZTTYPES_API void ZtVector_swap(ZtVector* vector, ZtVector* other);
/// True when the size is 0.
ZTTYPES_API bool ZtVector_empty(const ZtVector* vector);
/// Sum of vector[i] * other[i] in ascending i, over vector's size.
ZTTYPES_API ZtReal ZtVector_dotProduct(const ZtVector* vector, const ZtVector* other);
/// Euclidean norm; no guard against overflow of the squares.
ZTTYPES_API ZtReal ZtVector_cartesianLength(const ZtVector* vector);
/// Divides every element by the Euclidean norm; a zero vector becomes NaN.
ZTTYPES_API void ZtVector_normalize(ZtVector* vector);

/// result = the conjugate divided by the squared length: the conjugate for a unit quaternion.
ZTTYPES_API void ZtQuaternion_inverse(const ZtQuaternion* quaternion, ZtQuaternion* result);
/// result = the quaternion scaled to unit length.
ZTTYPES_API void ZtQuaternion_normalized(const ZtQuaternion* quaternion, ZtQuaternion* result);

/// Elements are characters; a ZtString counts its terminating NUL.
extern ZTTYPES_API const ZtArrayDescriptor g_ztStringDescriptor;
/// Elements are ZtString records.
extern ZTTYPES_API const ZtArrayDescriptor g_ztStringArrayDescriptor;
}

/// Row-major dense matrix: element (r, c) is data[r * stride + c], stride >= cols.
struct ZtMatrix {
  ZtReal* data = nullptr;
  ZtSize rows = 0;
  ZtSize cols = 0;
  ZtSize stride = 0;
  ZtDataFlags flags = kZtView;

  ZtMatrix() = default;
  /// Managed rows x cols matrix, copied from `source` (rows `stride` apart) when that is not null.
  /// Stride 0 means cols; with no rows or no columns the matrix is 0 x 0 and has no buffer.
  ZtMatrix(ZtSize rowCount, ZtSize colCount, ZtSize rowStride, const ZtReal* source) {
    if (rowCount == 0 || colCount == 0) return;
    ZtMatrix_construct(this, rowCount, colCount, rowStride != 0 ? rowStride : colCount, source, 0);
  }
  ZtMatrix(const ZtMatrix& other) { ZtMatrix_copy(this, &other); }
  ZtMatrix& operator=(const ZtMatrix& other) {
    if (this != &other) ZtMatrix_copy(this, &other);
    return *this;
  }
  /// Takes the buffer of a managed matrix without gaps, which is left empty. Of any other a deep
  /// copy is made, as ever: a view never moves.
  ZtMatrix(ZtMatrix&& other) { *this = static_cast<ZtMatrix&&>(other); }
  ZtMatrix& operator=(ZtMatrix&& other) {
    if (other.flags != kZtManaged || other.stride != other.cols) return *this = other;
    if (this == &other) return *this;
    ZtMatrix_destruct(this);
    ZtMatrix_swap(this, &other);
    return *this;
  }
  ~ZtMatrix() { ZtMatrix_destruct(this); }
};

/// Dense vector: element i is data[i].
struct ZtVector {
  ZtReal* data = nullptr;
  ZtSize size = 0;
  ZtDataFlags flags = kZtView;

  ZtVector() = default;
  /// Managed vector; the elements are not set.
  explicit ZtVector(ZtSize count) { ZtVector_construct(this, count, nullptr); }
  ZtVector(ZtSize count, const ZtReal* source) { ZtVector_construct(this, count, source); }
  ZtVector(const ZtVector& other) { ZtVector_copy(this, &other); }
  ZtVector& operator=(const ZtVector& other) {
    if (this != &other) ZtVector_copy(this, &other);
    return *this;
  }
  /// Takes the buffer of a managed vector, which is left empty; a view is copied.
  ZtVector(ZtVector&& other) { *this = static_cast<ZtVector&&>(other); }
  ZtVector& operator=(ZtVector&& other) {
    if (other.flags != kZtManaged) return *this = other;
    if (this == &other) return *this;
    ZtVector_destruct(this);
    ZtVector_swap(this, &other);
    return *this;
  }
  ~ZtVector() { ZtVector_destruct(this); }
};

/// Four components, scalar part first; the rotations are korin::Quaternion's.
struct ZtQuaternion {
  ZtReal w = 0.0;
  ZtReal x = 0.0;
  ZtReal y = 0.0;
  ZtReal z = 0.0;
};

/// Generic array record: `size` elements in use of `reserved`, described by `descriptor`.
struct ZtArray {
  void* data = nullptr;
  ZtSize size = 0;
  ZtSize reserved = 0;
  ZtDataFlags flags = kZtView;
  const ZtArrayDescriptor* descriptor = nullptr;
};

/// A ZtArray of characters. `size` counts the terminating NUL: "abc" has size 4, an empty string 0
/// or 1.
struct ZtString : ZtArray {
  ZtString() { ZtArray_construct(this, &g_ztStringDescriptor, 0, nullptr); }
  ZtString(const char* text) {
    ZtArray_construct(this, &g_ztStringDescriptor, 0, nullptr);
    if (text != nullptr && *text != '\0') ZtString_assignCharArray(this, text);
  }
  ZtString(const ZtString& other) : ZtArray() { ZtArray_copyConstruct(this, &other); }
  ZtString& operator=(const ZtString& other) {
    if (this != &other) ZtArray_copy(this, &other);
    return *this;
  }
  ~ZtString() { ZtArray_destruct(this); }

  /// Appends NUL-terminated `text`; null and "" leave the string untouched.
  ZtString& operator<<(const char* text) {
    if (text == nullptr || *text == '\0') return *this;
    ZtArray borrowed;
    borrowed.data = const_cast<char*>(text);
    borrowed.size = borrowed.reserved = std::strlen(text) + 1;
    borrowed.descriptor = &g_ztStringDescriptor;
    ZtString_append(this, &borrowed);
    ZtArray_destruct(&borrowed);
    return *this;
  }

  /// The characters, NUL-terminated; "" for an empty string, never null.
  const char* c_str() const { return ZtString_empty(this) ? "" : static_cast<const char*>(data); }
};

/// A ZtArray of ZtString.
struct ZtStringArray : ZtArray {
  ZtStringArray() { ZtArray_construct(this, &g_ztStringArrayDescriptor, 0, nullptr); }
  ZtStringArray(const ZtStringArray& other) : ZtArray() { ZtArray_copyConstruct(this, &other); }
  ZtStringArray& operator=(const ZtStringArray& other) {
    if (this != &other) ZtArray_copy(this, &other);
    return *this;
  }
  ~ZtStringArray() { ZtArray_destruct(this); }

  ZtString& operator[](ZtSize i) { return static_cast<ZtString*>(data)[i]; }
  const ZtString& operator[](ZtSize i) const { return static_cast<const ZtString*>(data)[i]; }
  void append(const ZtString& string) { ZtArray_insert(this, ~ZtSize{0}, 1, &string); }
};

/// The one exception type of the dense library and the solver. `message` is the failing function's
/// signature, a blank, and a text; `value` is 256 throughout.
class __attribute__((visibility("default"))) ZtException : public std::exception {
 public:
  ZtResultValue value;
  ZtString message;

  ZtException(ZtResultValue resultValue, const ZtString& text)
      : value(resultValue), message(text) {}
  ~ZtException() noexcept override = default;
  const char* what() const noexcept override { return message.c_str(); }
};

#endif
