// Where the entries of an input went, in few bytes each.
#ifndef ZEPH_SPARSE_PATTERN_SLOTS_H
#define ZEPH_SPARSE_PATTERN_SLOTS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "sparse/pattern/columns.h"

namespace korin::sparse {

/// A list of places to be read from front to back. A short one is stored as it is. In a long one
/// steps are stored instead of places, in bytes of seven bits: inputs have an order, whichever, and
/// the next entry mostly goes near the one before it of its kind (a place at random among 2^27
/// takes four bytes).
class Slots {
 public:
  Slots() = default;
  /// For so many entries.
  explicit Slots(std::size_t count) : isShort_(count <= kShort) {
    if (isShort_) places_.reserve(count);
  }

  /// `mirrored`: the entry stands above the diagonal and goes to its mirror image, or is skipped.
  void append(Offset place, bool mirrored) {
    if (isShort_) {
      places_.push_back(static_cast<std::uint32_t>(place) << 1 | (mirrored ? 1U : 0U));
      return;
    }
    if (end_ == nullptr || end_ - blocks_.back().codes.get() > kFull) startBlock();
    const Offset step = place - last_[mirrored];
    last_[mirrored] = place;
    const auto size = static_cast<std::uint64_t>(step < 0 ? ~step : step);
    std::uint64_t code = size << 2 | (step < 0 ? 2U : 0U) | (mirrored ? 1U : 0U);
    for (; code >= 128; code >>= 7) *end_++ = static_cast<unsigned char>(code | 128U);
    *end_++ = static_cast<unsigned char>(code);
    ++blocks_.back().count;
  }

  /// use(place, mirrored) for the entries in their order.
  template <class Use>
  void forEach(Use use) const {
    for (const std::uint32_t at : places_) use(static_cast<Offset>(at >> 1), (at & 1U) != 0);
    for (const Block& block : blocks_) read(block, use);
  }

  /// The same list with move(place) instead of each place; this one's memory goes over to it.
  template <class Move>
  Slots moved(Move move) && {
    Slots result;
    result.isShort_ = isShort_;
    result.places_ = std::move(places_);
    for (std::uint32_t& at : result.places_) {
      at = static_cast<std::uint32_t>(move(static_cast<Offset>(at >> 1))) << 1 | (at & 1U);
    }
    for (Block& block : blocks_) {
      read(block, [&](Offset place, bool mirrored) { result.append(move(place), mirrored); });
      block.codes.reset();
    }
    return result;
  }

  std::size_t count() const {
    std::size_t sum = places_.size();
    for (const Block& block : blocks_) sum += block.count;
    return sum;
  }
  /// That they take.
  std::size_t bytes() const {
    return sizeof(std::uint32_t) * places_.size() + blocks_.size() * (sizeof(Block) + kBlock);
  }

 private:
  static constexpr std::size_t kShort = std::size_t{1} << 20;
  static constexpr std::ptrdiff_t kBlock = std::ptrdiff_t{1} << 13;
  static constexpr std::ptrdiff_t kLongestCode = 9;  // of a place below 2^60
  static constexpr std::ptrdiff_t kFull = kBlock - kLongestCode;

  struct Block {
    std::unique_ptr<unsigned char[]> codes;
    std::size_t count = 0;
  };

  template <class Use>
  static void read(const Block& block, Use use) {
    Offset last[2] = {0, 0};
    const unsigned char* at = block.codes.get();
    for (std::size_t k = 0; k < block.count; ++k) {
      std::uint64_t code = *at++;
      for (int shift = 7; code >> shift != 0; shift += 7) {
        code ^= std::uint64_t{1} << shift ^ static_cast<std::uint64_t>(*at++) << shift;
      }
      const auto size = static_cast<Offset>(code >> 2);
      const bool mirrored = (code & 1U) != 0;
      last[mirrored] += (code & 2U) != 0 ? ~size : size;
      use(last[mirrored], mirrored);
    }
  }

  void startBlock() {
    blocks_.push_back({std::unique_ptr<unsigned char[]>(new unsigned char[kBlock])});
    end_ = blocks_.back().codes.get();
    last_[0] = last_[1] = 0;
  }

  bool isShort_ = false;
  std::vector<std::uint32_t> places_;
  std::vector<Block> blocks_;
  unsigned char* end_ = nullptr;
  Offset last_[2] = {0, 0};
};

}  // namespace korin::sparse

#endif
