#ifndef ZEPH_MATH_SORTING_MTSORT_ORDER_H
#define ZEPH_MATH_SORTING_MTSORT_ORDER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace korin {

/// The order in which mtSort (math/sorting/mtsort.h) arranges elements of type T: ascending key,
/// and among equal keys descending weight. Elements with equal key and weight may come in any
/// order. Specialise it for types with another layout:
///
///   template <> struct korin::MtSortOrder<Event> {
///     static std::uint64_t key(const Event& e) { return e.time; }
///     static std::uint64_t weight(const Event&) { return 0; }  // any order among equal times
///   };
///
/// The default is for a sparse triplet {u32 row, u32 col, f64 value} and anything laid out like it.
/// The key is the first eight bytes as one unsigned integer (little-endian: column, then row). The
/// weight is the magnitude of the double that follows, as bits, since the bits of non-negative
/// doubles order as their values do. A NaN, which compares false with everything, so gets a
/// definite place among equal keys (before infinity), and the order is a strict weak one for all
/// values.
template <typename T>
struct MtSortOrder {
  static_assert(sizeof(T) >= 16, "specialise korin::MtSortOrder for this type");

  static std::uint64_t key(const T& e) { return wordAt(e, 0); }
  static std::uint64_t weight(const T& e) { return wordAt(e, 8) & kMagnitudeBits; }

 private:
  static constexpr std::uint64_t kMagnitudeBits = 0x7FFFFFFFFFFFFFFFu;

  static std::uint64_t wordAt(const T& e, std::size_t offset) {
    std::uint64_t word;
    std::memcpy(&word, reinterpret_cast<const char*>(&e) + offset, sizeof word);
    return word;
  }
};

namespace mtsort {

/// Key and weight of an element side by side.
struct Place {
  std::uint64_t key;
  std::uint64_t weight;
};

template <typename T>
inline Place placeOf(const T& e) {
  return {MtSortOrder<T>::key(e), MtSortOrder<T>::weight(e)};
}

/// a < b as one comparison of 128-bit numbers: two subtractions with borrow, no branch.
inline bool less(const Place& a, const Place& b) {
  __extension__ typedef unsigned __int128 Wide;
  return ((Wide{a.key} << 64) | b.weight) < ((Wide{b.key} << 64) | a.weight);
}

template <typename T>
inline bool less(const T& a, const T& b) {
  return less(placeOf(a), placeOf(b));
}

}  // namespace mtsort
}  // namespace korin

#endif
