#include "sparse/pattern/assembly.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <numeric>
#include <utility>

namespace korin::sparse {
namespace {

/// Where an entry goes.
struct Place {
  Index row;
  Index col;
};

template <Part part, class I>
class Assembler {
 public:
  explicit Assembler(const Places<I>& input) : input_(input) {}

  template <class Count>
  Columns pattern(Index rows, Index cols) const {
    std::vector<Count> next(static_cast<std::size_t>(cols) + 1, 0);
    forEachPlace([&](Place to) { ++next[to.col + 1]; });
    std::partial_sum(next.begin(), next.end(), next.begin());
    Columns a;
    a.rows = rows;
    a.cols = cols;
    a.start.assign(next.begin(), next.end());
    a.row.resize(static_cast<std::size_t>(next[cols]));
    forEachPlace([&](Place to) { a.row[next[to.col]++] = to.row; });
    sortColumns(a);
    return a;
  }

  /// use(k, place, mirrored) for the entries in their order; false as soon as one is not there.
  template <class Count, class Use>
  bool forEachSlot(const Columns& a, Use use) const {
    // The entry after the one found last in each column.
    std::vector<Count> next(a.start.begin(), a.start.end());
    for (std::size_t k = 0; k < input_.count; ++k) {
      const bool mirrored = input_.row[k * input_.step] < input_.col[k * input_.step];
      if (mirrored && part == Part::LowerOfBoth) {
        use(k, Offset{0}, true);
        continue;
      }
      const Place to = placeOf(k);
      const Offset first = a.start[to.col], end = a.start[to.col + 1];
      Offset at = next[to.col];
      if (at == end || a.row[at] != to.row) {
        if (at != first && a.row[at - 1] == to.row) {
          --at;
        } else {
          at = std::lower_bound(a.row.begin() + first, a.row.begin() + end, to.row) - a.row.begin();
          if (at == end || a.row[at] != to.row) return false;
        }
      }
      next[to.col] = static_cast<Count>(at + 1);
      use(k, at, mirrored);
    }
    return true;
  }

 private:
  Place placeOf(std::size_t k) const {
    const auto row = static_cast<Index>(input_.row[k * input_.step]);
    const auto col = static_cast<Index>(input_.col[k * input_.step]);
    if constexpr (part == Part::OneTriangle) return {std::max(row, col), std::min(row, col)};
    return {row, col};
  }

  /// use(place) for the entries that are not skipped.
  template <class Use>
  void forEachPlace(Use use) const {
    for (std::size_t k = 0; k < input_.count; ++k) {
      const Place to = placeOf(k);
      if (part != Part::LowerOfBoth || to.row >= to.col) use(to);
    }
  }

  /// Sorts columns that do not ascend, and closes the gaps that duplicates leave.
  static void sortColumns(Columns& a) {
    Offset kept = 0, first = 0;
    const auto row = a.row.begin();
    for (Index c = 0; c < a.cols; ++c) {
      const Offset end = a.start[c + 1];
      if (std::adjacent_find(row + first, row + end, std::greater_equal<>()) != row + end) {
        if (!std::is_sorted(row + first, row + end)) std::sort(row + first, row + end);
        const Offset distinct = std::unique(row + first, row + end) - row;
        if (kept != first) std::copy(row + first, row + distinct, row + kept);
        a.start[c] = kept;
        kept += distinct - first;
      } else {
        if (kept != first) std::copy(row + first, row + end, row + kept);
        a.start[c] = kept;
        kept += end - first;
      }
      first = end;
    }
    a.start[a.cols] = kept;
    a.row.resize(static_cast<std::size_t>(kept));
    a.row.shrink_to_fit();
  }

  Places<I> input_;
};

template <Part part, class I>
Columns patternOf(Index rows, Index cols, const Places<I>& input) {
  const Assembler<part, I> assembler(input);
  if (input.count <= std::numeric_limits<std::uint32_t>::max()) {
    return assembler.template pattern<std::uint32_t>(rows, cols);
  }
  return assembler.template pattern<Offset>(rows, cols);
}

template <class I, class Use>
bool forEachSlot(const Columns& a, const Places<I>& input, Part part, Use use) {
  const auto run = [&](const auto& assembler) {
    if (a.entries() <= std::numeric_limits<std::uint32_t>::max()) {
      return assembler.template forEachSlot<std::uint32_t>(a, use);
    }
    return assembler.template forEachSlot<Offset>(a, use);
  };
  switch (part) {
    case Part::OneTriangle:
      return run(Assembler<Part::OneTriangle, I>(input));
    case Part::LowerOfBoth:
      return run(Assembler<Part::LowerOfBoth, I>(input));
    default:
      return run(Assembler<Part::Whole, I>(input));
  }
}

}  // namespace

template <class I>
Columns assemblePattern(Index rows, Index cols, const Places<I>& input, Part part) {
  switch (part) {
    case Part::OneTriangle:
      return patternOf<Part::OneTriangle>(rows, cols, input);
    case Part::LowerOfBoth:
      return patternOf<Part::LowerOfBoth>(rows, cols, input);
    default:
      return patternOf<Part::Whole>(rows, cols, input);
  }
}

template <class I>
bool findSlots(const Columns& pattern, const Places<I>& input, Part part, Slots& slots) {
  slots = Slots(input.count);
  return forEachSlot(pattern, input, part, [&slots](std::size_t, Offset place, bool mirrored) {
    slots.append(place, mirrored);
  });
}

template <class I>
Columns assembleTriplets(Index rows, Index cols, const I* row, const I* col, const double* value,
                         std::size_t count, Part part) {
  const Places<I> input{row, col, count};
  Columns a = assemblePattern(rows, cols, input, part);
  a.value.assign(a.row.size(), 0.0);
  forEachSlot(a, input, part, [&](std::size_t k, Offset place, bool mirrored) {
    if (mirrored && part == Part::LowerOfBoth) return;
    a.value[place] += value[k];
  });
  return a;
}

template Columns assemblePattern(Index, Index, const Places<std::int32_t>&, Part);
template Columns assemblePattern(Index, Index, const Places<std::int64_t>&, Part);
template bool findSlots(const Columns&, const Places<std::int32_t>&, Part, Slots&);
template bool findSlots(const Columns&, const Places<std::int64_t>&, Part, Slots&);
template Columns assembleTriplets(Index, Index, const std::int32_t*, const std::int32_t*,
                                  const double*, std::size_t, Part);
template Columns assembleTriplets(Index, Index, const std::int64_t*, const std::int64_t*,
                                  const double*, std::size_t, Part);

}  // namespace korin::sparse
